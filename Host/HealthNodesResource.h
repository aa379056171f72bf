#pragma once

#include <VxRest/Resource.h>

#include "HealthReporter.h"
#include "NodeWatch.h"
#include "NoticeLimiter.h"

namespace VxHost
{

/// "/health/nodes": how the reports of the nodes come in; "/health/nodes/:id": those of one, which can be silenced when
/// it is a simulated one. Safe on any thread; not immediate, since there may be many nodes.
class HealthNodesResource final : public VxRest::DocumentResourceBase
{
public:
    static constexpr const char* Path = "/health/nodes/:id";

    /// Both must outlive the resource.
    HealthNodesResource(const NodeWatch& nodes, HealthReporter& reporter) : nodes_(nodes), reporter_(reporter) {}

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

    /// Only nodes; their list can only be read.
    bool TakesUpdates(const VxRest::RequestInfo::KeyMap& keys) const override { return !keys.empty(); }

    /// Takes {"reporting": false} or true for one node; see HealthReporter::SetReporting for what is refused.
    void UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document) override;

    /// Tells that the state of a node has changed.
    void Notify() { notices_.Raise(); }

private:
    const NodeWatch& nodes_;
    HealthReporter& reporter_;
    NoticeLimiter notices_{*this, "/health/nodes"};
};

}  // namespace VxHost
