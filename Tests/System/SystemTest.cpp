// Access to the platform: attributes of the process, the sensor system, updates. (The controller's passes test what
// SystemUpdater does around them.)

#include <gmock/gmock.h>

#include <Tests/Persistence/FakeHandler.h>
#include <VxCommon/PlatformAttributes/PlatformAttributes.h>
#include <VxCommon/System/SystemUpdater.h>
#include <VxCommon/TesselSystem/TesselSystem.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/TestSystem.h>

using testing::ElementsAre;

namespace VxCommon
{
namespace
{

using App = IPlatformAttributes::ApplicationType;
constexpr TesselLib::IpConfig ipConfig{{{192, 168, 1, 10}}, {{255, 255, 255, 0}}, {{192, 168, 1, 1}}};
constexpr TesselLib::MacAddress mac{{2, 0, 0, 0, 0, 7}};

PlatformAttributes Attributes(int controllerType, App app, int operatingSystem = 1)
{
    return {operatingSystem, controllerType, app, 77, ipConfig, 0, 0, mac, 4};
}

TEST(PlatformAttributesTest, PredicatesOverAllControllersAndApplications)
{
    for (int controller = -1; controller <= 12; ++controller) {
        for (const int app : {0, 1, 2, 3, 255}) {
            const PlatformAttributes attributes = Attributes(controller, static_cast<App>(app));
            const bool sensorHardware =
                controller == 3 || controller == 4 || controller == 6 || controller == 9 || controller == 10;
            const bool accelixHardware = controller == 7 || controller == 8;
            const std::string what = std::to_string(controller) + " " + std::to_string(app);
            EXPECT_EQ(attributes.OnPhysicalSensor(), app == 0 && sensorHardware) << what;
            EXPECT_EQ(attributes.UseCpuAffinity(), app == 0 && sensorHardware) << what;
            EXPECT_FALSE(Attributes(controller, static_cast<App>(app), 2).UseCpuAffinity()) << what;
            EXPECT_EQ(attributes.OnPhysicalAccelix(), app == 2 && accelixHardware) << what;
            EXPECT_EQ(attributes.OnVirtualSensor(), app == 0 && controller == 1) << what;
            EXPECT_EQ(attributes.OnVirtualAccelix(), app == 2 && controller == 1) << what;
            EXPECT_EQ(attributes.OnPixoraServiceApp(), app == 1 && controller == 1) << what;
            EXPECT_EQ(attributes.IsRestartable(), app != 1) << what;
            EXPECT_EQ(attributes.IsUpgradable(), app != 1) << what;
        }
    }
}

TEST(PlatformAttributesTest, LogsItselfOnceAndFollowsItsPorts)
{
    VxTestSupport::ScopedLogCapture log;
    PlatformAttributes attributes(2, 1, App::AccelixFirmware, 77, ipConfig, 0, 80, mac, 4);
    EXPECT_EQ(LogOf(log), Journal({"PlatformAttributes/PlatformAttributes: I Platform Attributes: operatingSystem 2, "
                                   "virtual controller, AccelixFirmware interface IP 192.168.1.10 application id 77"}));
    const PlatformAttributes copy(attributes);
    EXPECT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(copy.CpuCount() * 100 + copy.AppId(), 477U);
    EXPECT_EQ(copy.OperatingSystem() * 10 + copy.ControllerType(), 21);
    EXPECT_EQ(copy.AppType(), App::AccelixFirmware);
    EXPECT_EQ(copy.InterfaceIpConfig(), ipConfig);
    EXPECT_EQ(copy.InterfaceIpAddress(), ipConfig.address);
    EXPECT_EQ(copy.InterfaceMacAddress(), mac);
    EXPECT_EQ(attributes.AppTypeName(static_cast<App>(3)), std::string("Unknown App"));

    EXPECT_FALSE(attributes.ArePortsUpdated());
    attributes.UpdateControlPort(3190);
    EXPECT_TRUE(attributes.ArePortsUpdated());
    attributes.UpdateWebPort(0);
    EXPECT_FALSE(attributes.ArePortsUpdated());
    EXPECT_EQ(attributes.ControlPort(), 3190);
    EXPECT_EQ(copy.WebPort(), 80);
}

TesselSystem SystemOf(const VxTestSupport::TestSystem& platform, App app)
{
    return {Vx::Object<void*>(platform.NewSystemReference()), &platform.Node(), app, nullptr};
}

TEST(TesselSystemTest, FindsNodesAndTurnsFailuresIntoExceptions)
{
    const VxTestSupport::TestSystem platform;
    int pipe = 0;
    const TesselSystem system(Vx::Object<void*>(platform.NewSystemReference()), &platform.Node(), App::PixoraFirmware,
                              &pipe);
    EXPECT_EQ(system.PipeAlloc(), &pipe);
    EXPECT_EQ(system.LocalNode(), &platform.Node());
    EXPECT_EQ(system.FindNode(1), &platform.Node());
    EXPECT_TRUE(system.NodeExists(1));
    EXPECT_FALSE(system.NodeExists(2));
    EXPECT_EQ(PlaceThrown([&] { system.FindNode(2); }),
              "-999 TesselSystem/TesselSystem VxCommon::TesselSystem::FindNode");
    EXPECT_TRUE(system.IsVirtual());

    Nucleo::Handle<TesselLib::DataObject> data;
    system.ReadCrashLog(data.Receive());
    EXPECT_EQ(data->bytes, ToBytes("crash"));
    system.ReadNodeReport(data.Receive());
    EXPECT_FALSE(data->bytes.empty());

    auto unreachable = VxTestSupport::TestSystem::LocalNode();
    unreachable.info.controllerType = 3;
    unreachable.crashLog.clear();
    const VxTestSupport::TestSystem healthy(std::move(unreachable));
    EXPECT_FALSE(SystemOf(healthy, App::PixoraFirmware).IsVirtual());
    EXPECT_EQ(PlaceThrown([&] { SystemOf(healthy, App::PixoraFirmware).ReadCrashLog(data.Receive()); }),
              "-999 TesselSystem/TesselSystem VxCommon::TesselSystem::ReadCrashLog");
    unreachable = VxTestSupport::TestSystem::LocalNode();
    unreachable.reachable = false;
    const VxTestSupport::TestSystem gone(std::move(unreachable));
    EXPECT_EQ(PlaceThrown([&] { SystemOf(gone, App::PixoraFirmware).IsVirtual(); }),
              "-1000 TesselSystem/TesselSystem VxCommon::TesselSystem::IsVirtual");
    EXPECT_EQ(PlaceThrown([&] { SystemOf(gone, App::PixoraFirmware).ReadNodeReport(data.Receive()); }),
              "-1000 TesselSystem/TesselSystem VxCommon::TesselSystem::ReadNodeReport");
    EXPECT_EQ(VxTestSupport::StatusThrown([&] { SystemOf(gone, App::PixoraFirmware).ReadCrashLog(data.Receive()); }),
              -1000);
    EXPECT_FALSE(data);
}

TEST(TesselSystemTest, TheApplicationDecidesWhatIsSupported)
{
    const VxTestSupport::TestSystem platform;
    for (const int app : {0, 1, 2, 3}) {
        const TesselSystem system = SystemOf(platform, static_cast<App>(app));
        EXPECT_EQ(system.LocalIsSensor(), app == 0);
        EXPECT_EQ(system.LocalIsAccelix(), app == 2);
        EXPECT_EQ(system.SupportsCrashLog(), app == 0 || app == 2);
        EXPECT_EQ(system.SupportsNodeReport(), app == 0 || app == 2);
    }
    EXPECT_GT(TesselSystem::MemoryCapacity(), std::uint64_t{64} << 20);
    EXPECT_GT(TesselSystem::MemoryAvailable(), 0U);
    EXPECT_LE(TesselSystem::MemoryAvailable(), TesselSystem::MemoryCapacity());
}

TEST(TesselSystemTest, CopiesShareTheSystemAndTheLastReleasesIt)
{
    VxTestSupport::FailingAllocator allocator;
    {
        const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
        auto platform = std::make_unique<VxTestSupport::TestSystem>();
        TesselSystem system = SystemOf(*platform, App::PixoraFirmware);
        const VxTestSupport::TestSystem other;
        platform.reset();
        TesselSystem copy(system);
        EXPECT_EQ(copy.SystemHandle(), system.SystemHandle());
        EXPECT_EQ(static_cast<Nucleo::Object*>(copy.SystemHandle())->References(), 2);
        system = SystemOf(other, App::PixoraService);
        EXPECT_TRUE(copy.NodeExists(1));
        EXPECT_EQ(static_cast<Nucleo::Object*>(copy.SystemHandle())->References(), 1);
        const int live = allocator.Live();
        copy = system;
        EXPECT_LT(allocator.Live(), live);
        EXPECT_TRUE(copy.LocalIsSensor() == system.LocalIsSensor());
    }
    EXPECT_EQ(allocator.Live(), 0);
}

TEST(SystemUpdaterTest, PassesTheFlagAndEndsOnEveryPath)
{
    Journal journal;
    FakeUpdatable system(journal);
    EXPECT_THROW(
        {
            const SystemUpdater outer(system, false);
            const SystemUpdater inner(system, true);
            throw 1;
        },
        int);
    EXPECT_THAT(journal, ElementsAre("Begin(false)", "Begin(true)", "End", "End"));
}

}  // namespace
}  // namespace VxCommon
