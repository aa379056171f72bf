// The host's health on a virtual system whose time the test drives: reports, the watch over nodes, resources, notices.

#include <limits>
#include <map>

#include <Host/HealthReport.h>
#include <Host/HealthResources.h>
#include <Host/VirtualController.h>
#include <TesselLib/VirtualSystem.h>
#include <VxTestSupport/MemoryStorage.h>
#include <VxTestSupport/ScopedClock.h>

#include "Rig.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;
using testing::ElementsAre;

class HostHealthTest : public testing::Test
{
protected:
    HostHealthTest()
    {
        notices = router.NotificationEvent().Subscribe(
            [this](VxRest::EventType, const std::string& path) { ++noticed[path]; });
    }

    /// Lets time go by and the reports that fall due be digested.
    void Advance(std::chrono::milliseconds duration)
    {
        for (; duration > 0ms; duration -= 100ms) {
            now += 100ms;
            clock.SetTimer(static_cast<std::uint64_t>(now.count()));
            time.Advance(100ms);
            auto* handle = static_cast<Nucleo::Object*>(system.SystemHandle());
            ASSERT_EQ(TesselLib::VirtualSystem_FlushHealth(static_cast<TesselLib::System&>(*handle), 60s), Nucleo::OK);
            time.Run();
        }
    }

    json Get(const std::string& path, const json& arguments = json::object())
    {
        const auto match = router.Find(path);
        VxRest::ResponseInfo response;
        return match.Document(VxRest::RequestInfo(path, match.Keys(), arguments), response);
    }

    void Patch(const std::string& path, const json& document)
    {
        const auto match = router.Find(path);
        match.UpdateDocument(VxRest::RequestInfo(path, match.Keys()), document);
    }

    std::int64_t Sum(std::uint32_t id)
    {
        return Get("/health/sets/0", {{"firstId", id}, {"lastId", id}}).at("indicators").at(0).at("value");
    }

    VxTestSupport::ScopedManualTime time;
    VxTestSupport::ScopedClock clock;
    VxTestSupport::ScopedLogCapture log;
    std::chrono::microseconds now{0};
    VxCommon::TesselSystem system = VxHost::MakeVirtualController(
        std::make_unique<VxTestSupport::MemoryStorage>(), 2, VxCommon::TesselSystem::ApplicationType::PixoraFirmware);
    VxHost::HostHealth health{system, 2, "/"};
    VxRest::ResourceRouter router;
    VxHost::HealthResources resources{router, health};
    std::map<std::string, int> noticed;
    Vx::Subscription notices;
};

TEST_F(HostHealthTest, SilencedNodeBecomesStaleAndComesBack)
{
    const auto show = [this](const char* id) {
        const json node = Get(std::string("/health/nodes/") + id);
        return node.at("age").dump() + (node.at("state") == 1 ? " stale" : " online") +
               (node.at("reporting") ? "" : " silenced");
    };
    Advance(1s);
    EXPECT_EQ(show("101"), "0 online");
    EXPECT_EQ(Get("/health/nodes").at("nodes").size(), 3U);
    Patch("/health/nodes/101", {{"reporting", false}});
    Advance(3500ms);
    EXPECT_EQ(show("101"), "3500 online silenced") << "three reports and a half";
    Advance(500ms);
    EXPECT_EQ(show("101"), "4000 stale silenced");
    EXPECT_EQ(show("102"), "0 online");
    EXPECT_EQ(Get("/health").at("staleNodes"), 1);
    EXPECT_EQ(noticed["/health"], 1);
    EXPECT_EQ(noticed["/health/nodes"], 2) << "silenced, stale";
    Advance(5s);
    Patch("/health/nodes/101", {{"reporting", true}});
    EXPECT_EQ(show("101"), "9000 stale");
    Advance(1s);
    EXPECT_EQ(show("101"), "0 online");
    EXPECT_EQ(Get("/health").at("staleNodes"), 0);
    Advance(1s);  // The look at the nodes may come before the report of its second.
    EXPECT_EQ(noticed["/health"], 2);
    for (const char* path : {"/metrics", "/health/sets/0"}) {  // Three nodes reported, twelve seconds went by.
        EXPECT_GE(noticed[path], 10) << path;
        EXPECT_LE(noticed[path], 13) << path;
    }
    EXPECT_THAT(log.Texts("Health"),
                ElementsAre("W Node 101 is stale: it has not reported for 4000 ms.", "I Node 101 reports again."));
}

TEST_F(HostHealthTest, NodeThatNeverReportedIsAsOldAsTheWatch)
{
    Advance(100ms);
    Patch("/health/nodes/102", {{"reporting", false}});
    VxHost::NodeWatch late(health.Collector(), {101, 102, 7});
    Advance(3600ms);
    const auto node = late.Find(102);
    ASSERT_TRUE(node);
    EXPECT_FALSE(node->reported);
    EXPECT_EQ(node->age, 3600U);
    EXPECT_EQ(node->state, VxHost::NodeState::Stale);
    EXPECT_EQ(late.Find(7)->state, VxHost::NodeState::Stale) << "unknown to the health";
    EXPECT_EQ(late.Find(101)->state, VxHost::NodeState::Online);
    EXPECT_FALSE(late.Find(100));
    EXPECT_FALSE(late.Check()) << "the check itself comes late";
    Advance(1s);
    EXPECT_TRUE(late.Check());
}

TEST_F(HostHealthTest, DropsOfAllNodesAreSummedUpAsTheyComeAndGo)
{
    std::vector<std::int64_t> sums;
    for (int second = 0; second < 6; ++second) {
        Advance(1s);
        sums.push_back(Sum(21010) * 1000 + Sum(21202));
    }
    EXPECT_THAT(sums, ElementsAre(18006, 21009, 24012, 7015, 8018, 9021));
}

TEST_F(HostHealthTest, SetsAreFilteredById)
{
    Advance(100ms);
    const auto ids = [this](const json& arguments) {
        std::string text;
        const json document = Get("/health/sets/0", arguments);
        for (const json& indicator : document.at("indicators")) {
            const std::string id = indicator.at("id").dump() + " ";
            text += text.ends_with(id) ? "" : id;  // Of several instances one.
        }
        return text;
    };
    const std::string all = ids({});
    EXPECT_THAT(all, testing::HasSubstr(" 2052 "));
    EXPECT_EQ(ids({{"firstId", 2052}, {"lastId", 2052}}), "2052 ");
    EXPECT_EQ(ids({{"firstId", 21011}}), "21011 21202 ");
    EXPECT_EQ(ids({{"firstId", 21001}, {"lastId", 21010}}), "21010 21005 ");
    EXPECT_EQ(ids({{"firstId", 21011}, {"lastId", 21010}}), "");
    EXPECT_EQ(ids({{"firstId", 0}, {"lastId", 4294967295.0}, {"other", "x"}}), all);
    for (const json& bad : {json(-1), json(1.5), json("x"), json(true), json(4294967296), json(1e300)}) {
        for (const char* name : {"firstId", "lastId"}) {
            EXPECT_THAT([&] { ids({{name, bad}}); }, Refuses(Nucleo::ERROR_PARAMETER, std::string(name) + " must be "));
        }
    }
}

TEST_F(HostHealthTest, WhatIsNotThereOrNotPossibleIsRefused)
{
    for (const char* path : {"/health/sets/1", "/health/sets/-1", "/health/sets/x", "/health/sets/4294967296",
                             "/health/nodes/99", "/health/nodes/103", "/health/nodes/x", "/health/nodes/4294967397"}) {
        EXPECT_THAT([&] { Get(path); }, Refuses(Nucleo::ERROR_NOT_FOUND)) << path;
    }
    const struct
    {
        const char* path;
        json document;
        Nucleo::Status status;
        const char* text;
    } changes[] = {{"/health/nodes/100", {{"reporting", false}}, Nucleo::ERROR_STATE, "Node 100 is the local one"},
                   {"/health/nodes/103", {{"reporting", false}}, Nucleo::ERROR_NOT_FOUND, "There is no node"},
                   {"/health/nodes/101", {{"reporting", 0}}, Nucleo::ERROR_PARAMETER, "reporting must be"},
                   {"/health/nodes/101", {{"reporting", false}, {"age", 1}}, Nucleo::ERROR_PARAMETER, "read-only"},
                   {"/health/nodes", {{"reporting", false}}, Nucleo::ERROR_UNSUPPORTED, ""}};
    for (const auto& change : changes) {
        EXPECT_THAT([&] { Patch(change.path, change.document); }, Refuses(change.status, change.text)) << change.path;
    }
    EXPECT_TRUE(health.Reporter().IsReporting(101));
    EXPECT_THROW(health.Reporter().SetReporting(103, false), Vx::Exception);
}

TEST(HealthReportTest, TheLocalNodeReportsWhatTheMachineSaid)
{
    VxHost::MachineReading reading;
    reading.cores = {{.number = 0, .load = 10}, {.number = 3, .load = 31}};
    reading.interfaces = {{"a", true, 1, 2, 3, 4, 5}, {"b", false, 6, 7, 8, 9, 1ULL << 63U}};
    reading.volumes = {{"/", 10, 11}, {"/data", 12, 13}};
    reading.memoryUsed = 14;
    reading.memoryCapacity = 15;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::int64_t> values;
    for (const auto& statistic : VxHost::LocalReport(reading)) {
        values[{statistic.id, statistic.instance}] = statistic.value;
    }
    const std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    const decltype(values) expected = {
        {{2002, 0}, 20}, {{2003, 0}, 14}, {{2004, 0}, 15},      {{2005, 0}, 10}, {{2005, 1}, 12}, {{2006, 0}, 11},
        {{2006, 1}, 13}, {{2009, 0}, 1},  {{2009, 1}, 6},       {{2034, 0}, 1},  {{2034, 1}, 0},  {{2052, 0}, 10},
        {{2052, 1}, 31}, {{2076, 0}, 5},  {{2076, 1}, highest}, {{2077, 0}, 4},  {{2077, 1}, 9},  {{2078, 0}, 3},
        {{2078, 1}, 8},  {{2079, 0}, 2},  {{2079, 1}, 7}};
    EXPECT_EQ(values, expected);
}

TEST(NoticeLimiterTest, TellsOnceASecondAndNeverLosesTheLastChange)
{
    VxTestSupport::ScopedManualTime time;
    VxRest::ResourceBase resource;
    int notices = 0;
    const auto subscription =
        resource.NotificationEvent().Subscribe([&](VxRest::EventType, const std::string&) { ++notices; });
    VxHost::NoticeLimiter limiter(resource, "/x");
    const struct
    {
        std::chrono::milliseconds after;
        int raised;  // Before the time goes by.
        int noticed;
    } steps[] = {{999ms, 3, 1}, {1ms, 0, 2}, {999ms, 0, 2}, {1ms, 1, 3}, {5s, 0, 3}, {0ms, 1, 4}, {1s, 1, 5}};
    for (const auto& [after, raised, noticed] : steps) {
        for (int i = 0; i < raised; ++i) {
            limiter.Raise();
        }
        time.Advance(after);
        EXPECT_EQ(notices, noticed);
    }
    EXPECT_EQ(time.Pending(), 0U);
}

}  // namespace
}  // namespace VxHostTest
