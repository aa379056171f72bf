#pragma once
// The indicators of one node as typed lists: one entry a processor core, a network interface, a storage volume. Entries
// are numbered by the instance of their indicators, from 0 without a gap.
//
// The caller guards the cache (Health::Lock) and the array; nothing is kept.

#include <cstdint>

#include <VxApi/Properties.h>
#include <VxCommon/Health/VcIndicatorCache.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

class VXCOMMON_API CommonMetrics
{
public:
    template <class T>
    using Value = Vx::Properties::Value<T>;

    /// What a core reports, as a number without a sign.
    struct CpuCoreMetrics final : Vx::Properties::Structure
    {
        Value<std::uint64_t> value{*this, "value"};
    };

    struct NetworkIfMetrics final : Vx::Properties::Structure
    {
        Value<std::int64_t> linkCapacity{*this, "linkCapacity"};
        Value<std::int64_t> linkStatus{*this, "linkStatus"};
        Value<std::int64_t> rxRate{*this, "rxRate"};
        Value<std::int64_t> txRate{*this, "txRate"};
        Value<std::int64_t> rxBytes{*this, "rxBytes"};
        Value<std::int64_t> txBytes{*this, "txBytes"};
    };

    struct StorageVolumeMetrics final : Vx::Properties::Structure
    {
        Value<std::int64_t> used{*this, "used"};
        Value<std::int64_t> capacity{*this, "capacity"};
    };

    /// What the maximum and the average of no cores are.
    static constexpr std::uint64_t NoCores = 0xFFFFFFFFFFFFFFFF;

    /// Whether the node reports the indicator; its value in `*value` then.
    static bool GetCachedHealthIndicator(const VcIndicatorCache* cache, std::uint32_t id, std::uint32_t instance,
                                         std::int64_t* value);

    /// Makes `array` as long as there are cores and sets each one's value. `*maxValue` and `*averageValue` (each may be
    /// null) receive the largest and the mean value, cut to a whole number; NoCores when there is none.
    static void PopulateCpuCoreMetricsList(const VcIndicatorCache* cache, Vx::Properties::Array<CpuCoreMetrics>& array,
                                           std::uint64_t* maxValue, std::uint64_t* averageValue);

    /// Fill `array` anew; listeners of the array hear of each entry. What a node does not report of an entry is 0.
    static void PopulateNetworkIfMetricsList(const VcIndicatorCache* cache,
                                             Vx::Properties::Array<NetworkIfMetrics>& array);
    static void PopulateStorageVolumeMetricsList(const VcIndicatorCache* cache,
                                                 Vx::Properties::Array<StorageVolumeMetrics>& array);
};

}  // namespace VxCommon
