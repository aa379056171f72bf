// The archive, the virtual system and the text forms of what it reports.

#include <memory>
#include <string>

#include <gmock/gmock.h>

#include <TesselLib/Archive.h>
#include <TesselLib/Tar.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/TestSystem.h>

using namespace Nucleo::Statuses;
using TesselLib::Archive;
using TesselLib::IpAddress;
using VxTestSupport::FailingAllocator;
using VxTestSupport::TestSystem;

namespace
{

std::vector<std::uint8_t> Tar(const std::vector<std::pair<std::string, std::string>>& files)
{
    Nucleo::Handle<Nucleo::MemoryStream> target;
    Nucleo::MemoryStream_Construct(target.Receive());
    TesselLib::TarWriter writer;
    EXPECT_EQ(writer.Open(*target), OK);
    for (const auto& [name, data] : files) {
        Nucleo::Handle<Nucleo::MemoryStream> content;
        Nucleo::MemoryStream_Construct(content.Receive());
        content->Attach(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
        EXPECT_EQ(writer.WriteFile(name, *content, data.size()), OK);
    }
    EXPECT_EQ(writer.Close(), OK);
    return target->TakeContent();
}

Nucleo::Status ReadInto(Archive& archive, const std::vector<std::uint8_t>& bytes, std::size_t length)
{
    Nucleo::Handle<Nucleo::MemoryStream> stream;
    Nucleo::MemoryStream_Construct(stream.Receive());
    stream->Attach(bytes.data(), length);
    return archive.Read(*stream);
}

std::string Content(const Archive& archive, std::string_view name)
{
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    const Nucleo::Status status = archive.Find(name, &data, &size);
    EXPECT_EQ(data == nullptr, status != OK);
    return status == OK ? std::string(data, data + size) : std::string(Nucleo::StatusName(status));
}

TEST(ArchiveTest, ReadsAllOrNothing)
{
    Nucleo::Handle<Archive> archive;
    ASSERT_EQ(TesselLib::Archive_Construct(archive.Receive()), OK);
    EXPECT_EQ(archive->Count(), 0u);
    auto image = Tar({{"config", "1"}, {"empty", ""}, {"config", "2"}});
    ASSERT_EQ(ReadInto(*archive, image, image.size()), OK);
    EXPECT_EQ(archive->Count(), 3u);
    EXPECT_EQ(archive->Name(1), "empty");
    EXPECT_EQ(archive->Name(3), "");
    EXPECT_EQ(Content(*archive, "config"), "2");
    EXPECT_EQ(Content(*archive, "empty"), "");
    EXPECT_EQ(Content(*archive, "other"), "ERROR_NOT_FOUND");

    const std::vector<std::uint8_t> garbage(2000, 'x');
    EXPECT_EQ(ReadInto(*archive, image, 512), ERROR_END);
    EXPECT_EQ(ReadInto(*archive, image, 700), ERROR_FORMAT);
    EXPECT_EQ(ReadInto(*archive, garbage, garbage.size()), ERROR_FORMAT);
    EXPECT_EQ(ReadInto(*archive, garbage, 0), ERROR_FORMAT);
    EXPECT_EQ(Content(*archive, "config"), "2") << "a failed reading leaves the content";
    image = Tar({});
    EXPECT_EQ(ReadInto(*archive, image, image.size()), OK);
    EXPECT_EQ(archive->Count(), 0u);
}

/// Gives the header of a file of 257 MiB and then as many bytes as anybody wants.
class EndlessStream final : public Nucleo::Stream
{
public:
    explicit EndlessStream(std::vector<std::uint8_t> header) : header_(std::move(header)) {}
    Nucleo::Status Read(void* buffer, std::size_t /*minimum*/, std::size_t maximum, std::size_t* count) override
    {
        auto* bytes = static_cast<std::uint8_t*>(buffer);
        for (std::size_t i = 0; i < maximum; ++i) {
            bytes[i] = given_ < header_.size() ? header_[given_++] : 'x';
        }
        *count = maximum;
        return OK;
    }

private:
    std::vector<std::uint8_t> header_;
    std::size_t given_ = 0;
};

TEST(ArchiveTest, RefusesMoreThanItsLimitBeforeMemoryIsTaken)
{
    auto header = Tar({{"a", ""}});
    header.resize(512);
    const std::string size = "02004000000";  // 257 MiB
    std::copy(size.begin(), size.end(), header.begin() + 124);
    std::fill_n(header.begin() + 148, 8, std::uint8_t{' '});
    unsigned sum = 0;
    for (const std::uint8_t byte : header) {
        sum += byte;
    }
    char checksum[8];
    std::snprintf(checksum, sizeof checksum, "%06o", sum);
    std::copy_n(checksum, 7, header.begin() + 148);
    FailingAllocator allocator;
    Nucleo::Handle<Archive> archive;
    ASSERT_EQ(TesselLib::Archive_Construct(archive.Receive(), &allocator), OK);
    EndlessStream endless(header);
    EXPECT_EQ(archive->Read(endless), ERROR_LIMIT);
    EXPECT_EQ(allocator.Allocations(), 1) << "the archive object itself";
}

TEST(ArchiveTest, SurvivesEachFailingAllocation)
{
    const auto image = Tar({{"a", "1"}, {"b", std::string(100'000, 'x')}, {"c", ""}});
    for (int n = 0;; ++n) {
        FailingAllocator allocator(n);
        {
            Nucleo::Handle<Archive> archive;
            Nucleo::Status status = TesselLib::Archive_Construct(archive.Receive(), &allocator);
            EXPECT_EQ(status == OK, static_cast<bool>(archive));
            if (status == OK) {
                status = ReadInto(*archive, image, image.size());
                EXPECT_EQ(archive->Count(), status == OK ? 3u : 0u);
            }
            EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
        }
        EXPECT_EQ(allocator.Live(), 0) << "leak at failure " << n;
        if (!allocator.Failed()) {
            EXPECT_EQ(n, 4);
            break;
        }
    }
}

TEST(AddressTest, WritesAndReadsItsTextForm)
{
    char text[32];
    EXPECT_EQ(TesselLib::IpAddress_Format({{192, 168, 1, 10}}, text, 16), OK);
    EXPECT_STREQ(text, "192.168.1.10");
    EXPECT_EQ(TesselLib::IpAddress_Format({}, text, 15), ERROR_CAPACITY);
    EXPECT_EQ(TesselLib::MacAddress_Format({{0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}}, text, 18), OK);
    EXPECT_STREQ(text, "00:11:22:aa:bb:cc");
    EXPECT_EQ(TesselLib::MacAddress_Format({}, text, 17), ERROR_CAPACITY);

    IpAddress address;
    EXPECT_EQ(TesselLib::IpAddress_Parse(&address, "255.0.10.1"), OK);
    EXPECT_EQ(address, (IpAddress{{255, 0, 10, 1}}));
    for (const char* bad :
         {"",         "1",         "1.2.3",     "1.2.3.",    "1.2.3.4.", "1.2.3.4.5", ".1.2.3.4",
          "1..2.3",   "256.0.0.0", "1.2.3.999", "01.2.3.4",  "1.2.3.00", "-1.2.3.4",  "+1.2.3.4",
          " 1.2.3.4", "1.2.3.4 ",  "1.2. 3.4",  "0x1.2.3.4", "1,2,3,4",  "a.b.c.d",   "99999999999.0.0.0"}) {
        EXPECT_EQ(TesselLib::IpAddress_Parse(&address, bad), ERROR_FORMAT) << bad;
    }
    EXPECT_EQ(TesselLib::IpAddress_Parse(&address, std::string_view("1.2.3.4\0", 8)), ERROR_FORMAT);
    EXPECT_EQ(address, (IpAddress{{255, 0, 10, 1}}));
}

TEST(ControllerTypeTest, NamesEachCodeWithinSixteenBytes)
{
    const std::pair<std::int32_t, const char*> names[] = {
        {0, "unknown"},   {1, "virtual"},  {3, "sensor-a"},  {4, "sensor-b"}, {6, "sensor-c"},        {7, "accelix-a"},
        {8, "accelix-b"}, {9, "sensor-d"}, {10, "sensor-e"}, {5, "type-5"},   {-1, "type-4294967295"}};
    char text[16];
    for (const auto& [code, name] : names) {
        EXPECT_EQ(TesselLib::ControllerType_Format(code, text, sizeof text), OK);
        EXPECT_STREQ(text, name);
    }
    EXPECT_EQ(TesselLib::ControllerType_Format(1, text, 8), OK);
    EXPECT_EQ(TesselLib::ControllerType_Format(1, text, 7), ERROR_CAPACITY);
}

TEST(VirtualSystemTest, FindsItsNodesAndWhatTheySay)
{
    const TestSystem test;
    TesselLib::Node* node = nullptr;
    EXPECT_EQ(test.System().FindNode(7, &node), ERROR_NOT_FOUND);
    EXPECT_EQ(node, nullptr);
    ASSERT_EQ(test.System().FindNode(TestSystem::localId, &node), OK);
    EXPECT_EQ(node, &test.Node());
    EXPECT_EQ(&node->Storage(), &test.Storage());
    TesselLib::NodeInfo info;
    ASSERT_EQ(node->ReadInfo(&info), OK);
    EXPECT_EQ(info.controllerType, 1);

    Nucleo::Handle<TesselLib::DataObject> data;
    ASSERT_EQ(node->ReadCrashLog(data.Receive(), nullptr), OK);
    EXPECT_EQ(std::string(data->bytes.begin(), data->bytes.end()), "crash");
    ASSERT_EQ(node->ReadNodeReport(data.Receive(), nullptr), OK);
    EXPECT_EQ(std::string(data->bytes.begin(), data->bytes.end()),
              "id: 1\nname: local\ncontroller type: virtual\naddress: 192.168.1.10\nmask: 255.255.255.0\n"
              "gateway: 192.168.1.1\nMAC address: 02:00:00:aa:bb:cc\n");
}

TEST(VirtualSystemTest, NodesWithoutThisAndThat)
{
    std::vector<TesselLib::VirtualNodeDescription> nodes(2);
    nodes[0].info.name = "two\nlines";
    nodes[1].info.id = 1;
    nodes[1].info.name = "kept";
    nodes[1].reachable = false;
    nodes[1].crashLog = {1};
    Nucleo::Handle<TesselLib::System> system;
    ASSERT_EQ(TesselLib::VirtualSystem_Construct(system.Receive(), std::move(nodes)), OK);
    TesselLib::Node* node = nullptr;
    ASSERT_EQ(system->FindNode(0, &node), OK);

    std::uint64_t size = 1;
    std::vector<std::string> names{"left over"};
    Nucleo::Handle<Nucleo::MemoryStream> stream;
    ASSERT_EQ(Nucleo::MemoryStream_Construct(stream.Receive()), OK);
    EXPECT_FALSE(node->Storage().FileExists("a"));
    EXPECT_EQ(node->Storage().FileSize("a", &size), ERROR_UNSUPPORTED);
    EXPECT_EQ(node->Storage().Download("a", *stream), ERROR_UNSUPPORTED);
    EXPECT_EQ(node->Storage().Upload("a", nullptr, 0), ERROR_UNSUPPORTED);
    EXPECT_EQ(node->Storage().Delete("a"), ERROR_UNSUPPORTED);
    EXPECT_EQ(node->Storage().List("/user", &names), ERROR_UNSUPPORTED);
    EXPECT_TRUE(size == 0 && names.empty());

    TesselLib::DataObject* data = nullptr;
    EXPECT_EQ(node->ReadCrashLog(&data, nullptr), ERROR_NOT_FOUND);
    EXPECT_EQ(data, nullptr);
    Nucleo::Handle<TesselLib::DataObject> report;
    ASSERT_EQ(node->ReadNodeReport(report.Receive(), nullptr), OK);
    EXPECT_THAT(std::string(report->bytes.begin(), report->bytes.end()), testing::HasSubstr("name: two?lines\n"));

    ASSERT_EQ(system->FindNode(1, &node), OK);
    TesselLib::NodeInfo info;
    info.name = "untouched";
    EXPECT_EQ(node->ReadInfo(&info), ERROR_STATE);
    EXPECT_EQ(info.name, "untouched");
    EXPECT_EQ(node->ReadCrashLog(&data, nullptr), ERROR_STATE);
    EXPECT_EQ(node->ReadNodeReport(&data, nullptr), ERROR_STATE);

    std::vector<TesselLib::VirtualNodeDescription> same(2);
    TesselLib::System* none = nullptr;
    EXPECT_EQ(TesselLib::VirtualSystem_Construct(&none, std::move(same)), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(none, nullptr);
}

TEST(VirtualSystemTest, SurvivesEachFailingAllocation)
{
    for (int n = 0;; ++n) {
        FailingAllocator allocator(n);
        {
            const VxTestSupport::ScopedDefaultAllocator scope(allocator);
            TesselLib::System* system = nullptr;
            const Nucleo::Status status = TesselLib::VirtualSystem_Construct(&system, {});
            EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
            EXPECT_EQ(system == nullptr, status != OK);
            Nucleo::Destroy(system);
        }
        EXPECT_EQ(allocator.Live(), 0);
        if (!allocator.Failed()) {
            break;
        }
    }
    const TestSystem test;
    FailingAllocator allocator(0);
    TesselLib::DataObject* data = nullptr;
    EXPECT_EQ(test.Node().ReadCrashLog(&data, &allocator), ERROR_MEMORY);
    EXPECT_EQ(data, nullptr);
}

}  // namespace
