#pragma once

#include <cstdint>

#include <VxCommon/Health/Health.h>
#include <VxRest/Resource.h>

#include "NoticeLimiter.h"

namespace VxHost
{

/// "/metrics": cores, interfaces and volumes of a node as it last reported them. Safe on any thread; not immediate,
/// since it waits for the health's lock.
class MetricsResource final : public VxRest::DocumentResourceBase
{
public:
    /// `health` must outlive the resource.
    MetricsResource(VxCommon::Health& health, std::uint32_t nodeId) : health_(health), nodeId_(nodeId) {}

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

    /// Tells that the node has reported.
    void Notify() { notices_.Raise(); }

private:
    VxCommon::Health& health_;
    const std::uint32_t nodeId_;
    NoticeLimiter notices_{*this, "/metrics"};
};

}  // namespace VxHost
