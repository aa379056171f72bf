// The binary serializer and the two formats of VcDistribution.

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <Nucleo/Serializer.h>
#include <VxCommon/VcStatistics/VcDistribution.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/Streams.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;
using Nucleo::Version;
using VxTestSupport::PieceStream;

namespace
{

using List = Nucleo::ArrayList<VcDistribution>;

Status WriteBytes(Nucleo::Serializer& serializer, const void* items, std::size_t count)
{
    return serializer.WriteBytes(items, count);
}
Status ReadBytes(Nucleo::Deserializer& deserializer, void* items, std::size_t count)
{
    return deserializer.ReadBytes(items, count);
}
const Nucleo::ValueFormat byteFormats[] = {{"kdat6", {{2, 0, 1, 0}}, "u8-1", 1, &WriteBytes, &ReadBytes},
                                           {"kdat6", {{1, 9, 0, 0}}, "u8-0", 1, &WriteBytes, &ReadBytes}};

const Nucleo::Assembly& Types()
{
    static const Nucleo::Handle<Nucleo::Assembly> assembly = [] {
        Nucleo::Handle<Nucleo::Assembly> made;
        EXPECT_EQ(Nucleo::Assembly::Make(made.Receive(), "Test", {}, {}, nullptr), OK);
        EXPECT_EQ(made->AddValue(Nucleo::UInt8Type, {}), OK);
        EXPECT_EQ(made->AddFormats(Nucleo::UInt8Type, byteFormats), OK);
        EXPECT_EQ(xxVcDistribution_Register(made.Get()), OK);
        return made;
    }();
    return *assembly;
}

template <class T>
Status Write(Nucleo::Stream& stream, std::string_view format, Version version, bool swap, const std::vector<T>& items)
{
    Nucleo::Serializer serializer(stream, Types());
    Status status = serializer.Open(format, version, swap);
    status = status == OK ? serializer.WriteArray(std::span<const T>(items)) : status;
    return status == OK ? serializer.Close() : status;
}

template <class T>
std::string Written(std::string_view format, Version version, bool swap, const std::vector<T>& items)
{
    PieceStream stream({});
    EXPECT_EQ(Write(stream, format, version, swap, items), OK);
    return stream.Content();
}

template <class T>
Status Read(Nucleo::Stream& stream, Nucleo::Handle<Nucleo::ArrayList<T>>& list, Nucleo::Allocator* allocator = nullptr)
{
    Nucleo::Deserializer deserializer(stream, Types());
    Status status = deserializer.Open();
    status = status == OK ? deserializer.ReadArray(list.Receive(), allocator) : status;
    EXPECT_EQ(static_cast<bool>(list), status == OK);
    return status;
}

/// The status of reading bytes from memory and in pieces, which is the same. A failure takes next to no memory.
Status StatusOf(const std::string& bytes)
{
    VxTestSupport::FailingAllocator allocator;
    const auto memory = VxTestSupport::StreamOf(bytes);
    Nucleo::Handle<List> list;
    const Status status = Read(*memory, list, &allocator);
    EXPECT_TRUE(status == OK || allocator.Allocations() == 0);
    PieceStream pieces(bytes, 5);
    EXPECT_EQ(Read(pieces, list, &allocator), status);
    EXPECT_TRUE(status == OK || allocator.Allocations() <= 2) << "the list and its first items";
    return status;
}

/// Hexadecimal digits as bytes. Numbers stand in brackets, the highest byte first, and are turned around for a stream
/// whose lowest byte comes first.
std::string BytesOf(const std::string& notation, bool littleEndian)
{
    std::string bytes;
    std::ptrdiff_t number = 0;
    for (std::size_t i = 0; i < notation.size(); ++i) {
        if (notation[i] == '[') {
            number = static_cast<std::ptrdiff_t>(bytes.size());
        } else if (notation[i] == ']' && littleEndian) {
            std::reverse(bytes.begin() + number, bytes.end());
        } else if (std::isxdigit(notation[i])) {
            bytes += static_cast<char>(std::stoi(notation.substr(i++, 2), nullptr, 16));
        }
    }
    return bytes;
}

const std::string Head5 = "05 6B64617435 05000000 [01020304]";
const std::string Head6 = "05 6B64617436 05070100 [01020304]";
const std::string Name5 = "05 3138382D30";
const std::string Name6 = "10 5663446973747269627574696F6E2D30";
const std::string Item =
    "74656D70657261747572650000000000"                          // "temperature"
    "[3FF8000000000000] [C000000000000000] [3FF8000000000000]"  // last 1.5, min -2, max 1.5
    "[400C000000000000] [BFE0000000000000] [4019000000000000]"  // range 3.5, sum -0.5, squares 6.25
    "[0000000000000002]";                                       // count
const std::string One = "[0000000000000001]";

VcDistribution Sample(const char* name = "temperature")
{
    VcDistribution distribution = {};
    VcDistribution_Reset(&distribution);
    VcDistribution_SetName(&distribution, name);
    VcDistribution_AddSample(&distribution, -2);
    VcDistribution_AddSample(&distribution, 1.5);
    return distribution;
}

constexpr Version V571 = {{5, 7, 1, 0}};

TEST(SerializerTest, EachFormatAndByteOrderByteByByte)
{
    for (const bool five : {false, true}) {
        for (const bool little : {false, true}) {
            SCOPED_TRACE(testing::Message() << (five ? "kdat5" : "kdat6") << (little ? ", little" : ", big"));
            const bool swap = little != (std::endian::native == std::endian::little);
            const std::string bytes = BytesOf((five ? Head5 + Name5 : Head6 + Name6) + One + Item, little);
            EXPECT_EQ(five ? Written("kdat5", {{5, 0, 0, 0}}, swap, std::vector{Sample()})
                           : Written("kdat6", V571, swap, std::vector{Sample()}),
                      bytes);
            Nucleo::Handle<List> list;
            PieceStream followed(bytes + "more", 5000);
            ASSERT_EQ(Read(followed, list), OK);
            EXPECT_EQ(followed.Position(), bytes.size()) << "what follows stays on the stream";
            const VcDistribution expected = Sample();
            ASSERT_EQ(list->Count(), 1u);
            EXPECT_EQ(std::memcmp(&list->At(0), &expected, sizeof expected), 0);
            for (std::size_t length = 0; length <= bytes.size(); ++length) {
                ASSERT_EQ(StatusOf(bytes.substr(0, length)), length < bytes.size() ? ERROR_END : OK) << length;
            }
        }
    }
}

TEST(SerializerTest, BytesThatSayAnythingElse)
{
    const std::pair<std::string, Status> inputs[] = {
        {"00" + Head6, ERROR_FORMAT},
        {"20" + std::string(64, '6') + Head6, ERROR_FORMAT},
        {"05 6B64617437 05070100 [01020304]", ERROR_FORMAT},
        {"05 6B64617436 05070100 [01020305]", ERROR_FORMAT},
        {"05 6B64617436 05070000 [01020304]" + Name6, ERROR_UNSUPPORTED},
        {"05 6B64617435 04FFFFFF [01020304]" + Name5, ERROR_UNSUPPORTED},
        {Head6 + Name5 + One + Item, ERROR_CONTENT},
        {Head6 + "04 75382D31" + One + Item, ERROR_CONTENT},
        {Head6 + "00" + One + Item, ERROR_FORMAT},
        {Head6 + Name6 + "[0000000000000000]", OK},
        {Head6 + Name6 + "[0000010000000000]" + Item, ERROR_END},
        {Head6 + Name6 + "[FFFFFFFFFFFFFFFF]" + Item, ERROR_END},
        {Head6 + Name6 + "[038E38E38E38E38F]" + Item, ERROR_END},  // times 72 is 2^64 and a little
    };
    for (const auto& [notation, status] : inputs) {
        for (const bool little : {false, true}) {
            EXPECT_EQ(StatusOf(BytesOf(notation, little)), status) << notation;
        }
    }
    PieceStream endless(BytesOf(Head6 + Name6 + One, true) + std::string(72, 'x'));
    Nucleo::Handle<List> list;
    ASSERT_EQ(Read(endless, list), OK);
    EXPECT_STREQ(list->At(0).name, "xxxxxxxxxxxxxxx") << "had no end";
}

TEST(SerializerTest, ManyItemsAcrossTheBuffersAndEachFailure)
{
    std::vector<VcDistribution> items;
    for (int i = 0; i < 1000; ++i) {
        items.push_back(Sample(std::to_string(i).c_str()));
        VcDistribution_AddSample(&items.back(), i);
    }
    Nucleo::Handle<List> whole;
    PieceStream inPieces(Written("kdat6", V571, true, items), 4095);
    ASSERT_EQ(Read(inPieces, whole), OK);
    ASSERT_EQ(whole->Count(), items.size());
    EXPECT_EQ(std::memcmp(&whole->At(0), items.data(), items.size() * sizeof(VcDistribution)), 0);
    const std::string bytes = Written("kdat6", V571, false, items);
    for (std::size_t failsAt = 0; failsAt < bytes.size(); failsAt += 613) {
        PieceStream target({}, 0, failsAt);
        EXPECT_EQ(Write(target, "kdat6", V571, false, items), ERROR_DISK_FULL);
        PieceStream source(bytes, 10, failsAt);
        Nucleo::Handle<List> list;
        EXPECT_EQ(Read(source, list), ERROR_IO);
    }
    for (int failing = 0; failing <= 4; ++failing) {  // the list, and room for 256, 512 and 1,000 items
        VxTestSupport::FailingAllocator allocator(failing);
        PieceStream stream(bytes);
        Nucleo::Handle<List> list;
        EXPECT_EQ(Read(stream, list, &allocator), failing < 4 ? ERROR_MEMORY : OK);
        EXPECT_EQ(allocator.Live(), failing < 4 ? 0 : 2);
    }
}

TEST(SerializerTest, TheVersionSelectsAmongWhatIsRegistered)
{
    const std::vector<std::uint8_t> seven = {7};
    const std::pair<Version, char> versions[] = {
        {{{1, 9, 0, 0}}, '0'}, {{{2, 0, 0, 255}}, '0'}, {{{2, 0, 1, 0}}, '1'}, {{{255, 0, 0, 0}}, '1'}};
    for (const auto& [version, name] : versions) {
        PieceStream stream(Written("kdat6", version, true, seven));
        EXPECT_EQ(stream.Content()[18], name);
        Nucleo::Handle<Nucleo::ArrayList<std::uint8_t>> list;
        ASSERT_EQ(Read(stream, list), OK);
        EXPECT_THAT(list->Items(), testing::ElementsAre(7));
    }
    PieceStream stream({});
    EXPECT_EQ(Write(stream, "kdat6", {{1, 8, 255, 255}}, false, seven), ERROR_UNSUPPORTED);
    EXPECT_EQ(Write(stream, "kdat5", V571, false, seven), ERROR_UNSUPPORTED);
    EXPECT_EQ(Write(stream, "kdat", V571, false, seven), ERROR_FORMAT);

    Nucleo::Handle<Nucleo::Assembly> assembly;
    ASSERT_EQ(Nucleo::Assembly::Make(assembly.Receive(), "Test", {}, {}, nullptr), OK);
    EXPECT_EQ(assembly->AddFormats(Nucleo::UInt8Type, byteFormats), ERROR_NOT_FOUND);
    ASSERT_EQ(assembly->AddValue(Nucleo::UInt8Type, {}), OK);
    for (const char* name : {"", "12345678901234567890123456789012"}) {
        const Nucleo::ValueFormat format = {"kdat6", {}, name, 1, &WriteBytes, &ReadBytes};
        EXPECT_EQ(assembly->AddFormats(Nucleo::UInt8Type, {&format, 1}), ERROR_PARAMETER);
    }
    EXPECT_EQ(xxVcDistribution_Register(assembly.Get()), OK);
    EXPECT_EQ(xxVcDistribution_Register(assembly.Get()), ERROR_ALREADY_EXISTS);
}

}  // namespace
