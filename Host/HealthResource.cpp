#include "HealthResource.h"

#include <algorithm>

#include <VxApi/Params.h>

#include "HealthSetsResource.h"
#include "ToDocument.h"

namespace VxHost
{
namespace
{

struct HealthProperties final : Vx::Params::Group
{
    using Count = Vx::Params::Value<std::uint64_t>;

    HealthProperties() : Group("Health") {}

    Count nodes{*this, "nodes", {.title = "Nodes of the system", .readOnly = true}};
    Count staleNodes{*this, "staleNodes", {.title = "Nodes that have missed three reports", .readOnly = true}};
    Count droppedMessages{*this, "droppedMessages", {.title = "Reports that could not be queued", .readOnly = true}};
    Count refusedReports{
        *this, "refusedReports", {.title = "Reports that the platform did not take", .readOnly = true}};
};

}  // namespace

nlohmann::json HealthResource::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response)
{
    const std::vector<NodeWatch::Node> nodes = health_.Nodes().Nodes();
    const auto isStale = [](const NodeWatch::Node& node) { return node.state == NodeState::Stale; };
    HealthProperties properties;
    properties.nodes.Fill(nodes.size());
    properties.staleNodes.Fill(static_cast<std::uint64_t>(std::count_if(nodes.begin(), nodes.end(), isStale)));
    properties.droppedMessages.Fill(health_.Collector().DroppedMessages());
    properties.refusedReports.Fill(health_.Reporter().RefusedReports());
    response.Embed("item", "/health/nodes", true, nullptr);
    response.Embed("item", HealthSetsResource::DefaultSetPath, true, nullptr);
    return ToDocument(properties, request);
}

}  // namespace VxHost
