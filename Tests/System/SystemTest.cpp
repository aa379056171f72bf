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

TEST(PlatformAttributesTest, PredicatesOverAllControllersAndApplications)
{
    using A = PlatformAttributes;
    const std::pair<char, bool (A::*)() const> predicates[] = {
        {'S', &A::OnPhysicalSensor}, {'A', &A::OnPhysicalAccelix},  {'s', &A::OnVirtualSensor},
        {'a', &A::OnVirtualAccelix}, {'p', &A::OnPixoraServiceApp}, {'r', &A::IsRestartable},
        {'u', &A::IsUpgradable},     {'c', &A::UseCpuAffinity}};
    const auto applying = [&predicates](int operatingSystem, int controller, int app) {
        const A attributes(operatingSystem, controller, static_cast<App>(app), 77, ipConfig, 0, 0, mac, 4);
        std::string letters;
        for (const auto& [letter, predicate] : predicates) {
            letters += (attributes.*predicate)() ? std::string(1, letter) : "";
        }
        return letters;
    };
    // By the controller's type from -1 on: for the sensor's firmware and the accelerator's.
    const std::pair<const char*, const char*> expected[] = {
        {"ru", "ru"},   {"ru", "ru"},  {"sru", "aru"}, {"ru", "ru"},   {"Sruc", "ru"}, {"Sruc", "ru"}, {"ru", "ru"},
        {"Sruc", "ru"}, {"ru", "Aru"}, {"ru", "Aru"},  {"Sruc", "ru"}, {"Sruc", "ru"}, {"ru", "ru"}};
    int controller = -1;
    for (const auto& [sensor, accelix] : expected) {
        EXPECT_EQ(applying(1, controller, 0), sensor) << controller;
        EXPECT_EQ(applying(1, controller, 1), controller == 1 ? "p" : "") << controller;
        EXPECT_EQ(applying(1, controller, 2), accelix) << controller;
        EXPECT_EQ(applying(1, controller, 3), "ru") << controller;
        EXPECT_EQ(applying(2, controller++, 0).find('c'), std::string::npos) << "any other operating system";
    }
}

TEST(PlatformAttributesTest, LogsItselfOnceAndFollowsItsPorts)
{
    struct OnADevice : PlatformAttributes  // Hosts may add to it.
    {
        using PlatformAttributes::PlatformAttributes;
    };
    VxTestSupport::ScopedLogCapture log;
    OnADevice attributes(2, 1, App::AccelixFirmware, 77, ipConfig, 0, 80, mac, 4);
    TesselLib::IpConfig longest{{{}, TesselLib::IpVersion::V6}, {}, {}};
    longest.address.bytes.fill(0xAB);
    const OnADevice other(1, -1, static_cast<App>(9), 0, longest, 0, 0, mac, 4);
    EXPECT_EQ(LogOf(log),
              Journal({"PlatformAttributes/PlatformAttributes: I Platform Attributes: operatingSystem 2, "
                       "virtual controller, AccelixFirmware interface IP 192.168.1.10 application id 77",
                       "PlatformAttributes/PlatformAttributes: I Platform Attributes: operatingSystem 1, "
                       "type-4294967295 controller, Unknown App interface IP abab:abab:abab:abab:abab:abab:abab:abab "
                       "application id 0"}));
    const PlatformAttributes copy(attributes);
    EXPECT_EQ(log.Lines().size(), 2U);
    EXPECT_EQ(copy.CpuCount() * 100 + copy.AppId(), 477U);
    EXPECT_EQ(copy.OperatingSystem() * 10 + copy.ControllerType(), 21);
    EXPECT_EQ(copy.AppType(), App::AccelixFirmware);
    EXPECT_EQ(copy.InterfaceIpConfig(), ipConfig);
    EXPECT_EQ(copy.InterfaceIpAddress(), ipConfig.address);
    EXPECT_EQ(copy.InterfaceMacAddress(), mac);

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
    EXPECT_EQ(system.FindNode(1), &platform.Node());
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
    EXPECT_FALSE(data);
}

TEST(TesselSystemTest, TheApplicationDecidesWhatIsSupported)
{
    const VxTestSupport::TestSystem platform;
    const char* const supported[] = {"scr", "", "acr", ""};
    for (const int app : {0, 1, 2, 3}) {
        const TesselSystem system = SystemOf(platform, static_cast<App>(app));
        EXPECT_EQ(std::string(system.LocalIsSensor() ? "s" : "") + (system.LocalIsAccelix() ? "a" : "") +
                      (system.SupportsCrashLog() ? "c" : "") + (system.SupportsNodeReport() ? "r" : ""),
                  supported[app]);
    }
    EXPECT_GT(TesselSystem::MemoryCapacity(), std::uint64_t{64} << 20);
    EXPECT_LE(TesselSystem::MemoryAvailable(), TesselSystem::MemoryCapacity());
}

TEST(TesselSystemTest, CopiesShareTheSystemAndTheLastReleasesIt)
{
    VxTestSupport::FailingAllocator allocator;
    int pipe = 0;
    {
        const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
        auto platform = std::make_unique<VxTestSupport::TestSystem>();
        TesselSystem system = SystemOf(*platform, App::PixoraFirmware);
        const VxTestSupport::TestSystem other;
        platform.reset();
        TesselSystem copy(system);
        system =
            TesselSystem(Vx::Object<void*>(other.NewSystemReference()), &other.Node(), App::AccelixFirmware, &pipe);
        EXPECT_TRUE(copy.NodeExists(1));
        const int live = allocator.Live();
        copy = system;
        EXPECT_LT(allocator.Live(), live);
        EXPECT_EQ(copy.SystemHandle(), static_cast<Nucleo::Object*>(&other.System()));
        EXPECT_EQ(copy.LocalNode(), &other.Node());
        EXPECT_EQ(copy.PipeAlloc(), &pipe);
        EXPECT_TRUE(copy.LocalIsAccelix());
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

    struct Unending final : IUpdatableSystem
    {
        void BeginUpdate(bool flag) override { standard = flag; }
        void EndUpdate() override
        {
            if (standard) {
                throw std::runtime_error("the update does not end");
            }
            throw 1;
        }
        bool standard = false;
    } unending;
    for (const bool standard : {true, false}) {
        const VxTestSupport::ScopedLogCapture log;
        SystemUpdater(unending, standard);
        EXPECT_EQ(log.Texts("System/SystemUpdater").front(), "E Failed to end system update.");
        EXPECT_EQ(log.Count("Exception: the update does not end"), standard ? 1 : 0);
    }
}

}  // namespace
}  // namespace VxCommon
