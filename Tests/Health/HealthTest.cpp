// The health aggregator over a virtual system: what it publishes, whom it calls, how it starts and ends.

#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <optional>
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
#include <VxTestSupport/HeapFailure.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ManualTime.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/Threads.h>
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

template <class T>
Handle<TesselLib::HealthMessage> MakeMessage(std::uint32_t node, const std::vector<T>& records,
                                             Nucleo::Allocator* allocator = nullptr)
{
    Handle<Nucleo::ArrayList<T>> list;
    Handle<TesselLib::HealthMessage> message;
    EXPECT_EQ(Nucleo::ArrayList<T>::Make(list.Receive(), records.size(), allocator), OK);
    for (const T& record : records) {
        EXPECT_EQ(list->Append(record), OK);
    }
    EXPECT_EQ(TesselLib::HealthMessage::Make(message.Receive(), node, *list, allocator), OK);
    return message;
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
        ASSERT_EQ(TesselLib::VirtualSystem_InjectHealth(*system, *MakeMessage(node, records, &messages)), OK);
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

    static bool IsLocked(Health& health)
    {
        bool locked = true;
        std::thread([&] {
            if (health.GetLock().TryEnter()) {
                locked = false;
                health.Unlock();
            }
        }).join();
        return locked;
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

TEST_F(HealthTest, TheDefaultSetPublishesTheseAndNoOthers)
{
    Health health(handle(), localId, mainId);
    // In each report the order is the other way round than in the set.
    Records platform;
    for (std::uint32_t id = 20700; id >= 1000; --id) {
        platform.push_back(Record(id, 0, id));
    }
    Report(localId, {Record(0xFFFFFFFF, 0, 9), Record(20003, 0, 8), Record(20000, 1, 7), Record(20000, 0, 6),
                     Record(3007, 0, 5), Record(19999, 0, 3), Record(1003, 0, 2)});
    Report(mainId, platform);
    std::vector<std::string> expected = {"20007/0=0", "21010/0=13211", "21000/0=13082",
                                         "21005/0=0", "21011/0=2016",  "21202/0=17794"};
    for (const char* id : {"1003", "1005", "2017", "2002", "2028", "2003", "2004", "2005", "2006", "2007", "2052",
                           "2009", "2034", "2041", "2043", "2050", "2102", "2217", "2201", "2501", "2600", "2601",
                           "2701", "2104", "2103", "2101", "2024", "1010", "2404", "2400", "2401", "2000", "20600"}) {
        expected.push_back(std::string(id) + "/0=" + id);
    }
    for (const char* own : {"3007/0=5", "4294967295/0=9", "20003/0=20003", "20000/1=7", "20000/0=6", "20004/0=20004",
                            "20015/0=20015", "20016/0=20016"}) {
        expected.emplace_back(own);
    }
    EXPECT_EQ(Shown(health, 0), expected);

    // All instances, and which bits mean that acquisition runs.
    Report(localId, {});
    for (const auto& [state, running] : std::map<std::int64_t, int>{{0x10, 1}, {0x01, 1}, {0xEE, 0}, {0, 0}}) {
        Report(mainId, {Record(2024, 0, state), Record(2052, 1, 6), Record(2052, 0, 5)});
        EXPECT_THAT(Shown(health, 0),
                    ElementsAre("20007/0=" + std::to_string(running), "21010/0=0", "21000/0=0", "21005/0=0",
                                "21011/0=0", "21202/0=0", "2052/1=6", "2052/0=5", "2024/0=" + std::to_string(state)));
    }
    std::string name;
    EXPECT_TRUE(health.GetPublicName(0, 20007, 0, &name));
    EXPECT_EQ(name, "Veloxa/IndicatorStartState");
}

TEST_F(HealthTest, TheDefaultAggregatesSumTheseAndNoOthers)
{
    Health health(handle(), localId, mainId);
    const std::uint32_t summed[] = {2201,  2301,  2401,  2103,  2104,  2101,  21017, 2203,  2204,  2209, 2411,
                                    2015,  2040,  22001, 22002, 22005, 22003, 21012, 21013, 21005, 2016, 21014,
                                    21015, 21016, 2210,  2225,  2226,  2227,  2228,  2215,  2218,  2245};
    Records records;
    for (std::uint32_t id = 1000; id < 23000; ++id) {  // Each summed one is a bit of its own, all others are another.
        const auto* found = std::find(std::begin(summed), std::end(summed), id);
        const auto bit = found != std::end(summed) ? found - std::begin(summed) : 40;
        records.push_back(Record(id, id % 3, std::int64_t{1} << bit));
    }
    Report(mainId, records);
    const struct
    {
        std::uint32_t id;
        const char* name;
        std::int64_t sum;
    } aggregates[] = {{21010, "Veloxa/TriggerDrops", 0x7F},
                      {21000, "Veloxa/ProcessingDrops", 0x1FF80},
                      {21005, "Veloxa/EthernetDrops", 0x60000},
                      {21011, "Veloxa/OutputDrops", 0xF80000},
                      {21202, "Veloxa/CameraErrors", 0xFF000000}};
    for (const auto& [id, name, sum] : aggregates) {
        std::string found;
        EXPECT_EQ(AppValue(health, id), sum) << name;
        EXPECT_TRUE(health.GetPublicName(0, id, 0, &found));
        EXPECT_EQ(found, name);
    }
    Report(localId, {Record(21010, 0, 1000)});
    EXPECT_EQ(AppValue(health, 21010), 1000) << "what a node reports itself covers the sum";
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
        std::string name;
        EXPECT_FALSE(health.GetPublicName(8, 30, 1, &name));
        EXPECT_THAT(log.Texts(), ElementsAre("W id=31, instance=2 not found", "W id=30, instance=1 not found"));
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

TEST_F(HealthTest, AggregatesAreTheSumsOverAllNodes)
{
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    Health health(handle(), localId, mainId);
    VxCommon::HealthAggregateProbe* probe = nullptr;
    health.AddAggregateProbe("own", 40, 0, &probe);
    health.AddAggregateProbeFilter(*probe, 2, 1);
    const std::array<std::uint32_t, 2> ids = {3, 1};
    health.AddAggregateProbeIdFilters(*probe, ids.data(), ids.size());
    const auto expect = [&](std::uint32_t node, const Records& records, std::int64_t sum) {
        Report(node, records);
        EXPECT_EQ(AppValue(health, 40), sum);
    };
    // All instances of 1 and 3, duplicates too, and one of 2.
    expect(localId, {Record(1, 0, 1), Record(4, 1, 99), Record(1, 9, 2), Record(2, 0, 99), Record(2, 1, 4)}, 7);
    expect(localId, {Record(1, 0, 1), Record(1, 0, 1), Record(2, 1, 4), Record(2, 1, 8), Record(3, 5, 16)}, 30);
    // The latest of each node, modulo 2^64; unknown nodes do not count.
    expect(mainId, {Record(3, 0, 100)}, 130);
    expect(localId, {Record(1, 0, 5)}, 105);
    expect(9, {Record(1, 0, 1000)}, 105);
    health.AddNode(9, 0);
    expect(9, {Record(1, 0, 1000)}, 1105);
    expect(mainId, {Record(3, 0, most)}, std::numeric_limits<std::int64_t>::min() + 1004);
    health.RemoveNode(9);
    expect(mainId, {}, 5);
    // From 0, without two reports of each node that is there.
    health.ResetAggregateProbes(2);
    expect(localId, {Record(1, 0, 7)}, 0);
    expect(mainId, {Record(1, 0, 7)}, 0);
    health.AddNode(5, 0);
    expect(5, {Record(1, 0, 20)}, 20);
    expect(localId, {Record(1, 0, 7)}, 20);
    expect(localId, {Record(1, 0, 3)}, 23);
    expect(mainId, {Record(1, 0, 7)}, 23);
    health.RemoveNode(mainId);  // It has nothing to lose.
    expect(localId, {Record(1, 0, 4)}, 24);

    EXPECT_EQ(MessageThrown([&] { health.AddAggregateProbe(std::string(64, 'x'), 41, 0, &probe); }), "nothing");
    health.AddAggregateProbeFilter(*probe, 1, Health::AllInstances);
    EXPECT_THAT(MessageThrown([&] { health.AddAggregateProbe(std::string(65, 'x'), 42, 0, nullptr); }),
                testing::StartsWith("-997"));
    health.RemoveNode(5);  // It has added nothing to the new one.
    Report(localId, {Record(1, 0, 4)});
    EXPECT_EQ(AppValue(health, 40), 4);
    EXPECT_EQ(AppValue(health, 41), 4);
    std::string name;
    EXPECT_TRUE(health.GetPublicName(0, 41, 0, &name));
    EXPECT_EQ(name, std::string(63, 'x'));
}

TEST_F(HealthTest, ADigestCallsHandlersThenPublishesThenRaisesUnderTheLock)
{
    Health health(handle(), localId, mainId);
    std::vector<std::string> calls;
    const auto first = health.AddNodeIndicatorsHandler(9, [&](Health&, std::uint32_t node, void* content) {
        const auto* list = static_cast<Nucleo::AnyArrayList*>(content);
        calls.push_back("first " + std::to_string(node) + " " + std::to_string(list->ItemCount()) +
                        (IsLocked(health) ? " locked" : ""));
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
        EXPECT_EQ(static_cast<VcIndicatorCache*>(cache)->References(), 2) << "the node's, and the digest's own";
        calls.push_back("updated " + std::to_string(node) + " " + std::to_string(value) +
                        (IsLocked(health) ? " locked" : ""));
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

    // The last callback goes, the node's stream stays open.
    health.RemoveNodeIndicatorsHandler(9, first);
    health.AddNodeIndicatorsHandler(9, [&](auto&&...) { calls.emplace_back("again"); });
    EXPECT_EQ(opened.size(), 4U);

    // A callback of a known node comes before everything else; when it stops, that is all.
    health.AddNodeIndicatorsHandler(mainId, [&](Health& of, std::uint32_t, void*) {
        std::int64_t value = 0;
        EXPECT_FALSE(of.GetMainValue(1, 0, &value));
        of.Stop();
    });
    calls.clear();
    Inject(9, Records{});
    Report(mainId, {Record(1, 0, 1)});
    EXPECT_THAT(calls, ElementsAre("again"));
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
    // Large messages fill the queue sooner; what is digested makes room.
    const Records largest(TesselLib::HealthMessage::MaxItems, Record(1, 0, 1));
    for (const bool digested : {true, false}) {
        for (int i = 0; i < 4; ++i) {
            Inject(localId, largest);
        }
        if (digested) {
            time.Run();
            EXPECT_EQ(health.DroppedMessages(), 2U);
        }
    }
    Inject(localId, Records(1, Record(1, 0, 1)));
    Inject(localId, Records{});
    EXPECT_EQ(health.DroppedMessages(), 3U);
    health.Stop();
    EXPECT_EQ(health.DroppedMessages(), 3U);
    EXPECT_THAT(log.Texts("Health/Health"),
                ElementsAre("W The health worker is behind: messages are dropped, the first from node 3.",
                            "W The health worker keeps up again; 2 messages were dropped.",
                            "W The health worker is behind: messages are dropped, the first from node 7.",
                            "I Stopping Health...", "W At the end of Health 1 messages were dropped."));
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

// What waits is digested by an ordinary stop, whatever listeners throw, and dropped by a listener's.
TEST_F(HealthTest, StopEndsEverythingAndLosesNothing)
{
    for (const int stopping : {0, 1, 2}) {  // By the host; by a listener on the worker, within the host's stop.
        VxTestSupport::ScopedLogCapture log;
        Health health(handle(), localId, mainId);
        health.Start();
        time.Run();
        std::string digested;
        health.AddNodeIndicatorsHandler(localId, [&](auto&&...) { digested += 'c'; });
        const auto input = health.InputEvent().Subscribe([](auto&&...) { throw 1; });
        const auto updated = health.NodeCacheUpdatedEvent().Subscribe([&](Health& of, std::uint32_t node, void*) {
            digested += std::to_string(node);
            if (stopping != 0) {
                of.Stop();
            }
            throw std::runtime_error("no");
        });
        Inject(localId, Records{});
        Inject(localId, std::vector<TesselLib::InputEvent>{{0, 12, 1}});
        Inject(mainId, Records{});
        if (stopping == 1) {
            time.Run();
        }
        health.Stop();
        health.Stop();
        EXPECT_EQ(digested, stopping == 0 ? "c73" : "c7");
        EXPECT_EQ(health.DroppedMessages(), stopping == 0 ? 0U : 2U);
        EXPECT_EQ(messages.Live(), 0);
        EXPECT_EQ(log.Count("At the end of Health 2 messages were dropped."), stopping == 0 ? 0 : 1);
        EXPECT_EQ(log.Count("Stopping Health..."), 1);
        EXPECT_EQ(log.Count("Health started."), 1);
        EXPECT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), OK);
        health.Stop();
        EXPECT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), ERROR_ALREADY_EXISTS);
        EXPECT_EQ(system->SetHealthHandler(nullptr, nullptr), OK);
    }
    EXPECT_EQ(VxCommon::GlobalHealth(), nullptr);
    // Somebody else's handler stays where it is, also when a construction fails for it.
    EXPECT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), OK);
    EXPECT_EQ(MessageThrown([&] { Health(handle(), localId, mainId); }),
              "-987 Error -987 initializing health object for local id 7, main id 3");
    EXPECT_EQ(system->SetHealthHandler([](void*, TesselLib::HealthMessage&) {}, nullptr), ERROR_ALREADY_EXISTS);
}

TEST_F(HealthTest, TheCallbacksOfOthersLetNoExceptionOut)
{
    Health health(handle(), localId, mainId);
    const std::string longName(40, 'n');
    VxTestSupport::ScopedLogCapture log;
    const auto bad = std::exchange(VxTestSupport::heapFailure, [] { throw 1; });
    for (const auto failure : {bad, VxTestSupport::heapFailure}) {
        VxTestSupport::heapFailure = failure;
        Handle<Nucleo::HealthProbe> probe;
        VxTestSupport::heapUntilFailure = 0;
        const Nucleo::Status status = VxVision::VvProbe_Construct(probe.Receive(), longName.c_str(), 1, 2, 3);
        EXPECT_EQ(VxTestSupport::heapUntilFailure, -1) << "the name is copied";
        EXPECT_EQ(status, 0);
    }
    // The platform's thread has the worker called, for which the time that the test drives takes memory.
    const auto message = MakeMessage(localId, Records{});
    VxTestSupport::heapUntilFailure = 0;
    ASSERT_EQ(TesselLib::VirtualSystem_InjectHealth(*system, *message), OK);
    ASSERT_EQ(TesselLib::VirtualSystem_FlushHealth(*system, 30s), OK);
    VxTestSupport::heapFailure = bad;
    EXPECT_EQ(VxTestSupport::heapUntilFailure, -1);
    EXPECT_EQ(log.Texts().size(), 3U);
    Report(localId, {Record(20000, 0, 1)});
    EXPECT_EQ(AppValue(health, 20000), 1) << "and goes on";
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
        const auto listener = health.ClearStatsEvent().Subscribe(
            [&](Health& of) { cleared += a->Value() == 0 && !IsLocked(of) ? 1 : 9; });
        health.ClearStats();
        EXPECT_EQ(cleared, 1);
        health.ClearRuntimeProbes();
        EXPECT_EQ(a->References(), 1);
        ASSERT_EQ(VxVision::VvProbe_Construct(other.Receive(), "a", 1, 2, 3), OK);
        EXPECT_NE(a.Get(), other.Get());
    }
    EXPECT_EQ(VxVision::VvProbe_Construct(a.Receive(), "a", 1, 2, 3), ERROR_STATE);
}

TEST_F(HealthTest, NoMemoryIsTakenOnceTheLargestReportWasDigested)
{
    PrepareQueue();
    VxTestSupport::FailingAllocator objects;
    VxTestSupport::ScopedDefaultAllocator use(objects);
    Health health(handle(), localId, mainId);
    int taken = 0;
    for (int round = 0; round < 3; ++round) {
        for (const auto& [count, firstId] : {std::pair{500U, 19900U}, {500U, 30000U}, {30U, 19990U}}) {
            Records records;
            for (std::uint32_t i = 0; i < count; ++i) {
                records.push_back(Record(firstId + i / 2, i % 2, i));
            }
            Report(localId, records);
            Report(mainId, records);
        }
        taken = round == 0 ? objects.Allocations() : taken;
    }
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
    int last = 0;
    VxTestSupport::OnThreads(4, [&](int thread) {
        if (thread == 0) {
            EXPECT_TRUE(VxTestSupport::Eventually([&] { return updates >= 50; }));
            health->Stop();
            last = updates;
            ending = true;
        }
        for (std::int64_t i = 0; !ending; ++i) {
            if (thread == 1) {
                TesselLib::VirtualSystem_InjectHealth(
                    *system, *MakeMessage(localId, Records{Record(2201, 0, i), Record(20001, 0, i)}));
            } else if (thread == 2) {
                const Vx::Locker locker(health->GetLock());
                std::int64_t drops = 0;
                std::int64_t own = 0;
                if (health->GetAppValue(21010, 0, &drops) && health->GetAppValue(20001, 0, &own)) {
                    EXPECT_EQ(drops, own);  // Both of the same report.
                }
            } else {
                health->AddNode(unknownId, 0);
                health->RemoveNode(unknownId);
                Handle<Nucleo::HealthProbe> probe;
                EXPECT_EQ(VxVision::VvProbe_Construct(probe.Receive(), "probe", 1, 2, 3), OK);
                health->ClearStats();
            }
        }
    });
    EXPECT_EQ(updates, last);
    health.reset();
}

}  // namespace
