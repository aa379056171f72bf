// The virtual system and the text forms of what it reports.

#include <gmock/gmock.h>

#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/TestSystem.h>

using namespace Nucleo::Statuses;
using TesselLib::IpAddress;
using VxTestSupport::FailingAllocator;
using VxTestSupport::TestSystem;

namespace
{

TEST(TextFormTest, OfAddressesAndControllerTypes)
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
    for (const std::string_view bad :
         {"", "1.2.3", "1.2.3.", "1.2.3.4.", "1.2.3.4.5", ".1.2.3.4", "1..2.3", "256.0.0.0", "1.2.3.999", "01.2.3.4",
          "1.2.3.00", "-1.2.3.4", "+1.2.3.4", " 1.2.3.4", "1.2.3.4 ", "0x1.2.3.4", "1,2,3,4", "99999999999.0.0.0"}) {
        EXPECT_EQ(TesselLib::IpAddress_Parse(&address, bad), ERROR_FORMAT) << bad;
    }
    EXPECT_EQ(TesselLib::IpAddress_Parse(&address, std::string_view("1.2.3.4\0", 8)), ERROR_FORMAT);
    EXPECT_EQ(address, (IpAddress{{255, 0, 10, 1}}));

    for (const auto& [code, name] : {std::pair{10, "sensor-e"}, {5, "type-5"}, {-1, "type-4294967295"}}) {
        EXPECT_EQ(TesselLib::ControllerType_Format(code, text, 16), OK);
        EXPECT_STREQ(text, name);
    }
    EXPECT_EQ(TesselLib::ControllerType_Format(1, text, 8), OK);
    EXPECT_EQ(TesselLib::ControllerType_Format(1, text, 7), ERROR_CAPACITY);
}

TEST(VirtualSystemTest, ReportsItsNodes)
{
    auto description = TestSystem::LocalNode();
    description.info.name = "two\nlines";
    const TestSystem test(std::move(description));
    EXPECT_EQ(&test.Node().Storage(), &test.Storage());
    Nucleo::Handle<TesselLib::DataObject> report;
    ASSERT_EQ(test.Node().ReadNodeReport(report.Receive(), nullptr), OK);
    EXPECT_EQ(std::string(report->bytes.begin(), report->bytes.end()),
              "id: 1\nname: two?lines\ncontroller type: virtual\naddress: 192.168.1.10\nmask: 255.255.255.0\n"
              "gateway: 192.168.1.1\nMAC address: 02:00:00:aa:bb:cc\n");
}

TEST(VirtualSystemTest, WhatCannotBeMadeIsNull)
{
    Nucleo::Handle<TesselLib::System> bare;
    ASSERT_EQ(TesselLib::VirtualSystem_Construct(bare.Receive(), std::vector<TesselLib::VirtualNodeDescription>(1)),
              OK);
    TesselLib::Node* node = nullptr;
    ASSERT_EQ(bare->FindNode(0, &node), OK);
    EXPECT_EQ(node->Storage().Upload("a", nullptr, 0), ERROR_UNSUPPORTED);
    auto* data = reinterpret_cast<TesselLib::DataObject*>(std::uintptr_t{1});
    EXPECT_EQ(node->ReadCrashLog(&data, nullptr), ERROR_NOT_FOUND);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(bare->FindNode(7, &node), ERROR_NOT_FOUND);
    EXPECT_EQ(node, nullptr);

    auto* system = reinterpret_cast<TesselLib::System*>(std::uintptr_t{1});
    EXPECT_EQ(TesselLib::VirtualSystem_Construct(&system, std::vector<TesselLib::VirtualNodeDescription>(2)),
              ERROR_ALREADY_EXISTS);
    EXPECT_EQ(system, nullptr);
    FailingAllocator noSystem(0);
    EXPECT_EQ(TesselLib::VirtualSystem_Construct(&system, {}, &noSystem), ERROR_MEMORY);
    EXPECT_EQ(system, nullptr);
    FailingAllocator noData(0);
    EXPECT_EQ(TestSystem().Node().ReadCrashLog(&data, &noData), ERROR_MEMORY);
    EXPECT_EQ(data, nullptr);
}

}  // namespace
