#pragma once

#include <VxRest/Resource.h>

#include "HostHealth.h"
#include "NoticeLimiter.h"

namespace VxHost
{

/// "/health": how many nodes there are and how their reports come in; links to the rest. Safe on any thread.
class HealthResource final : public VxRest::DocumentResourceBase
{
public:
    /// `health` must outlive the resource.
    explicit HealthResource(const HostHealth& health) : health_(health) {}

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;
    bool IsImmediate() const override { return true; }

    /// Tells that the state of a node has changed.
    void Notify() { notices_.Raise(); }

private:
    const HostHealth& health_;
    NoticeLimiter notices_{*this, "/health"};
};

}  // namespace VxHost
