#include "HealthResources.h"

#include <VxApi/Locker.h>

#include "VirtualController.h"

namespace VxHost
{

HealthResources::HealthResources(VxRest::ResourceRouter& router, HostHealth& health)
    : router_(router),
      host_(health),
      metrics_(health.Collector(), LocalNodeId),
      health_(health),
      sets_(health.Collector()),
      nodes_(health.Nodes(), health.Reporter())
{
    router_.Register("/metrics", metrics_);
    router_.Register("/health", health_);
    router_.Register(HealthSetsResource::Path, sets_);
    router_.Register(HealthNodesResource::Path, nodes_);
    reports_ = health.Collector().NodeCacheUpdatedEvent().Subscribe(
        [this](VxCommon::Health&, std::uint32_t nodeId, void*) { OnReport(nodeId); });
    timer_.Start(Period);
}

HealthResources::~HealthResources()
{
    {
        // The event is raised under the lock: no other thread is inside the listener afterwards.
        const Vx::Locker locker(host_.Collector().GetLock());
        reports_.Reset();
    }
    router_.Deregister("/health", true);
    router_.Deregister("/metrics", false);
}

void HealthResources::OnReport(std::uint32_t nodeId)
{
    if (nodeId == LocalNodeId) {
        metrics_.Notify();
    }
    sets_.Notify();
}

void HealthResources::OnTimer()
{
    timer_.Start(Period);
    if (host_.Nodes().Check()) {
        health_.Notify();
        nodes_.Notify();
    }
}

}  // namespace VxHost
