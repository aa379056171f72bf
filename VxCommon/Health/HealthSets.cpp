// What the health aggregator publishes: aggregates and sets.
#define VX_FILE_TAG "Health/Health"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxCommon/Health/Health.h>

namespace VxCommon
{
namespace
{

using Ids = std::initializer_list<std::uint32_t>;

// What the main node's platform reports that is published.
constexpr Ids mainPlatformIds = {1003, 1005, 2017, 2002, 2028, 2003, 2004, 2005, 2006, 2007, 2052,
                                 2009, 2034, 2041, 2043, 2050, 2102, 2217, 2201, 2501, 2600, 2601,
                                 2701, 2104, 2103, 2101, 2024, 1010, 2404, 2400, 2401, 2000, 20600};
constexpr Ids localPlatformIds = {3007};
constexpr std::uint32_t firstApplicationId = 20000;
constexpr Ids mainApplicationIds = {20003, 20004, 20015, 20016};

// Whether acquisition runs is shown by two bits of the main node's cast state.
constexpr VcHealthId castState{2024, 0};
constexpr std::int64_t castStarted = 0x11;
constexpr VcHealthId startState{20007, 0};

// Failures of its steps are reported as those of UpdateSets.
constexpr std::string_view updateSets = "VxCommon::Health::UpdateSets";

// Part of InitDefaultIndicators, and reports as that.
void AddIdFilters(VcIndicatorSet& set, std::int32_t source, Ids ids)
{
    for (const std::uint32_t id : ids) {
        Vx::Check(VX_HERE_AS("VxCommon::Health::InitDefaultIndicators"), VcIndicatorSet_AddIdFilter(&set, source, id));
    }
}

// What a report adds to an aggregate.
std::uint64_t Sum(const HealthAggregateProbe& probe, const VcIndicatorCache& cache)
{
    std::uint64_t sum = 0;
    for (const HealthAggregateFilter& filter : probe.filters) {
        for (const auto* item = VcIndicatorCache_FirstById(&cache, filter.id); item != nullptr;
             item = VcIndicatorCache_NextById(&cache, item)) {
            if (filter.instance == Health::AllInstances ||
                filter.instance == VcIndicatorCache_ItemInstance(&cache, item)) {
                sum += static_cast<std::uint64_t>(VcIndicatorCache_ItemValue(&cache, item));
            }
        }
    }
    return sum;
}

}  // namespace

void Health::InitDefaultIndicators()
{
    VcIndicatorSet* set = nullptr;
    AddHealthSet(DefaultSet, &set);
    AddIdFilters(*set, MainSource, mainPlatformIds);
    AddIdFilters(*set, LocalSource, localPlatformIds);
    VX_CHECK(VcIndicatorSet_AddRangeFilter(set, LocalSource, firstApplicationId, 0xFFFFFFFF));
    AddAggregateProbes();
    AddIdFilters(*set, MainSource, mainApplicationIds);
}

void Health::AddAggregateProbes()
{
    const auto add = [this](const char* name, std::uint32_t id, Ids summed) {
        HealthAggregateProbe* probe = nullptr;
        AddAggregateProbe(name, id, 0, &probe);
        AddAggregateProbeIdFilters(*probe, summed.begin(), summed.size());
    };
    add("Veloxa/TriggerDrops", 21010, {2201, 2301, 2401, 2103, 2104, 2101, 21017});
    add("Veloxa/ProcessingDrops", 21000, {2203, 2204, 2209, 2411, 2015, 2040, 22001, 22002, 22005, 22003});
    add("Veloxa/EthernetDrops", 21005, {21012, 21013});
    add("Veloxa/OutputDrops", 21011, {21005, 2016, 21014, 21015, 21016});
    add("Veloxa/CameraErrors", 21202, {2210, 2225, 2226, 2227, 2228, 2215, 2218, 2245});
}

void Health::AddHealthSet(std::int32_t setId, VcIndicatorSet** set)
{
    const Vx::Locker locker(lock_);
    auto found = sets_.find(setId);
    if (found == sets_.end()) {
        Nucleo::Handle<VcIndicatorSet> made;
        VX_CHECK(VcIndicatorSet_Construct(made.Receive(), nullptr));
        found = sets_.emplace(setId, std::move(made)).first;
    }
    if (set != nullptr) {
        *set = found->second.Get();
    }
}

VcIndicatorSet* Health::FindSet(std::int32_t setId) const
{
    const auto found = sets_.find(setId);
    return found != sets_.end() ? found->second.Get() : nullptr;
}

VcIndicatorSet* Health::GetPublicIndicators(std::int32_t setId) const
{
    const Vx::Locker locker(lock_);
    return FindSet(setId);
}

/// For a look at one indicator: says in the log when there is no such set.
VcIndicatorSet* Health::FindSetFor(std::int32_t setId, std::uint32_t id, std::uint32_t instance) const
{
    VcIndicatorSet* set = FindSet(setId);
    if (set == nullptr) {
        Vx_Debug_Log(Warning, "id=%u, instance=%u not found", id, instance);
    }
    return set;
}

bool Health::GetPublicValue(std::int32_t setId, std::uint32_t id, std::uint32_t instance, std::int64_t* value) const
{
    const Vx::Locker locker(lock_);
    const VcIndicatorSet* set = FindSetFor(setId, id, instance);
    return set != nullptr && VcIndicatorSet_GetValue(set, id, instance, value) == OK;
}

bool Health::GetPublicName(std::int32_t setId, std::uint32_t id, std::uint32_t instance, std::string* name) const
{
    const Vx::Locker locker(lock_);
    const VcIndicatorSet* set = FindSetFor(setId, id, instance);
    const char* found = nullptr;
    if (set == nullptr || VcIndicatorSet_GetName(set, id, instance, &found) != OK) {
        return false;
    }
    *name = found;
    return true;
}

bool Health::GetAppValue(std::uint32_t id, std::uint32_t instance, std::int64_t* value) const
{
    return GetPublicValue(DefaultSet, id, instance, value);
}

void Health::AddAggregateProbe(const std::string& name, std::uint32_t id, std::uint32_t instance,
                               HealthAggregateProbe** probe)
{
    constexpr std::size_t longestName = sizeof HealthAggregateProbe::name;
    if (name.size() > longestName) {
        VX_THROW(ERROR_PARAMETER, "The aggregate's name has %llu characters; %llu are the most.", name.size(),
                 longestName);
    }
    const Vx::Locker locker(lock_);
    HealthAggregateProbe& added = aggregateProbes_.emplace_back();
    added.index = nextAggregateIndex_++;
    std::memcpy(added.name, name.data(), std::min(name.size(), longestName - 1));
    added.id = id;
    added.instance = instance;
    if (probe != nullptr) {
        *probe = &added;
    }
}

void Health::AddAggregateProbeFilter(HealthAggregateProbe& probe, std::uint32_t id, std::uint32_t instance)
{
    const Vx::Locker locker(lock_);
    probe.filters.push_back({id, instance});
}

void Health::AddAggregateProbeIdFilters(HealthAggregateProbe& probe, const std::uint32_t* ids, std::size_t count)
{
    const Vx::Locker locker(lock_);
    for (std::size_t i = 0; i < count; ++i) {
        probe.filters.push_back({ids[i], AllInstances});
    }
}

void Health::ResetAggregateProbes(std::size_t skipCount)
{
    const Vx::Locker locker(lock_);
    for (HealthAggregateProbe& probe : aggregateProbes_) {
        probe.value = 0;
        probe.total = 0;
    }
    for (const auto& [id, node] : nodes_) {
        node->aggregates.clear();
        node->skipCount = skipCount;
    }
}

void Health::AggregateNodeIndicators(HealthNode& node)
{
    if (node.skipCount != 0) {
        --node.skipCount;
        return;
    }
    node.aggregates.resize(aggregateProbes_.size());
    for (HealthAggregateProbe& probe : aggregateProbes_) {
        std::uint64_t& part = node.aggregates[probe.index];
        const std::uint64_t sum = Sum(probe, *node.cache);
        probe.total += sum - part;
        part = sum;
    }
    UpdateAggregateProbes();
}

void Health::UpdateAggregateProbes()
{
    for (HealthAggregateProbe& probe : aggregateProbes_) {
        probe.value = static_cast<std::int64_t>(probe.total);
    }
}

void Health::UpdateSets(std::uint32_t /*nodeId*/)
{
    for (const auto& [setId, set] : sets_) {
        VX_CHECK(VcIndicatorSet_BeginUpdate(set.Get()));
        RegisterSources(*set);
        PostUpdateSet(setId, *set);
        VX_CHECK(VcIndicatorSet_EndUpdate(set.Get()));
    }
}

/// Only the sources that the set's filters name: the cost does not depend on how many nodes there are.
void Health::RegisterSources(VcIndicatorSet& set)
{
    for (const VcIndicatorFilter& filter : set.filters->Items()) {
        if (const VcIndicatorCache* cache = CacheOfSource(filter.source)) {
            Vx::Check(VX_HERE_AS(updateSets), VcIndicatorSet_Update(&set, filter.source, cache));
        }
    }
}

const VcIndicatorCache* Health::CacheOfSource(std::int32_t source) const
{
    const HealthNode* node = nullptr;
    if (source == LocalSource || source == MainSource) {
        node = FindNodeBySource(source);
    } else if (source >= FirstOtherSource && static_cast<std::size_t>(source - FirstOtherSource) < otherNodes_.size()) {
        node = otherNodes_[static_cast<std::size_t>(source - FirstOtherSource)];
    }
    return node != nullptr ? node->cache.Get() : nullptr;
}

void Health::PostUpdateSet(std::int32_t setId, VcIndicatorSet& set)
{
    if (setId == DefaultSet) {
        UpdateSetWithCastStartIndicator(set);
        UpdateSetWithAggregates(set);
    }
}

void Health::UpdateSetWithCastStartIndicator(VcIndicatorSet& set)
{
    std::int64_t state = 0;
    GetMainValue(castState.id, castState.instance, &state);
    Vx::Check(VX_HERE_AS(updateSets), VcIndicatorSet_AddValue(&set, "Veloxa/IndicatorStartState", startState.id,
                                                              startState.instance, (state & castStarted) != 0 ? 1 : 0));
}

void Health::UpdateSetWithAggregates(VcIndicatorSet& set)
{
    for (const HealthAggregateProbe& probe : aggregateProbes_) {
        Vx::Check(VX_HERE_AS(updateSets),
                  VcIndicatorSet_AddValue(&set, probe.name, probe.id, probe.instance, probe.value));
    }
}

}  // namespace VxCommon
