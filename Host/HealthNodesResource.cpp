#include "HealthNodesResource.h"

#include <VxApi/Exception.h>
#include <VxApi/Params.h>

#include "ToDocument.h"
#include "ToNumber.h"

namespace VxHost
{
namespace
{

struct NodeProperties final : Vx::Params::Group
{
    template <class T>
    using Value = Vx::Params::Value<T>;

    NodeProperties() : Group("Node") {}

    void Fill(const NodeWatch::Node& node, bool isReporting)
    {
        id.Fill(node.id);
        state.Fill(node.state);
        age.Fill(node.age);
        reported.Fill(node.reported);
        reporting.Fill(isReporting);
    }

    Value<std::uint32_t> id{*this, "id", {.readOnly = true}};
    Value<NodeState> state{*this, "state", {.title = "How its reports come in", .readOnly = true}};
    Value<std::uint64_t> age{*this,
                             "age",
                             {.title = "Time since its last report, or since the start when it has not reported",
                              .units = "ms",
                              .readOnly = true}};
    Value<bool> reported{*this, "reported", {.title = "It has reported since the start", .readOnly = true}};
    Value<bool> reporting{*this, "reporting", {.title = "It is not silenced"}};
};

struct NodesProperties final : Vx::Properties::Structure
{
    Vx::Properties::Array<NodeProperties> nodes{*this, "nodes"};
};

/// The node that the key names. Throws ERROR_NOT_FOUND.
NodeWatch::Node FindNode(const NodeWatch& nodes, const std::string& key)
{
    if (const auto id = ToNumber<std::uint32_t>(key)) {
        if (const auto found = nodes.Find(*id)) {
            return *found;
        }
    }
    VX_THROW(Nucleo::ERROR_NOT_FOUND, "There is no node \"%s\".", key);
}

}  // namespace

nlohmann::json HealthNodesResource::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response)
{
    if (const auto key = request.Keys().find("id"); key != request.Keys().end()) {
        const NodeWatch::Node node = FindNode(nodes_, key->second);
        NodeProperties properties;
        properties.Fill(node, reporter_.IsReporting(node.id));
        return ToDocument(properties, request);
    }
    NodesProperties properties;
    for (const NodeWatch::Node& node : nodes_.Nodes()) {
        properties.nodes.Add().Fill(node, reporter_.IsReporting(node.id));
        response.Embed("item", "/health/nodes/" + std::to_string(node.id), true, nullptr);
    }
    return ToDocument(properties, request);
}

void HealthNodesResource::UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document)
{
    const NodeWatch::Node node = FindNode(nodes_, request.FindKey("id"));
    NodeProperties properties;
    properties.Fill(node, reporter_.IsReporting(node.id));
    Vx::Params::Update(properties, document);
    if (document.contains("reporting") && reporter_.SetReporting(node.id, properties.reporting.Get())) {
        Notify();
    }
}

}  // namespace VxHost
