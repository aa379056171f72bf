#pragma once
// A resource that does what the test says, and a server with some of them.

#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>
#include <VxRest/HttpServer.h>
#include <VxRest/ResourceRouter.h>
#include <VxTestSupport/Gate.h>
#include <VxTestSupport/Thrown.h>

namespace VxRestTests
{

using nlohmann::json;
using VxRest::CreateResult;
using VxRest::RequestInfo;
using VxRest::ResponseInfo;
using VxTestSupport::Gate;
using VxTestSupport::Signal;
using VxTestSupport::StatusThrown;

/// Offers the operations whose hooks are set.
class FakeResource : public VxRest::ResourceBase,
                     public VxRest::IDocumentResource,
                     public VxRest::IParentResource,
                     public VxRest::ICallableResource
{
public:
    std::function<json(const RequestInfo&, ResponseInfo&)> document;
    std::function<void(const RequestInfo&, const json&)> update;
    std::function<CreateResult(const RequestInfo&, const json&)> create;
    std::function<void(const RequestInfo&)> remove;
    std::function<json(const RequestInfo&, const json&)> invoke;
    bool immediate = false;

    /// A resource with a document alone.
    static FakeResource WithDocument(json value)
    {
        FakeResource resource;
        resource.document = [value](const auto&, auto&) { return value; };
        return resource;
    }

    /// A command alone.
    static FakeResource WithCommand(std::function<json(const RequestInfo&, const json&)> call)
    {
        FakeResource resource;
        resource.invoke = std::move(call);
        return resource;
    }

    VxRest::IDocumentResource* DocumentProvider() override { return document || update ? this : nullptr; }
    VxRest::IParentResource* ParentProvider() override { return create || remove ? this : nullptr; }
    VxRest::ICallableResource* CallableProvider() override { return invoke ? this : nullptr; }
    bool IsImmediate() const override { return immediate; }

    json Document(const RequestInfo& request, ResponseInfo& response) override { return document(request, response); }
    bool TakesUpdates(const RequestInfo::KeyMap& /*keys*/) const override { return update != nullptr; }
    void UpdateDocument(const RequestInfo& request, const json& value) override { update(request, value); }
    CreateResult Create(const RequestInfo& request, const json& value) override { return create(request, value); }
    void Delete(const RequestInfo& request) override { remove(request); }
    json Invoke(const RequestInfo& request, const json& args) override { return invoke(request, args); }
};

}  // namespace VxRestTests
