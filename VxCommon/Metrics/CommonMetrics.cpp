#include <VxCommon/Metrics/CommonMetrics.h>

#include <algorithm>
#include <vector>

#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

// The platform's indicators.
enum IndicatorId : std::uint32_t
{
    CpuCoreValue = 2052,
    LinkStatus = 2034,
    LinkCapacity = 2009,
    RxRate = 2077,
    TxRate = 2076,
    RxBytes = 2079,
    TxBytes = 2078,
    StorageUsed = 2005,
    StorageCapacity = 2006,
};

/// Sets the field when the node reports the indicator.
void Fill(Vx::Properties::Value<std::int64_t>& field, const VcIndicatorCache* cache, std::uint32_t id,
          std::uint32_t instance)
{
    if (std::int64_t value = 0; CommonMetrics::GetCachedHealthIndicator(cache, id, instance, &value)) {
        field.Set(value);
    }
}

}  // namespace

bool CommonMetrics::GetCachedHealthIndicator(const VcIndicatorCache* cache, std::uint32_t id, std::uint32_t instance,
                                             std::int64_t* value)
{
    return VcIndicatorCache_Find(cache, id, instance, value) == OK;
}

void CommonMetrics::PopulateCpuCoreMetricsList(const VcIndicatorCache* cache,
                                               Vx::Properties::Array<CpuCoreMetrics>& array, std::uint64_t* maxValue,
                                               std::uint64_t* averageValue)
{
    std::vector<std::uint64_t> values;
    std::uint64_t sum = 0;
    std::uint64_t largest = 0;
    for (std::int64_t value = 0;
         GetCachedHealthIndicator(cache, CpuCoreValue, static_cast<std::uint32_t>(values.size()), &value);) {
        values.push_back(static_cast<std::uint64_t>(value));
        sum += values.back();
        largest = std::max(largest, values.back());
    }
    array.Resize(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        array.At(i).value.Set(values[i]);
    }
    if (maxValue != nullptr) {
        *maxValue = values.empty() ? NoCores : largest;
    }
    if (averageValue != nullptr) {
        *averageValue = values.empty() ? NoCores : sum / values.size();
    }
}

void CommonMetrics::PopulateNetworkIfMetricsList(const VcIndicatorCache* cache,
                                                 Vx::Properties::Array<NetworkIfMetrics>& array)
{
    array.Clear();
    std::int64_t linkStatus = 0;
    for (std::uint32_t i = 0; GetCachedHealthIndicator(cache, LinkStatus, i, &linkStatus); ++i) {
        NetworkIfMetrics& entry = array.Add();
        entry.linkStatus.Set(static_cast<std::int32_t>(linkStatus));  // The platform's link states have 32 bits.
        Fill(entry.linkCapacity, cache, LinkCapacity, i);
        Fill(entry.rxRate, cache, RxRate, i);
        Fill(entry.txRate, cache, TxRate, i);
        Fill(entry.rxBytes, cache, RxBytes, i);
        Fill(entry.txBytes, cache, TxBytes, i);
    }
}

void CommonMetrics::PopulateStorageVolumeMetricsList(const VcIndicatorCache* cache,
                                                     Vx::Properties::Array<StorageVolumeMetrics>& array)
{
    array.Clear();
    std::int64_t used = 0;
    for (std::uint32_t i = 0; GetCachedHealthIndicator(cache, StorageUsed, i, &used); ++i) {
        StorageVolumeMetrics& entry = array.Add();
        entry.used.Set(used);
        Fill(entry.capacity, cache, StorageCapacity, i);
    }
}

}  // namespace VxCommon
