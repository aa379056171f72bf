#pragma once

#include <chrono>

#include <VxApi/AsyncTimer.h>
#include <VxApi/Event.h>
#include <VxRest/ResourceRouter.h>

#include "HealthNodesResource.h"
#include "HealthResource.h"
#include "HealthSetsResource.h"
#include "HostHealth.h"
#include "MetricsResource.h"

namespace VxHost
{

/// The resources of health, registered for its own life: "/metrics", "/health" and what is below. Looks once a second
/// on the timer thread whether nodes have become stale. Made and destroyed by one thread.
class HealthResources
{
public:
    static constexpr std::chrono::microseconds Period{1'000'000};

    /// Both must outlive the object.
    HealthResources(VxRest::ResourceRouter& router, HostHealth& health);

    /// Waits for requests that are being served. The caller holds no lock that stands below the health's.
    ~HealthResources();
    HealthResources(const HealthResources&) = delete;
    HealthResources& operator=(const HealthResources&) = delete;

private:
    void OnReport(std::uint32_t nodeId);
    void OnTimer();

    VxRest::ResourceRouter& router_;
    HostHealth& host_;
    MetricsResource metrics_;
    HealthResource health_;
    HealthSetsResource sets_;
    HealthNodesResource nodes_;
    Vx::Subscription reports_;

    // The last member: its end waits for the callback, which uses the others.
    Vx::AsyncTimer timer_{"healthResources", [this] { OnTimer(); }};
};

}  // namespace VxHost
