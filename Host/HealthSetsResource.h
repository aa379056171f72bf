#pragma once

#include <VxCommon/Health/Health.h>
#include <VxRest/Resource.h>

#include "NoticeLimiter.h"

namespace VxHost
{

/// "/health/sets/:id": the indicators of a set; "/health/sets": a link to the set that there always is. Safe on any
/// thread; not immediate, since it waits for the health's lock.
class HealthSetsResource final : public VxRest::DocumentResourceBase
{
public:
    static constexpr const char* Path = "/health/sets/:id";
    static constexpr const char* DefaultSetPath = "/health/sets/0";

    /// `health` must outlive the resource.
    explicit HealthSetsResource(VxCommon::Health& health) : health_(health) {}

    /// The arguments "firstId" and "lastId", both optional, keep the indicators with ids from the one to the other.
    /// Throws Vx::Exception: ERROR_NOT_FOUND when there is no such set, ERROR_PARAMETER when an argument is no id.
    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

    /// Tells that a node has reported.
    void Notify() { notices_.Raise(); }

private:
    VxCommon::Health& health_;
    NoticeLimiter notices_{*this, DefaultSetPath};
};

}  // namespace VxHost
