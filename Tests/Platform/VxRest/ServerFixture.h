#pragma once
// A server on a loopback port, with resources that most wire tests need.

#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include <VxTestSupport/HttpClient.h>

#include "TestResources.h"

namespace VxRestTests
{

using namespace std::chrono_literals;
using VxRest::HttpServer;
using VxRest::HttpServerOptions;
using VxTestSupport::Eventually;
using VxTestSupport::HttpClient;
using VxTestSupport::HttpReply;

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
