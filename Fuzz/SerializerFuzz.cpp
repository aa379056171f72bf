// Any bytes as a serialized array: reading ends, and whether the stream knows its length makes no difference. What was
// read is written as it came.

#include <array>
#include <bit>
#include <cstring>

#include <Nucleo/Serializer.h>
#include <VxCommon/VcStatistics/VcDistribution.h>
#include <VxTestSupport/Streams.h>

#include "FuzzSupport.h"

using namespace Nucleo::Statuses;
using List = Nucleo::ArrayList<VcDistribution>;

namespace
{

const Nucleo::Assembly& Types()
{
    static Nucleo::Assembly* const assembly = [] {
        Nucleo::Assembly* made = nullptr;
        Require(Nucleo::Assembly::Make(&made, "Fuzz", {}, {}, nullptr) == OK && xxVcDistribution_Register(made) == OK);
        return made;
    }();
    return *assembly;
}

Nucleo::Status Read(Nucleo::Stream& stream, Nucleo::Handle<List>& list)
{
    Nucleo::Deserializer deserializer(stream, Types());
    const Nucleo::Status status = deserializer.Open();
    return status == OK ? deserializer.ReadArray(list.Receive(), nullptr) : status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    VxTestSupport::PieceStream pieces(bytes, 5);
    Nucleo::Handle<List> list;
    Nucleo::Handle<List> listOfPieces;
    const Nucleo::Status status = Read(*VxTestSupport::StreamOf(bytes), list);
    Require(Read(pieces, listOfPieces) == status);
    Require(status == OK || status == ERROR_END || status == ERROR_FORMAT || status == ERROR_CONTENT ||
            status == ERROR_UNSUPPORTED);
    if (status != OK) {
        return 0;
    }
    const std::size_t length = list->Count() * sizeof(VcDistribution);
    Require(length <= size && list->Count() == listOfPieces->Count());
    Require(length == 0 || std::memcmp(&list->At(0), &listOfPieces->At(0), length) == 0);

    // The head is one of a known format: its text, four bytes of version and the byte order's mark.
    const bool swap = data[10] != std::bit_cast<std::array<std::uint8_t, 4>>(std::uint32_t{0x01020304})[0];
    Nucleo::Version version;
    std::memcpy(version.parts, data + 6, sizeof version.parts);
    Nucleo::Handle<Nucleo::MemoryStream> copy;
    Require(Nucleo::MemoryStream_Construct(copy.Receive()) == OK);
    Nucleo::Serializer serializer(*copy, Types());
    Require(serializer.Open({reinterpret_cast<const char*>(data) + 1, 5}, version, swap) == OK);
    Require(serializer.WriteArray(list->Items()) == OK && serializer.Close() == OK);
    const std::size_t first = copy->Length() - length;
    Require(copy->Length() <= size && std::memcmp(copy->Data(), data, first) == 0);
    for (std::size_t at = first; at < copy->Length(); ++at) {
        // The name's last byte is made a NUL.
        Require(copy->Data()[at] == data[at] || (at - first) % sizeof(VcDistribution) == 15);
    }
    return 0;
}
