#pragma once
// A resource that does what the test says, and a server with some of them.

#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>
#include <VxRest/HttpServer.h>
#include <VxRest/ResourceRouter.h>
#include <VxTestSupport/Gate.h>
#include <VxTestSupport/HttpClient.h>
#include <VxTestSupport/Thrown.h>

namespace VxRestTests
{

using namespace std::chrono_literals;
using nlohmann::json;
using VxRest::CreateResult;
using VxRest::HttpServer;
using VxRest::HttpServerOptions;
using VxRest::RequestInfo;
using VxRest::ResponseInfo;
using VxTestSupport::Eventually;
using VxTestSupport::Gate;
using VxTestSupport::HttpClient;
using VxTestSupport::HttpReply;
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
    std::string textField;

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
    bool IsTextField(std::string_view name) const override { return name == textField; }

    json Document(const RequestInfo& request, ResponseInfo& response) override { return document(request, response); }
    bool TakesUpdates(const RequestInfo::KeyMap& /*keys*/) const override { return update != nullptr; }
    void UpdateDocument(const RequestInfo& request, const json& value) override { update(request, value); }
    CreateResult Create(const RequestInfo& request, const json& value) override { return create(request, value); }
    void Delete(const RequestInfo& request) override { remove(request); }
    json Invoke(const RequestInfo& request, const json& args) override { return invoke(request, args); }
};

/// A server on a loopback port, with resources that most wire tests need.
class ServerFixture : public ::testing::Test
{
protected:
    ServerFixture()
    {
        immediate.immediate = true;
        router.Register("/doc", document);
        router.Register("/now", immediate);
        router.Register("/echo", echo);
        router.Register("/slow", slow);
    }

    ~ServerFixture() override { gate.open.Set(); }

    void Start(const std::function<void(HttpServerOptions&)>& change = [](auto&) {})
    {
        HttpServerOptions options;
        options.port = 0;
        change(options);
        server.emplace(router, options);
        host = "127.0.0.1:" + std::to_string(server->Port());
    }

    HttpClient Connect(int receiveBufferBytes = 0) { return HttpClient(server->Port(), receiveBufferBytes); }

    /// A client that has sent a request, or its beginning.
    HttpClient Begin(std::string_view bytes)
    {
        HttpClient client = Connect();
        client.Send(bytes);
        return client;
    }

    /// A client whose request runs until `gate` is opened.
    HttpClient BeginSlow(const std::string& target = "/slow")
    {
        HttpClient client = Begin(Head("POST " + target) + "\r\n");
        EXPECT_TRUE(gate.entered.Await());
        return client;
    }

    std::string Head(const std::string& request) { return request + " HTTP/1.1\r\nHost: " + host + "\r\n"; }

    /// What the server answers to these bytes up to closing the connection.
    std::string Raw(std::string_view bytes) { return Begin(bytes).ReceiveAll(); }

    /// Whether a request was turned away for the moment.
    static bool IsBusy(const HttpReply& reply) { return reply.status == 503 && reply.Header("Retry-After") == "1"; }

    /// True when a request on a connection of its own is answered.
    bool IsServing() { return Connect().Get("/now").status == 200; }

    Gate gate;
    FakeResource document = FakeResource::WithDocument({{"a", 1}});
    FakeResource immediate = FakeResource::WithDocument({{"now", true}});
    FakeResource echo = FakeResource::WithCommand([](const auto&, const json& args) { return args; });
    FakeResource slow = FakeResource::WithCommand([this](const auto&, const auto&) {
        gate.Pass();
        return "done";
    });
    VxRest::ResourceRouter router;
    std::optional<HttpServer> server;
    std::string host;
};

}  // namespace VxRestTests
