// What do health reports cost? CacheUpdate: a report into a node's cache when the keys are those of the one before
// ("same") and when all of them are others ("other"), beside a std::map of chains that is built anew and the bare copy
// of the records. CacheFind: looking up every key of a cache in random order, beside an unordered map of chains.
// SetCycle: a whole cycle of a set with 38 id filters, a range filter and 6 added values, beside building a map of its
// keys anew over a copy of its records, and the bare copy. HealthDigest: a report of the local node through the health
// aggregator, whose default set takes nearly all of it, beside building an unordered map of chains anew, the bare copy,
// and the same with only 8 nodes known. A report of n records has n / 4 ids of 4 instances each, the records of an
// instance together.

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include <TesselLib/VirtualSystem.h>
#include <VxCommon/Health/Health.h>
#include <VxCommon/Health/VcIndicatorCache.h>
#include <VxCommon/Health/VcIndicatorSet.h>
#include <VxTestSupport/ManualTime.h>

namespace
{

using Nucleo::Handle;
using Report = Nucleo::ArrayList<VcHealthIndicator>;

constexpr std::uint32_t mainIds = 33;  // Those that id filters select one by one.
constexpr std::uint32_t firstRangeId = 20'000;

void Check(Nucleo::Status status)
{
    if (status != Nucleo::OK) {
        throw std::runtime_error("an operation failed: " + std::to_string(status));
    }
}

std::uint32_t IdOf(std::uint32_t number, std::uint32_t shift)
{
    return shift + (number < mainIds ? 1'000 + 7 * number : firstRangeId + 3 * number);
}

template <class Record = VcHealthIndicator>
Handle<Nucleo::ArrayList<Record>> MakeReport(std::int64_t count, std::uint32_t shift = 0)
{
    const auto size = static_cast<std::uint32_t>(count);
    const std::uint32_t ids = size / 4;
    Handle<Nucleo::ArrayList<Record>> report;
    Check(Nucleo::ArrayList<Record>::Make(report.Receive(), size, nullptr));
    for (std::uint32_t i = 0; i < size; ++i) {
        Record indicator{{}, IdOf(i % ids, shift), i / ids, static_cast<std::int64_t>(i) * 3};
        const std::string name = "Veloxa/Indicator" + std::to_string(i % ids);
        name.copy(indicator.name, sizeof indicator.name - 1);
        Check(report->Append(indicator));
    }
    return report;
}

Handle<VcIndicatorCache> MakeCache(const Report& report)
{
    Handle<VcIndicatorCache> cache;
    Check(VcIndicatorCache_Construct(cache.Receive(), nullptr));
    Check(VcIndicatorCache_Update(cache.Get(), &report));
    return cache;
}

// The same as a cache, from standard containers.
template <class Map>
struct Chains
{
    Map map;
    std::vector<VcHealthIndicator> items;
    std::vector<VcIndicatorListItem> list;

    void Update(const Report& report)
    {
        map.clear();
        items.assign(report.Items().begin(), report.Items().end());
        list.assign(items.size(), {0, VcIndicatorListItem_None});
        for (std::size_t i = 0; i < items.size(); ++i) {
            const auto [at, added] = map.try_emplace(items[i].id, VcIndicatorMapItem{i, i});
            if (!added) {
                list[at->second.last].next = i;
                at->second.last = i;
            }
            list[i].index = i;
        }
    }

    // Called once a key, as ours is.
    [[gnu::noinline]] bool Find(std::uint32_t id, std::uint32_t instance, std::int64_t* value) const
    {
        const auto at = map.find(id);
        for (std::size_t i = at != map.end() ? at->second.first : VcIndicatorListItem_None;
             i != VcIndicatorListItem_None; i = list[i].next) {
            if (items[i].instance == instance) {
                *value = items[i].value;
                return true;
            }
        }
        return false;
    }
};

void Sizes(benchmark::internal::Benchmark* made)
{
    made->Arg(100)->Arg(1'000)->Arg(10'000);
}

// `shift` tells the ids of every second report.
template <std::uint32_t shift>
void UpdateOurs(benchmark::State& state)
{
    const Handle<Report> reports[] = {MakeReport(state.range(0)), MakeReport(state.range(0), shift)};
    const Handle<VcIndicatorCache> cache = MakeCache(*reports[0]);
    std::size_t turn = 0;
    for (auto _ : state) {
        Check(VcIndicatorCache_Update(cache.Get(), reports[++turn % 2].Get()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(UpdateOurs<0>)->Name("CacheUpdate/ours/same")->Apply(Sizes);
BENCHMARK(UpdateOurs<100'000>)->Name("CacheUpdate/ours/other")->Apply(Sizes);

template <std::uint32_t shift>
void UpdateMap(benchmark::State& state)
{
    const Handle<Report> reports[] = {MakeReport(state.range(0)), MakeReport(state.range(0), shift)};
    Chains<std::map<std::uint32_t, VcIndicatorMapItem>> chains;
    std::size_t turn = 0;
    for (auto _ : state) {
        chains.Update(*reports[++turn % 2]);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(UpdateMap<0>)->Name("CacheUpdate/map/same")->Apply(Sizes);
BENCHMARK(UpdateMap<100'000>)->Name("CacheUpdate/map/other")->Apply(Sizes);

void UpdateCopy(benchmark::State& state)
{
    const Handle<Report> reports[] = {MakeReport(state.range(0)), MakeReport(state.range(0))};
    std::vector<VcHealthIndicator> copy(reports[0]->Count());
    std::size_t turn = 0;
    for (auto _ : state) {
        const auto items = reports[++turn % 2]->Items();
        std::copy(items.begin(), items.end(), copy.begin());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(UpdateCopy)->Name("CacheUpdate/copy/same")->Apply(Sizes);

std::vector<VcHealthId> ShuffledKeys(const Report& report)
{
    std::vector<VcHealthId> keys;
    for (const VcHealthIndicator& item : report.Items()) {
        keys.push_back({item.id, item.instance});
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

void FindOurs(benchmark::State& state)
{
    const Handle<Report> report = MakeReport(state.range(0));
    const Handle<VcIndicatorCache> cache = MakeCache(*report);
    const std::vector<VcHealthId> keys = ShuffledKeys(*report);
    for (auto _ : state) {
        std::int64_t value = 0;
        for (const VcHealthId& key : keys) {
            Check(VcIndicatorCache_Find(cache.Get(), key.id, key.instance, &value));
            benchmark::DoNotOptimize(value);
        }
    }
}
BENCHMARK(FindOurs)->Name("CacheFind/ours")->Apply(Sizes);

void FindChains(benchmark::State& state)
{
    const Handle<Report> report = MakeReport(state.range(0));
    Chains<std::unordered_map<std::uint32_t, VcIndicatorMapItem>> chains;
    chains.Update(*report);
    const std::vector<VcHealthId> keys = ShuffledKeys(*report);
    for (auto _ : state) {
        std::int64_t value = 0;
        for (const VcHealthId& key : keys) {
            if (!chains.Find(key.id, key.instance, &value)) {
                throw std::runtime_error("a key is missing");
            }
            benchmark::DoNotOptimize(value);
        }
    }
}
BENCHMARK(FindChains)->Name("CacheFind/unordered-map")->Apply(Sizes);

void Cycle(VcIndicatorSet* set, const VcIndicatorCache* cache)
{
    Check(VcIndicatorSet_BeginUpdate(set));
    Check(VcIndicatorSet_Update(set, 0, cache));
    Check(VcIndicatorSet_Update(set, 100, cache));
    for (std::uint32_t i = 0; i < 6; ++i) {
        Check(VcIndicatorSet_AddValue(set, "Veloxa/Added", 10 + i, 0, i));
    }
    Check(VcIndicatorSet_EndUpdate(set));
}

Handle<VcIndicatorSet> MakeSet()
{
    Handle<VcIndicatorSet> set;
    Check(VcIndicatorSet_Construct(set.Receive(), nullptr));
    for (std::uint32_t number = 0; number < mainIds; ++number) {
        Check(VcIndicatorSet_AddIdFilter(set.Get(), 100, IdOf(number, 0)));
    }
    Check(VcIndicatorSet_AddIdFilter(set.Get(), 0, 3'007));
    Check(VcIndicatorSet_AddRangeFilter(set.Get(), 0, firstRangeId, std::numeric_limits<std::uint32_t>::max()));
    for (const std::uint32_t id : {20'003U, 20'004U, 20'015U, 20'016U}) {
        Check(VcIndicatorSet_AddIdFilter(set.Get(), 100, id));
    }
    return set;
}

void CycleOurs(benchmark::State& state)
{
    const Handle<VcIndicatorCache> cache = MakeCache(*MakeReport(state.range(0)));
    const Handle<VcIndicatorSet> set = MakeSet();
    for (auto _ : state) {
        Cycle(set.Get(), cache.Get());
        benchmark::ClobberMemory();
    }
    state.counters["indicators"] = static_cast<double>(VcIndicatorSet_Indicators(set.Get())->Count());
}
BENCHMARK(CycleOurs)->Name("SetCycle/ours")->Apply(Sizes);

// What the cycle leaves behind.
std::vector<VcHealthIndicator> Content(std::int64_t count)
{
    const Handle<VcIndicatorCache> cache = MakeCache(*MakeReport(count));
    const Handle<VcIndicatorSet> set = MakeSet();
    Cycle(set.Get(), cache.Get());
    const auto items = VcIndicatorSet_Indicators(set.Get())->Items();
    return {items.begin(), items.end()};
}

struct Less
{
    bool operator()(const VcHealthId& left, const VcHealthId& right) const
    {
        return left.id != right.id ? left.id < right.id : left.instance < right.instance;
    }
};

void CycleMap(benchmark::State& state)
{
    const std::vector<VcHealthIndicator> content = Content(state.range(0));
    std::map<VcHealthId, std::size_t, Less> keys;
    std::vector<VcHealthIndicator> indicators;
    for (auto _ : state) {
        keys.clear();
        indicators.clear();
        for (const VcHealthIndicator& item : content) {
            const auto [at, added] = keys.try_emplace({item.id, item.instance}, indicators.size());
            if (added) {
                indicators.push_back(item);
            }
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CycleMap)->Name("SetCycle/map")->Apply(Sizes);

void CycleCopy(benchmark::State& state)
{
    const std::vector<VcHealthIndicator> content = Content(state.range(0));
    std::vector<VcHealthIndicator> indicators(content.size());
    for (auto _ : state) {
        std::copy(content.begin(), content.end(), indicators.begin());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CycleCopy)->Name("SetCycle/copy")->Apply(Sizes);

// A health that knows `nodes` nodes, all of which have reported, and a system that hands reports to it.
class Digester
{
public:
    Digester(std::int64_t size, std::int64_t nodes)
    {
        std::vector<TesselLib::VirtualNodeDescription> descriptions;
        for (std::uint32_t id = 1; id <= nodes; ++id) {
            descriptions.emplace_back().info.id = id;
        }
        Check(TesselLib::VirtualSystem_Construct(system_.Receive(), std::move(descriptions)));
        Check(system_->OpenHealthStream());
        health_.emplace(static_cast<Nucleo::Object*>(system_.Get()), localId, localId);
        for (std::uint32_t id = 2; id <= nodes; ++id) {
            health_->AddNode(id, 0);
            Queue(*MakeMessage(id, 100));
            time_.Run();
        }
        message_ = MakeMessage(localId, size);
    }

    // Seconds that the digest took.
    double Digest()
    {
        Queue(*message_);
        const auto begin = std::chrono::steady_clock::now();
        time_.Run();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

private:
    static constexpr std::uint32_t localId = 1;

    static Handle<TesselLib::HealthMessage> MakeMessage(std::uint32_t node, std::int64_t size)
    {
        Handle<TesselLib::HealthMessage> message;
        const auto report = MakeReport<TesselLib::HealthStatistic>(size);
        Check(TesselLib::HealthMessage::Make(message.Receive(), node, *report, nullptr));
        return message;
    }

    // The job is there afterwards: it runs when time is told to.
    void Queue(TesselLib::HealthMessage& message)
    {
        Check(TesselLib::VirtualSystem_InjectHealth(*system_, message));
        Check(TesselLib::VirtualSystem_FlushHealth(*system_, std::chrono::seconds(30)));
    }

    VxTestSupport::ScopedManualTime time_;
    Handle<TesselLib::System> system_;
    std::optional<VxCommon::Health> health_;
    Handle<TesselLib::HealthMessage> message_;
};

// `nodes`: how many are known; 0 for as many as the second argument says.
template <std::int64_t nodes>
void DigestOurs(benchmark::State& state)
{
    Digester digester(state.range(0), nodes != 0 ? nodes : state.range(1));
    digester.Digest();
    for (auto _ : state) {
        state.SetIterationTime(digester.Digest());
    }
}

void DigestSizes(benchmark::internal::Benchmark* made, const std::vector<std::int64_t>& nodes)
{
    made->ArgsProduct({{100, 1'000, 10'000}, nodes})->ArgNames({"", "nodes"});
}
BENCHMARK(DigestOurs<0>)->Name("HealthDigest/ours")->UseManualTime()->Apply([](auto* made) {
    DigestSizes(made, {1, 8, 64, 512});
});
BENCHMARK(DigestOurs<8>)->Name("HealthDigest/with-8-nodes")->UseManualTime()->Apply([](auto* made) {
    DigestSizes(made, {512});
});

void DigestChains(benchmark::State& state)
{
    const Handle<Report> report = MakeReport(state.range(0));
    Chains<std::unordered_map<std::uint32_t, VcIndicatorMapItem>> chains;
    for (auto _ : state) {
        chains.Update(*report);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(DigestChains)->Name("HealthDigest/unordered-map")->Apply([](auto* made) { DigestSizes(made, {1}); });
BENCHMARK(UpdateCopy)->Name("HealthDigest/copy")->Apply([](auto* made) { DigestSizes(made, {1}); });

}  // namespace
