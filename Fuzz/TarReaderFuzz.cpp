// Any bytes as a tar archive: reading ends, every entry is bounded by the archive, and whether the source lends its
// memory or is read in pieces makes no difference. What was read can be written, and comes back as it was; so does a
// store whose image the bytes are.

#include <limits>
#include <string>
#include <vector>

#include <TesselLib/Tar.h>
#include <VxApi/Exception.h>
#include <VxCommon/Persistence/PersistUtils.h>
#include <VxTestSupport/RawTar.h>
#include <VxTestSupport/Streams.h>

#include "FuzzSupport.h"

using namespace Nucleo::Statuses;
using VxCommon::PersistUtils;
using VxTestSupport::StreamOf;

namespace
{

struct Entry
{
    std::string name;
    std::uint32_t type;
    std::string data;
    bool operator==(const Entry&) const = default;
};

std::vector<Entry> ReadAll(Nucleo::Stream& stream, std::size_t archiveSize, Nucleo::Status* end)
{
    std::vector<Entry> entries;
    TesselLib::TarReader reader;
    Require(reader.Open(stream) == OK);
    for (std::size_t count = 0;; ++count) {
        Require(count <= archiveSize / 512);
        char name[512];
        TesselLib::TarEntry header;
        *end = reader.NextEntry(name, sizeof name, &header);
        if (*end != OK) {
            return entries;
        }
        const std::uint64_t left = reader.BytesLeft();
        Require(left == std::numeric_limits<std::uint64_t>::max() || left <= archiveSize);
        if (header.size > archiveSize) {
            continue;  // A claim that no archive of this size can keep; passed over, or found to be cut.
        }
        Entry entry{name, header.type, std::string(static_cast<std::size_t>(header.size), 0)};
        if (reader.Read(entry.data.data(), header.size) == OK) {
            entries.push_back(std::move(entry));
        }
    }
}

/// Puts the right checksum into every block that calls itself a header, since no chance would.
void RepairChecksums(std::string& bytes)
{
    for (std::size_t block = 0; block + 512 <= bytes.size(); block += 512) {
        if (bytes.compare(block + 257, 5, "ustar") == 0) {
            VxTestSupport::SealTarHeader(bytes.data() + block);
        }
    }
}

void Check(const std::string& bytes)
{
    const std::size_t size = bytes.size();
    VxTestSupport::PieceStream pieces(bytes);
    Nucleo::Status end = OK;
    Nucleo::Status endOfPieces = OK;
    const std::vector<Entry> entries = ReadAll(*StreamOf(bytes), size, &end);
    Require(ReadAll(pieces, size, &endOfPieces) == entries && end == endOfPieces);
    Require(end == ERROR_END || end == ERROR_FORMAT);

    Nucleo::Handle<Nucleo::MemoryStream> copy;
    Require(Nucleo::MemoryStream_Construct(copy.Receive()) == OK);
    TesselLib::TarWriter writer;
    Require(writer.Open(*copy) == OK);
    std::vector<Entry> expected;
    std::size_t total = 0;
    for (const Entry& entry : entries) {
        // A sparse file's holes can repeat up to the whole size many times over.
        total += entry.data.size();
        if (entry.type != 0 || total > size) {
            continue;
        }
        const Nucleo::Status status = writer.WriteFile("/" + entry.name, *StreamOf(entry.data), entry.data.size());
        Require(status == OK || status == ERROR_PARAMETER);
        if (status == OK) {
            expected.push_back(entry);
        }
    }
    Require(writer.Close() == OK);
    Require(ReadAll(*copy, copy->Length(), &end) == expected && end == ERROR_END);
}

void CheckStore(const std::string& bytes)
{
    VxCommon::PersistStore store;
    try {
        store = PersistUtils::DearchiveStore(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    } catch (const Vx::Exception&) {
        return;
    }
    const std::vector<unsigned char> image = PersistUtils::ArchiveStore(store);
    const VxCommon::PersistStore copy = PersistUtils::DearchiveStore(image.data(), image.size());
    Require(copy.List("", true) == store.List("", true) && PersistUtils::ArchiveStore(copy) == image);
    for (const std::string& key : store.List("", true)) {
        Require(copy.Read(key) == store.Read(key));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string bytes(reinterpret_cast<const char*>(data), size);
    for (int repaired = 0; repaired < 2; ++repaired) {
        Check(bytes);
        CheckStore(bytes);
        RepairChecksums(bytes);
    }
    return 0;
}
