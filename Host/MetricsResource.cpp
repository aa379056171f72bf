#include "MetricsResource.h"

#include <VxApi/Locker.h>
#include <VxCommon/Metrics/CommonMetrics.h>
#include <VxCommon/Metrics/MetricsJsonSerializer.h>

namespace VxHost
{
namespace
{

using VxCommon::CommonMetrics;

struct MetricsProperties final : Vx::Properties::Structure
{
    Vx::Properties::Array<CommonMetrics::CpuCoreMetrics> cpuCores{*this, "cpuCores"};
    Vx::Properties::Value<std::uint64_t> cpuMax{*this, "cpuMax"};
    Vx::Properties::Value<std::uint64_t> cpuAverage{*this, "cpuAverage"};
    Vx::Properties::Array<CommonMetrics::NetworkIfMetrics> networkInterfaces{*this, "networkInterfaces"};
    Vx::Properties::Array<CommonMetrics::StorageVolumeMetrics> storageVolumes{*this, "storageVolumes"};
};

void Fill(MetricsProperties& metrics, VxCommon::Health& health, std::uint32_t nodeId)
{
    std::uint64_t max = CommonMetrics::NoCores;
    std::uint64_t average = CommonMetrics::NoCores;
    {
        const Vx::Locker locker(health.GetLock());
        const Nucleo::Handle<VcIndicatorCache> cache(health.Cache(nodeId));
        if (cache) {
            CommonMetrics::PopulateCpuCoreMetricsList(cache.Get(), metrics.cpuCores, &max, &average);
            CommonMetrics::PopulateNetworkIfMetricsList(cache.Get(), metrics.networkInterfaces);
            CommonMetrics::PopulateStorageVolumeMetricsList(cache.Get(), metrics.storageVolumes);
        }
    }
    metrics.cpuMax.Set(max);
    metrics.cpuAverage.Set(average);
}

}  // namespace

nlohmann::json MetricsResource::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    MetricsProperties metrics;
    Fill(metrics, health_, nodeId_);
    nlohmann::json document = VxCommon::MetricsJsonSerializer::Serialize(metrics);
    if (metrics.cpuCores.Count() == 0) {
        document.erase("cpuMax");
        document.erase("cpuAverage");
    }
    if (request.IsSchemaRequested()) {
        document["_schema"] = VxCommon::MetricsJsonSerializer::SerializeSchema(metrics);
    }
    return document;
}

}  // namespace VxHost
