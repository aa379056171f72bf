#include <future>
#include <optional>
#include <stdexcept>
#include <thread>

#include <Host/SettingResource.h>
#include <VxTestSupport/Gate.h>

#include "Rig.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;

class SettingTest : public RigTest
{
protected:
    double Exposure() const { return rig.acquisition.Document().at("exposure").get<double>(); }
    void SetExposure(double value) { rig.acquisition.Update({{"exposure", value}}); }
};

TEST_F(SettingTest, RefusesWhatDoesNotFitAndKeepsAll)
{
    const struct
    {
        VxHost::Setting& setting;
        json document;
        const char* message;
    } cases[] = {
        {rig.acquisition, {{"gain", 1}, {"exposure", 4.9}}, "exposure was set to be less than its minimum"},
        {rig.acquisition, {{"gain", 1}, {"roiX", 1}}, "roiX + roiWidth = 1921 is more than 1920"},
        {rig.acquisition, {{"gain", 1}, {"roiY", 1199}, {"roiHeight", 2}}, "roiY + roiHeight = 1201 is more than 1200"},
        {rig.network, {{"dhcp", true}, {"address", "192.168.1.256"}}, "address must be an address such as"},
        {rig.network, {{"dhcp", true}, {"gateway", "1.2.3.04"}}, "but is \"1.2.3.04\""},
        {rig.network, {{"dhcp", true}, {"mask", "255.0.255.0"}}, "mask must be ones followed by zeros"},
        {rig.network, {{"address", "127.0.0.1"}}, "address \"127.0.0.1\" is none that an interface can have"},
        {rig.network, {{"gateway", "192.168.2.1"}}, "gateway \"192.168.2.1\" is not in the subnet"},
        {rig.layout, {{"zoom", 9}}, "zoom was set to be less than its minimum"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setting.Name() + " " + c.document.dump());
        const json before = c.setting.Document();
        EXPECT_THAT([&] { c.setting.Update(c.document); }, Refuses(Nucleo::ERROR_PARAMETER, c.message));
        EXPECT_EQ(c.setting.Document(), before);
    }
    EXPECT_FALSE(rig.manager.IsJobModified());
    EXPECT_FALSE(rig.watch.IsWaiting(PersistDomain::GLOBAL));
    EXPECT_FALSE(rig.watch.IsWaiting(PersistDomain::WORKSPACE));
    // What belongs together is judged together, after all of it is in place.
    rig.network.Update({{"address", "10.0.0.2"}, {"mask", "255.0.0.0"}, {"gateway", "10.9.0.1"}});
    rig.acquisition.Update({{"roiX", 1919}, {"roiWidth", 1}});
    rig.network.Update({{"dhcp", true}, {"address", "127.0.0.1"}, {"gateway", "1.1.1.1"}});
}

TEST_F(SettingTest, BelongsToTheJobThatIsSavedAndComesBackWithIt)
{
    int changes = 0;
    const Vx::Subscription subscription = rig.acquisition.ChangedEvent().Subscribe([&] { ++changes; });

    SetExposure(2500);
    EXPECT_TRUE(rig.manager.IsJobModified());
    rig.manager.SaveJob("A");
    SetExposure(100);
    SetExposure(100);  // No change.
    EXPECT_EQ(changes, 2);

    for (int load = 0; load < 2; ++load) {  // The second changes nothing and is no change.
        rig.manager.LoadJob("A");
        EXPECT_EQ(Exposure(), 2500);
        EXPECT_EQ(changes, 3);
        EXPECT_FALSE(rig.manager.IsJobModified());
    }
    rig.manager.LoadJobFromFactory();
    EXPECT_EQ(changes, 4);
    EXPECT_EQ(rig.updates.Depth(), 0);
}

TEST_F(SettingTest, FactoryJobHasTheDefaultsInItsStoreWithoutBeingModified)
{
    // The second round restores a factory job that nobody touched, which raises no event that could be followed.
    for (const char* job : {"A", "B"}) {
        rig.manager.LoadJobFromFactory();
        EXPECT_FALSE(rig.manager.IsJobModified());
        rig.manager.CreateJob(job, rig.manager.LiveJob());
        EXPECT_TRUE(rig.JobHas(job, "/acquisition/settings.json"));
        EXPECT_TRUE(rig.JobHas(job, "/Host/info.json"));
    }
    // A job of another program does not know the setting: it gets the defaults, and items of others stay with it.
    SetExposure(55);
    rig.manager.CreateJob("foreign", ImageOf({{"/Laser/settings.xml", "<x/>"}}));
    rig.manager.LoadJob("foreign");
    EXPECT_EQ(Exposure(), 1000);
    EXPECT_FALSE(rig.manager.IsJobModified());
    rig.manager.SaveJob("mixed");
    EXPECT_TRUE(rig.JobHas("mixed", "/Laser/settings.xml"));
    EXPECT_TRUE(rig.JobHas("mixed", "/acquisition/settings.json"));
}

TEST_F(SettingTest, UnusableItemMakesTheJobFailAndThePreviousOneComeBack)
{
    SetExposure(2500);
    rig.manager.SaveJob("good");
    const struct
    {
        std::string item;
        Nucleo::Status status;
    } cases[] = {
        {"", Nucleo::ERROR_FORMAT},
        {"[]", Nucleo::ERROR_FORMAT},
        {R"({"values":{}})", Nucleo::ERROR_FORMAT},
        {R"({"version":-1,"values":{}})", Nucleo::ERROR_FORMAT},
        {R"({"version":1,"values":7})", Nucleo::ERROR_FORMAT},
        {"{\"version\":1,\"values\":{\"\xff\":1}}", Nucleo::ERROR_FORMAT},
        {R"({"version":2,"values":{}})", Nucleo::ERROR_UNSUPPORTED},
        {R"({"version":1,"values":{"roiX":1000,"roiWidth":1000}})", Nucleo::ERROR_PARAMETER},
        {std::string(2 << 20, ' ') + R"({"version":1,"values":{}})", Nucleo::ERROR_LIMIT},
    };
    for (const auto& [item, expected] : cases) {
        SCOPED_TRACE(item.substr(0, 80));
        rig.manager.WriteJob("bad", ImageOf({{"/acquisition/settings.json", item}}));
        EXPECT_THAT([&] { rig.manager.LoadJob("bad"); }, Refuses(expected));
        EXPECT_EQ(Exposure(), 2500);
        EXPECT_EQ(rig.manager.LoadedJob(), "good");
    }
    // Single values that this version does not know or take do not spoil the rest.
    rig.manager.WriteJob(
        "other",
        ImageOf({{"/acquisition/settings.json", R"({"version":1,"values":{"gain":6,"exposure":1e9,"beam":true}})"}}));
    rig.manager.LoadJob("other");
    EXPECT_EQ(rig.acquisition.Document().at("gain"), 6);
    EXPECT_EQ(Exposure(), 1000);
}

TEST_F(SettingTest, FactoryRestoreBringsDefaultsAndLeavesItemsOfOthersAlone)
{
    const std::string other = "kept";
    auto& store = rig.manager.GetGlobalInstance().GetStore();
    for (const char* path : {"/networking/settings.json", "/Laser/power"}) {
        store.Write(path, reinterpret_cast<const std::uint8_t*>(other.data()), other.size());
    }
    rig.network.Update({{"name", "bench"}});
    SetExposure(5);
    time.Advance(250ms);
    EXPECT_EQ(rig.info.Saves(PersistDomain::GLOBAL), 1U);
    rig.manager.FactoryRestore();
    EXPECT_EQ(rig.network.Document().at("name"), "virtual-controller");
    EXPECT_EQ(Exposure(), 1000);
    EXPECT_TRUE(store.Exists("/networking/settings.json"));
    EXPECT_TRUE(store.Exists("/Laser/power"));
    EXPECT_EQ(rig.info.Saves(PersistDomain::GLOBAL), 0U);
}

TEST_F(SettingTest, ChangeThatPersistenceDidNotTakeIsHandedOverByTheNextUpdate)
{
    bool failing = true;
    int changes = 0;
    const Vx::Subscription change = rig.acquisition.ChangedEvent().Subscribe([&] { ++changes; });
    const Vx::Subscription subscription = rig.manager.DomainChangedEvent().Subscribe([&](PersistDomain) {
        if (std::exchange(failing, false)) {
            throw std::runtime_error("no memory");
        }
    });
    EXPECT_THROW(SetExposure(77), std::runtime_error);
    EXPECT_FALSE(rig.manager.IsJobModified());
    EXPECT_EQ(changes, 1) << "the value stands";
    SetExposure(77);  // The client tries again.
    EXPECT_TRUE(rig.manager.IsJobModified());
    EXPECT_EQ(changes, 1);
}

TEST_F(SettingTest, LoadComesBeforeOrAfterAnUpdateOfAnotherThread)
{
    rig.manager.SaveJob("A");
    std::thread client;
    platform.Storage().BeforeNext(FileOp::Download, "A.vpjob", 1, [&] {
        client = std::thread([&] { SetExposure(77); });
        EXPECT_FALSE(VxTestSupport::Eventually([&] { return Exposure() == 77; }, 50ms)) << "it waits for the load";
    });
    rig.manager.LoadJob("A");
    client.join();
    EXPECT_EQ(Exposure(), 77);
    EXPECT_TRUE(rig.manager.IsJobModified());
}

TEST_F(SettingTest, ResourceEndsAfterANoticeThatIsBeingTold)
{
    std::optional<VxHost::SettingResource> resource(std::in_place, rig.acquisition);
    VxTestSupport::Gate gate;
    const Vx::Subscription subscription =
        resource->NotificationEvent().Subscribe([&](VxRest::EventType, const std::string&) { gate.Pass(); });
    std::thread client([&] { SetExposure(77); });
    ASSERT_TRUE(gate.entered.Await());
    VxTestSupport::Signal ended;
    std::thread owner([&] {
        resource.reset();
        ended.Set();
    });
    EXPECT_FALSE(ended.Await(20ms));
    gate.open.Set();
    client.join();
    owner.join();
}

TEST_F(SettingTest, HoldsNoLockOfItsOwnWhileItNotifies)
{
    std::future_status read = std::future_status::timeout;
    std::future<json> reader;
    const Vx::Subscription subscription = rig.manager.DomainChangedEvent().Subscribe([&](PersistDomain) {
        reader = std::async(std::launch::async, [this] { return rig.acquisition.Document(); });
        read = reader.wait_for(10s);
    });
    SetExposure(9);
    EXPECT_EQ(read, std::future_status::ready);
    EXPECT_EQ(reader.get().at("exposure"), 9);
}

}  // namespace
}  // namespace VxHostTest
