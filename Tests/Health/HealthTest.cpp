// The health aggregator over a virtual system: what it publishes, whom it calls, how it starts and ends.

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <TesselLib/VirtualSystem.h>
#include <VxApi/Locker.h>
#include <VxCommon/Health/Health.h>
#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/Gate.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ManualTime.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/Thrown.h>
#include <VxVision/ProbeHook.h>

using namespace Nucleo::Statuses;
using namespace std::chrono_literals;
using Nucleo::Handle;
using testing::ElementsAre;
using VxCommon::Health;
using VxTestSupport::MessageThrown;

namespace
{

constexpr std::uint32_t localId = 7;
constexpr std::uint32_t mainId = 3;
constexpr std::uint32_t unknownId = 99;  // No node of the system.

using Records = std::vector<TesselLib::HealthStatistic>;

TesselLib::HealthStatistic Record(std::uint32_t id, std::uint32_t instance, std::int64_t value)
{
    TesselLib::HealthStatistic record{{}, id, instance, value};
    ("n" + std::to_string(id)).copy(record.name, sizeof record.name - 1);
    return record;
}

class HealthTest : public testing::Test
{
protected:
    HealthTest()
    {
        std::vector<TesselLib::VirtualNodeDescription> nodes;
        for (const std::uint32_t id : {localId, mainId, 5U, 9U}) {
            nodes.emplace_back().info.id = id;
            nodes.back().onOperation = [this, id](TesselLib::NodeOperation) {
                opened.push_back(id);
                return id == failing ? -50 : OK;
            };
        }
        if (TesselLib::VirtualSystem_Construct(system.Receive(), std::move(nodes)) != OK) {
            throw std::runtime_error("no virtual system");
        }
    }

    template <class T>
    void Inject(std::uint32_t node, const std::vector<T>& records)
    {
        Handle<Nucleo::ArrayList<T>> list;
        Handle<TesselLib::HealthMessage> message;
        ASSERT_EQ(Nucleo::ArrayList<T>::Make(list.Receive(), records.size(), &messages), OK);
        for (const T& record : records) {
            ASSERT_EQ(list->Append(record), OK);
        }
        ASSERT_EQ(TesselLib::HealthMessage::Make(message.Receive(), node, *list, &messages), OK);
        ASSERT_EQ(TesselLib::VirtualSystem_InjectHealth(*system, *message), OK);
        ASSERT_EQ(TesselLib::VirtualSystem_FlushHealth(*system, 30s), OK);
    }

    /// Has a node report, whatever streams are open, and the report digested.
    void Report(std::uint32_t node, const Records& records)
    {
        ASSERT_EQ(system->OpenHealthStream(), OK);
        Inject(node, records);
        time.Run();
    }

    /// The system's queue is made with the first handler, and outlives allocators that a test puts in.
    void PrepareQueue()
    {
        ASSERT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), OK);
        ASSERT_EQ(system->SetHealthHandler(nullptr, nullptr), OK);
    }

    /// "id/instance=value" of a set, in order.
    static std::vector<std::string> Shown(const Health& health, std::int32_t setId)
    {
        std::vector<std::string> shown;
        const Vx::Locker locker(health.GetLock());
        for (const VcHealthIndicator& item : VcIndicatorSet_Indicators(health.GetPublicIndicators(setId))->Items()) {
            shown.push_back(std::to_string(item.id) + "/" + std::to_string(item.instance) + "=" +
                            std::to_string(item.value));
        }
        return shown;
    }

    static std::int64_t AppValue(const Health& health, std::uint32_t id)
    {
        std::int64_t value = -1;
        EXPECT_TRUE(health.GetAppValue(id, 0, &value)) << id;
        return value;
    }

    VxTestSupport::ScopedManualTime time;
    VxTestSupport::FailingAllocator messages;  // Of the messages.
    Handle<TesselLib::System> system;
    void* handle() { return static_cast<Nucleo::Object*>(system.Get()); }
    std::uint32_t failing = 0;          // The node whose operations fail.
    std::vector<std::uint32_t> opened;  // Nodes whose streams were to be opened.
};

TEST_F(HealthTest, TheDefaultSetHasAddedValuesThenPlatformThenApplication)
{
    Health health(handle(), localId, mainId);
    // In each report the order is the other way round than in the set.
    Report(localId, {Record(21000, 4, 8), Record(20000, 1, 7), Record(20000, 0, 6), Record(3007, 0, 5),
                     Record(2201, 0, 4), Record(19999, 0, 3), Record(1003, 0, 2), Record(21010, 0, 1000)});
    Report(mainId, {Record(20016, 0, 9), Record(20003, 0, 8), Record(20600, 0, 7), Record(2024, 0, 0x10),
                    Record(2052, 1, 6), Record(2052, 0, 5), Record(1003, 0, 4), Record(20017, 0, 3)});
    EXPECT_THAT(Shown(health, 0),
                ElementsAre("20007/0=1", "21010/0=1000", "21000/0=0", "21005/0=0", "21011/0=0", "21202/0=0", "1003/0=4",
                            "2052/1=6", "2052/0=5", "2024/0=16", "20600/0=7", "3007/0=5", "21000/4=8", "20000/1=7",
                            "20000/0=6", "20003/0=8", "20016/0=9"));
    std::string name;
    EXPECT_TRUE(health.GetPublicName(0, 20007, 0, &name));
    EXPECT_EQ(name, "Veloxa/IndicatorStartState");
    EXPECT_TRUE(health.GetPublicName(0, 21202, 0, &name));
    EXPECT_EQ(name, "Veloxa/CameraErrors");

    // What the sums are when nothing covers them, and which bits mean that acquisition runs.
    for (const auto& [state, running] : std::map<std::int64_t, int>{{0x10, 1}, {0x01, 1}, {0xEE, 0}, {0, 0}}) {
        Report(mainId, {Record(2024, 0, state), Record(2301, 3, 10), Record(2301, 3, 20)});
        EXPECT_EQ(AppValue(health, 20007), running) << state;
    }
    Report(localId, {Record(2201, 0, 4), Record(21012, 1, 6), Record(2228, 2, -1), Record(22003, 0, 2),
                     Record(21016, 0, 5), Record(2999, 0, 99)});
    EXPECT_THAT(Shown(health, 0), ElementsAre("20007/0=0", "21010/0=34", "21000/0=2", "21005/0=6", "21011/0=5",
                                              "21202/0=-1", "2024/0=238", "21012/1=6", "22003/0=2", "21016/0=5"));
}

TEST_F(HealthTest, SourcesAreNumberedByNodes)
{
    {
        Health health(handle(), localId, mainId);
        for (const std::uint32_t id : {9U, 5U, unknownId}) {
            health.AddNode(id, 1);
        }
        EXPECT_THAT(MessageThrown([&] { health.AddNode(5, 0); }), testing::StartsWith("-987"));
        VcIndicatorSet* set = nullptr;
        health.AddHealthSet(-4, &set);
        VcIndicatorSet* again = nullptr;
        health.AddHealthSet(-4, &again);
        EXPECT_EQ(set, again);
        for (const std::int32_t source : {104, 103, 102, 101, 100, 0, 99, -1}) {
            EXPECT_EQ(VcIndicatorSet_AddIdFilter(set, source, 30), OK);
        }
        std::uint32_t instance = 0;
        for (const std::uint32_t id : {localId, mainId, 5U, 9U, unknownId}) {
            Report(id, {Record(30, instance++, id)});
        }
        EXPECT_THAT(Shown(health, -4), ElementsAre("30/4=99", "30/3=9", "30/2=5", "30/1=3", "30/0=7"));
        health.RemoveNode(5);
        health.RemoveNode(5);
        Report(localId, {});
        EXPECT_THAT(Shown(health, -4), ElementsAre("30/4=99", "30/3=9", "30/1=3"));
        EXPECT_EQ(health.Cache(5), nullptr);

        std::int64_t value = -1;
        EXPECT_TRUE(health.GetMainValue(30, 1, &value));
        EXPECT_EQ(value, 3);
        EXPECT_TRUE(health.GetPlatformValueByNodeId(9, 30, 3, &value));
        EXPECT_EQ(value, 9);
        EXPECT_FALSE(health.GetPlatformValue(0, 30, 0, &value));
        EXPECT_FALSE(health.GetPlatformValueByNodeId(5, 30, 2, &value));
        for (const std::int32_t source : {-1, 99, 101}) {
            EXPECT_THAT(MessageThrown([&] { health.GetPlatformValue(source, 30, 0, &value); }),
                        testing::StartsWith("-996"));
        }
        VxTestSupport::ScopedLogCapture log;
        EXPECT_FALSE(health.GetPublicValue(-4, 31, 0, &value));
        EXPECT_FALSE(health.GetPublicValue(8, 31, 2, &value));
        EXPECT_THAT(log.Texts(), ElementsAre("W id=31, instance=2 not found"));
        EXPECT_EQ(value, 9);
    }
    opened.clear();
    Health both(handle(), localId, localId);
    EXPECT_THAT(opened, ElementsAre(localId));
    VcIndicatorSet* set = nullptr;
    both.AddHealthSet(1, &set);
    for (const std::int32_t source : {0, 100}) {
        EXPECT_EQ(VcIndicatorSet_AddFullFilter(set, source, 30, static_cast<std::uint32_t>(source)), OK);
    }
    Report(localId, {Record(30, 0, 1), Record(30, 100, 2)});
    EXPECT_THAT(Shown(both, 1), ElementsAre("30/0=1", "30/100=2"));
    EXPECT_EQ(both.HealthSourceFromNodeId(localId), 0);
    EXPECT_EQ(both.HealthSourceFromNodeId(mainId), 101);
}

// Running totals against sums over everything that each node last reported.
TEST_F(HealthTest, AggregatesAreTheSumsOverAllNodes)
{
    struct Node
    {
        Records counted;
        std::size_t skip = 0;
    };
    Health health(handle(), localId, mainId);
    VxCommon::HealthAggregateProbe* probe = nullptr;
    health.AddAggregateProbe("own", 40, 0, &probe);
    health.AddAggregateProbeFilter(*probe, 2, 1);
    const std::array<std::uint32_t, 2> ids = {3, 1};
    health.AddAggregateProbeIdFilters(*probe, ids.data(), ids.size());
    std::map<std::uint32_t, Node> nodes{{localId, {}}, {mainId, {}}};
    std::mt19937_64 random(4711);
    std::uint64_t shown = 0;
    for (int step = 0; step < 3000; ++step) {
        const auto id = static_cast<std::uint32_t>(random() % 12);
        const auto action = random() % 40;
        if (action == 0 && nodes.count(id) == 0) {
            health.AddNode(id, 0);
            nodes[id];
        } else if (action == 1 && id != localId && id != mainId) {
            health.RemoveNode(id);
            nodes.erase(id);
        } else if (action == 2) {
            const std::size_t skip = random() % 4;
            health.ResetAggregateProbes(skip);
            for (auto& [nodeId, node] : nodes) {
                node = {{}, skip};
            }
            shown = 0;
        } else {
            Records records;
            for (auto count = random() % 6; count > 0; --count) {
                records.push_back(Record(static_cast<std::uint32_t>(random() % 5),
                                         static_cast<std::uint32_t>(random() % 3),
                                         static_cast<std::int64_t>(random())));
            }
            Report(id, records);
            const auto node = nodes.find(id);
            if (node == nodes.end()) {
                continue;
            }
            if (node->second.skip > 0) {
                --node->second.skip;
            } else {
                node->second.counted = records;
                shown = 0;
                for (const auto& [nodeId, each] : nodes) {
                    for (const auto& record : each.counted) {
                        const bool counts =
                            record.id == 1 || record.id == 3 || (record.id == 2 && record.instance == 1);
                        shown += counts ? static_cast<std::uint64_t>(record.value) : 0;
                    }
                }
            }
            ASSERT_EQ(static_cast<std::uint64_t>(AppValue(health, 40)), shown) << "step " << step;
        }
    }
    EXPECT_EQ(MessageThrown([&] { health.AddAggregateProbe(std::string(64, 'x'), 41, 0, nullptr); }), "nothing");
    EXPECT_THAT(MessageThrown([&] { health.AddAggregateProbe(std::string(65, 'x'), 42, 0, nullptr); }),
                testing::StartsWith("-997"));
    Report(localId, {});
    std::string name;
    EXPECT_TRUE(health.GetPublicName(0, 41, 0, &name));
    EXPECT_EQ(name, std::string(63, 'x'));
}

TEST_F(HealthTest, ADigestCallsHandlersThenPublishesThenRaisesUnderTheLock)
{
    Health health(handle(), localId, mainId);
    std::vector<std::string> calls;
    const auto isLocked = [&] {
        return std::async(std::launch::async,
                          [&] {
                              const bool entered = health.GetLock().TryEnter();
                              if (entered) {
                                  health.Unlock();
                              }
                              return !entered;
                          })
            .get();
    };
    const auto first = health.AddNodeIndicatorsHandler(9, [&](Health&, std::uint32_t node, void* content) {
        const auto* list = static_cast<Nucleo::AnyArrayList*>(content);
        calls.push_back("first " + std::to_string(node) + " " + std::to_string(list->ItemCount()) +
                        (isLocked() ? " locked" : ""));
    });
    const auto second =
        health.AddNodeIndicatorsHandler(9, [&](Health&, std::uint32_t, void*) { throw std::runtime_error("no"); });
    EXPECT_NE(first, second);
    EXPECT_THAT(MessageThrown([&] { health.AddNodeIndicatorsHandler(unknownId, {}); }), testing::StartsWith("-999"));
    failing = 5;
    EXPECT_THAT(MessageThrown([&] { health.AddNodeIndicatorsHandler(5, {}); }), testing::StartsWith("-50"));
    EXPECT_THAT(opened, ElementsAre(localId, mainId, 9U, 5U));

    const auto updated = health.NodeCacheUpdatedEvent().Subscribe([&](Health& of, std::uint32_t node, void* cache) {
        std::int64_t value = -1;
        EXPECT_TRUE(of.GetAppValue(20001, 0, &value));
        EXPECT_EQ(VcIndicatorCache_Count(static_cast<VcIndicatorCache*>(cache)), 1U);
        calls.push_back("updated " + std::to_string(node) + " " + std::to_string(value) +
                        (isLocked() ? " locked" : ""));
        of.RemoveNode(node);
    });
    const auto input = health.InputEvent().Subscribe([&](Health&, void* content) {
        const auto* list = Nucleo::AsArrayListOf<TesselLib::InputEvent>(static_cast<Nucleo::AnyArrayList*>(content));
        calls.push_back("input " + std::to_string(list->At(0).input));
    });

    // A node that is not known reaches its handlers; one that throws is logged, and the next message is digested.
    VxTestSupport::ScopedLogCapture log;
    Report(9, {Record(1, 0, 1), Record(2, 0, 1)});
    EXPECT_EQ(log.Count("Job of runner 'health' failed (no)."), 1);
    health.RemoveNodeIndicatorsHandler(9, second);
    health.RemoveNodeIndicatorsHandler(9, second);
    health.RemoveNodeIndicatorsHandler(unknownId, first);
    Inject(9, std::vector<TesselLib::InputEvent>{{0, 12, 1}});
    Report(localId, {Record(20001, 0, 8)});
    EXPECT_THAT(calls, ElementsAre("first 9 2", "input 12", "updated 7 8 locked"));
    EXPECT_EQ(health.Cache(localId), nullptr);

    // A callback of a known node comes before everything else; when it stops, that is all.
    health.AddNodeIndicatorsHandler(mainId, [&](Health& of, std::uint32_t, void*) {
        std::int64_t value = 0;
        EXPECT_FALSE(of.GetMainValue(1, 0, &value));
        of.Stop();
    });
    calls.clear();
    Inject(9, Records{});
    Report(mainId, {Record(1, 0, 1)});
    EXPECT_THAT(calls, ElementsAre("first 9 0"));
    EXPECT_THAT(MessageThrown([&] { health.AddNodeIndicatorsHandler(localId, {}); }), testing::StartsWith("-1000"));
    EXPECT_EQ(messages.Live(), 0);
}

TEST_F(HealthTest, TooManyMessagesAreDroppedAndSaidOnce)
{
    Health health(handle(), localId, mainId);
    VxTestSupport::ScopedLogCapture log;
    const auto overflow = [&] {
        for (std::size_t i = 0; i < VxCommon::HealthQueue::MaxMessages; ++i) {
            Inject(localId, Records{});
        }
        Inject(mainId, Records{});
        Inject(localId, Records{});
    };
    overflow();
    time.Run();
    Inject(localId, Records{});
    Inject(localId, Records{});
    time.Run();
    // Large messages fill the queue sooner.
    for (int i = 0; i < 4; ++i) {
        Inject(localId, Records(TesselLib::HealthMessage::MaxItems, Record(1, 0, 1)));
    }
    Inject(localId, Records(1, Record(1, 0, 1)));
    Inject(localId, Records{});
    EXPECT_EQ(health.DroppedMessages(), 3U);
    health.Stop();
    EXPECT_EQ(health.DroppedMessages(), 8U);
    EXPECT_THAT(log.Texts("Health/Health"),
                ElementsAre("W The health worker is behind: messages are dropped, the first from node 3.",
                            "W The health worker keeps up again; 2 messages were dropped.",
                            "W The health worker is behind: messages are dropped, the first from node 7.",
                            "I Stopping Health...", "W At the end of Health 6 messages were dropped."));
    EXPECT_EQ(messages.Live(), 0);
}

// Whatever memory cannot be had, in the construction or in a digest: it is said, nothing leaks, and the next report
// comes through.
TEST_F(HealthTest, EveryAllocationMayFail)
{
    PrepareQueue();
    VxTestSupport::SweepFailures([this](VxTestSupport::FailingAllocator& objects) {
        VxTestSupport::ScopedLogCapture log;
        const VxTestSupport::ScopedDefaultAllocator use(objects);
        std::optional<Health> health;
        if (const auto exception = VxTestSupport::Caught([&] { health.emplace(handle(), localId, mainId); })) {
            EXPECT_EQ(exception->Status(), ERROR_MEMORY);
            EXPECT_EQ(exception->Function(), "VxCommon::Health::Health");
            return;
        }
        int updates = 0;
        const auto updated =
            health->NodeCacheUpdatedEvent().Subscribe([&](Health&, std::uint32_t, void*) { ++updates; });
        Report(localId, {Record(20000, 0, 1), Record(2201, 0, 1)});
        EXPECT_EQ(updates + log.Count("Job of runner 'health' failed (out of memory (ERROR_MEMORY, -996))."), 1);
        Report(localId, {Record(20000, 0, 2), Record(2201, 0, 2)});
        EXPECT_EQ(AppValue(*health, 20000), 2);
        EXPECT_EQ(AppValue(*health, 21010), 2);
    });
}

TEST_F(HealthTest, StopMayComeFromAListenerAndEndsEverything)
{
    VxTestSupport::ScopedLogCapture log;
    {
        Health health(handle(), localId, mainId);
        health.Start();
        int reports = 0;
        const auto updated = health.NodeCacheUpdatedEvent().Subscribe([&](Health& of, std::uint32_t, void*) {
            ++reports;
            of.Stop();
        });
        Inject(localId, Records{});
        Report(mainId, {});
        EXPECT_EQ(reports, 1);
        EXPECT_EQ(messages.Live(), 0);
        EXPECT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), OK);
        health.Stop();
    }
    EXPECT_EQ(log.Count("Stopping Health..."), 1);
    EXPECT_EQ(log.Count("Health started."), 1);
    EXPECT_EQ(VxCommon::GlobalHealth(), nullptr);
    // Somebody else's handler stays where it is, also when a construction fails for it.
    EXPECT_EQ(MessageThrown([&] { Health(handle(), localId, mainId); }),
              "-987 Error -987 initializing health object for local id 7, main id 3");
    EXPECT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), ERROR_ALREADY_EXISTS);
}

TEST_F(HealthTest, AFailedConstructionLeavesNothingBehind)
{
    failing = mainId;
    EXPECT_EQ(MessageThrown([&] { Health(handle(), localId, mainId); }),
              "-50 Error -50 initializing health object for local id 7, main id 3");
    EXPECT_EQ(VxCommon::GlobalHealth(), nullptr);
    failing = 0;
    EXPECT_EQ(MessageThrown([&] { Health(nullptr, 1, 2); }),
              "-997 Error -997 initializing health object for local id 1, main id 2");

    Health health(handle(), localId, unknownId);  // A node that the system does not find.
    EXPECT_EQ(VxCommon::GlobalHealth(), &health);
    EXPECT_EQ(MessageThrown([&] { Health(handle(), 1, 4294967295); }),
              "-987 Error -987 initializing health object for local id 1, main id 4294967295");
    EXPECT_EQ(VxCommon::GlobalHealth(), &health);
    Report(localId, {Record(20000, 0, 1)});
    EXPECT_EQ(AppValue(health, 20000), 1);
}

TEST_F(HealthTest, RuntimeProbesAreSharedByName)
{
    Handle<Nucleo::HealthProbe> a;
    EXPECT_EQ(VxVision::VvProbe_Construct(a.Receive(), "a", 1, 2, 3), ERROR_STATE);
    {
        Health health(handle(), localId, mainId);
        Handle<Nucleo::HealthProbe> again;
        ASSERT_EQ(VxVision::VvProbe_Construct(a.Receive(), "a", 1, 2, 3), OK);
        EXPECT_EQ(a->Value(), 3);
        ASSERT_EQ(VxVision::VvProbe_Construct(again.Receive(), "a", 9, 9, 30), OK);
        EXPECT_EQ(a.Get(), again.Get());
        EXPECT_EQ(a->Value(), 30);
        EXPECT_EQ(a->Id(), 1U);
        again = {};
        EXPECT_EQ(a->References(), 2);

        VxTestSupport::ScopedLogCapture log;
        EXPECT_EQ(VxVision::VvProbe_Construct(again.Receive(), std::string(64, 'n').c_str(), 1, 2, 3), ERROR_PARAMETER);
        EXPECT_FALSE(log.Texts().empty());

        Handle<Nucleo::HealthProbe> other;
        ASSERT_EQ(Nucleo::HealthProbe::Make(other.Receive(), "a", 5, 5, 5, 0, 1, nullptr), OK);
        health.RegisterRuntimeProbe(*other);
        Vx::Object<Nucleo::HealthProbe*> found;
        EXPECT_FALSE(health.FindRuntimeProbe("b", &found));
        EXPECT_TRUE(health.FindRuntimeProbe("a", &found));
        EXPECT_EQ(found.Get(), a.Get());
        found.Reset();

        int cleared = 0;
        const auto listener = health.ClearStatsEvent().Subscribe([&](Health&) { cleared += a->Value() == 0 ? 1 : 9; });
        health.ClearStats();
        EXPECT_EQ(cleared, 1);
        health.ClearRuntimeProbes();
        EXPECT_EQ(a->References(), 1);
        ASSERT_EQ(VxVision::VvProbe_Construct(other.Receive(), "a", 1, 2, 3), OK);
        EXPECT_NE(a.Get(), other.Get());
    }
    EXPECT_EQ(VxVision::VvProbe_Construct(a.Receive(), "a", 1, 2, 3), ERROR_STATE);
}

TEST_F(HealthTest, ASteadyDigestTakesNoMemory)
{
    PrepareQueue();
    VxTestSupport::FailingAllocator objects;
    VxTestSupport::ScopedDefaultAllocator use(objects);
    Health health(handle(), localId, mainId);
    Records records;
    for (std::uint32_t i = 0; i < 500; ++i) {
        records.push_back(Record(19900 + i / 2, i % 2, i));
    }
    Report(localId, records);
    Report(mainId, records);
    Inject(localId, records);
    Inject(mainId, records);
    const auto taken = objects.Allocations();
    time.Run();
    EXPECT_EQ(objects.Allocations(), taken);
}

// Reports, readers and changes of the nodes on threads of their own.
TEST(HealthThreadsTest, ReportsAreDigestedWhileOthersReadAndStop)
{
    std::vector<TesselLib::VirtualNodeDescription> nodes;
    nodes.emplace_back().info.id = localId;
    Handle<TesselLib::System> system;
    ASSERT_EQ(TesselLib::VirtualSystem_Construct(system.Receive(), std::move(nodes)), OK);
    std::optional<Health> health;
    health.emplace(static_cast<Nucleo::Object*>(system.Get()), localId, localId);
    std::atomic<int> updates{0};
    const auto updated = health->NodeCacheUpdatedEvent().Subscribe([&](Health&, std::uint32_t, void*) { ++updates; });

    std::atomic<bool> ending{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (std::int64_t i = 0; !ending; ++i) {
            Handle<Nucleo::ArrayList<TesselLib::HealthStatistic>> list;
            Handle<TesselLib::HealthMessage> message;
            ASSERT_EQ(Nucleo::ArrayList<TesselLib::HealthStatistic>::Make(list.Receive(), 2, nullptr), OK);
            ASSERT_EQ(list->Append(Record(2201, 0, i)), OK);
            ASSERT_EQ(list->Append(Record(20001, 0, i)), OK);
            ASSERT_EQ(TesselLib::HealthMessage::Make(message.Receive(), localId, *list, nullptr), OK);
            TesselLib::VirtualSystem_InjectHealth(*system, *message);
        }
    });
    threads.emplace_back([&] {
        while (!ending) {
            const Vx::Locker locker(health->GetLock());
            std::int64_t drops = 0;
            std::int64_t own = 0;
            if (health->GetAppValue(21010, 0, &drops) && health->GetAppValue(20001, 0, &own)) {
                EXPECT_EQ(drops, own);  // Both of the same report.
            }
        }
    });
    threads.emplace_back([&] {
        while (!ending) {
            health->AddNode(unknownId, 0);
            health->RemoveNode(unknownId);
            Handle<Nucleo::HealthProbe> probe;
            EXPECT_EQ(VxVision::VvProbe_Construct(probe.Receive(), "probe", 1, 2, 3), OK);
            health->ClearStats();
        }
    });
    EXPECT_TRUE(VxTestSupport::Eventually([&] { return updates >= 50; }));
    health->Stop();
    const int last = updates;
    ending = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(updates, last);
    health.reset();
}

}  // namespace
