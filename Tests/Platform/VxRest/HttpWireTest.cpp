// The HTTP server on a loopback socket: exact bytes, rubbish, limits, and how it ends.

#include <numeric>
#include <thread>

#include <VxTestSupport/Threads.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;

class HttpWire : public ServerFixture
{
protected:
    /// The header of a request to echo JSON, but for `rest`, and what follows it.
    std::string Post(const std::string& rest)
    {
        return Head("POST /echo") + "Content-Type: application/json\r\n" + rest;
    }

    std::string PostWhole(const std::string& body)
    {
        return Post("Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }

    /// Waits until that many are connected, and tries that another is served.
    void ExpectServingBeside(std::size_t connections)
    {
        EXPECT_TRUE(Eventually([&] { return server->Statistics().connections == connections; }));
        EXPECT_TRUE(IsServing());
    }
};

/// A header without its Date line.
std::string WithoutDate(std::string text)
{
    const std::size_t date = text.find("Date: ");
    EXPECT_NE(date, std::string::npos);
    return text.erase(date, text.find("\r\n", date) + 2 - date);
}

/// The first answer's status; 0 when there is none.
int StatusOf(const std::string& answers)
{
    return answers.size() < 12 ? 0 : std::stoi(answers.substr(9, 3));
}

TEST_F(HttpWire, ExactBytes)
{
    Start();
    EXPECT_EQ(WithoutDate(Raw(Head("GET /now") + "Connection: close\r\n\r\n")),
              "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nCache-Control: no-store\r\n"
              "X-Content-Type-Options: nosniff\r\nContent-Length: 46\r\nConnection: close\r\n\r\n"
              "{\"_links\":{\"self\":{\"href\":\"/now\"}},\"now\":true}");
    EXPECT_EQ(WithoutDate(Raw(Head("OPTIONS /doc") + "Connection: close\r\n\r\n")),
              "HTTP/1.1 204 No Content\r\nConnection: close\r\nAllow: OPTIONS, GET, HEAD\r\n\r\n");
    const std::string head = WithoutDate(Raw(Head("HEAD /doc") + "Connection: close\r\n\r\n"));
    EXPECT_NE(head.find("Content-Length: 41\r\n"), std::string::npos) << head;
    EXPECT_TRUE(head.ends_with("\r\n\r\n"));
}

TEST_F(HttpWire, AnswersAndTheirDurationsAreCounted)
{
    FakeResource failing = FakeResource::WithCommand([](const auto&, const auto&) -> json { throw 5; });
    router.Register("/fail", failing);
    Start();
    HttpClient client = Connect();
    for (int i = 0; i < 3; ++i) {
        client.Get("/now");
    }
    client.Get("/none");
    client.Request("POST", "/fail");
    VxTestSupport::EventReader notices(server->Port());
    EXPECT_NE(Raw("GET /\nbroken\r\n\r\n").find(" 400 "), std::string::npos);  // without a header, so without a time

    const auto begin = std::chrono::steady_clock::now();
    HttpClient slowClient = BeginSlow();
    const auto entered = std::chrono::steady_clock::now();
    EXPECT_TRUE(IsServing());
    const double before = server->Statistics().durations.sum;
    const auto leaving = std::chrono::steady_clock::now();
    gate.open.Set();
    EXPECT_EQ(slowClient.Receive().status, 200);
    const std::chrono::duration<double> most = std::chrono::steady_clock::now() - begin;
    const VxRest::HttpServerStatistics counted = server->Statistics();
    EXPECT_EQ(counted.answers2xx, 5u);
    EXPECT_EQ(counted.answers4xx, 2u);
    EXPECT_EQ(counted.answers5xx, 1u);
    const auto& counts = counted.durations.counts;
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), std::uint64_t{0}), 7u);
    EXPECT_GE(counted.durations.sum - before, std::chrono::duration<double>(leaving - entered).count());
    EXPECT_LE(counted.durations.sum - before, most.count());
}

TEST_F(HttpWire, ConnectionsAreKeptAndPipelinedRequestsAnsweredInOrder)
{
    Start();
    HttpClient client = Connect();
    // By a worker, at once, refused, with a body: still in order. An empty line between requests does no harm.
    std::string all;
    for (int i = 0; i < 20; ++i) {
        all += PostWhole("[" + std::to_string(i) + "]") + "\r\n" + Head("GET /now") + "\r\n" + Head("HEAD /doc") +
               "\r\n" + Head("GET /none") + "\r\n";
    }
    client.Send(all);
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(client.Receive().body, "[" + std::to_string(i) + "]");
        ASSERT_EQ(client.Receive().status, 200);
        ASSERT_EQ(client.Receive(true).status, 200);
        ASSERT_EQ(client.Receive().status, 404);
    }
    EXPECT_EQ(server->Statistics().requests, 80u);
}

TEST_F(HttpWire, Http10AndHalfClosedClients)
{
    Start();
    const std::string closed = Raw("GET /now HTTP/1.0\r\n\r\n");
    EXPECT_EQ(StatusOf(closed), 200);
    EXPECT_NE(closed.find("Connection: close\r\n"), std::string::npos);
    HttpClient client = Connect();
    for (int i = 0; i < 2; ++i) {
        client.Send("GET /doc HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
        EXPECT_EQ(client.Receive().Header("Connection"), "keep-alive");
    }
    client.Send(Head("GET /doc") + "\r\n");
    client.FinishSending();
    EXPECT_EQ(client.Receive().status, 200);
    EXPECT_EQ(client.ReceiveAll(), "");
}

TEST_F(HttpWire, BodiesInPiecesAndChunks)
{
    Start();
    HttpClient client = Connect(4096);
    for (const char byte :
         PostWhole("[1,2,3]") +
             Post("Transfer-Encoding: chunked\r\n\r\n2;ext=\"x\"\r\n[4\r\n1\r\n]\r\n0\r\nTrailer: x\r\n\r\n")) {
        client.Send({&byte, 1});
    }
    EXPECT_EQ(client.Receive().body, "[1,2,3]");
    EXPECT_EQ(client.Receive().body, "[4]");
    const std::string big = "\"" + std::string(3'000'000, 'x') + "\"";
    EXPECT_EQ(client.Request("POST", "/echo", big).body, big);
    EXPECT_EQ(client.Request("POST", "/echo").status, 204);
    EXPECT_EQ(client.Request("GET", "/doc", "ignored body").status, 200);
}

TEST_F(HttpWire, ExpectContinue)
{
    Start([](auto& options) { options.bodyBytes = 100'000, options.allBodyBytes = 100'000; });
    HttpClient client = Begin(Post("Expect: 100-continue\r\nContent-Length: 3\r\n\r\n"));
    EXPECT_EQ(client.Receive().status, 100);
    client.Send("[1]");
    EXPECT_EQ(client.Receive().body, "[1]");
    client.Send(Post("Expect: 100-continue\r\nContent-Length: 100001\r\n\r\n"));  // refused before it is sent
    EXPECT_EQ(client.Receive().status, 413);
    EXPECT_EQ(client.ReceiveAll(), "");
    EXPECT_EQ(StatusOf(Raw(Post("Expect: magic\r\nContent-Length: 3\r\n\r\n[1]"))), 417);
}

TEST_F(HttpWire, MalformedRequestsAreRefusedAndTheNextIsServed)
{
    Start();
    const std::string post = Post("");
    const std::string get = Head("GET /now");
    const std::pair<std::string, int> requests[] = {
        {"rubbish\r\n\r\n", 400},
        {"\nGET /", 400},
        {"\x16\x03\x01\x02\r\n\r\n", 400},
        {"GET /now HTTP/1.1\n\n", 400},
        {"GET /now\r\n\r\n", 400},
        {"GET /now HTTP/2.0\r\n\r\n", 505},
        {get + "Host: " + host + "\r\n\r\n", 400},
        {get + "A: b\r\n c\r\n\r\n", 400},
        {get + "A: b\r\n\tc\r\n\r\n", 400},
        {get + "A : b\r\n\r\n", 400},
        {get + std::string("A: \0\r\n\r\n", 8), 400},
        {post + "Content-Length: 3\r\nContent-Length: 3\r\n\r\n[1]", 400},
        {post + "Content-Length: 3, 3\r\n\r\n[1]", 400},
        {post + "Content-Length: -1\r\n\r\n", 400},
        {post + "Content-Length: 99999999999999999999\r\n\r\n", 400},
        {post + "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        {post + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", 400},
        {post + "Transfer-Encoding: identity\r\n\r\n", 400},
        {post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        {post + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n", 400},
        {post + "Transfer-Encoding: chunked\r\n\r\n2\r\n[1]\r\n0\r\n\r\n", 400},
        {post + "Transfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFF\r\n", 400},
        {"POST /echo HTTP/1.0\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
    };
    for (const auto& [request, status] : requests) {
        const std::string answer = Raw(request);
        EXPECT_EQ(StatusOf(answer), status) << request << answer;
        EXPECT_NE(answer.find("Connection: close\r\n"), std::string::npos) << request;
        EXPECT_EQ(answer.find("Date: "), answer.rfind("Date: ")) << "two answers to " << request;
        EXPECT_TRUE(IsServing()) << request;
    }
    // What can be understood is answered without ending the connection, bodies included.
    HttpClient client = Connect();
    client.Send("GET /now HTTP/1.1\r\nHost: evil.example\r\n\r\n" + PostWhole("{") + "GET http://" + host +
                "/now HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    for (const int status : {421, 400, 200}) {
        EXPECT_EQ(client.Receive().status, status);
    }
    const std::string known = "is none of OPTIONS, GET, HEAD, PUT, PATCH, POST, DELETE";
    const std::pair<const char*, std::string> problems[] = {
        {"GET /doc?schema=true&schema=true", "400 /doc the argument \"schema\" is given twice"},
        {"GET /now?a%00b=1&a%00b=2", "400 /now the argument \"a\\x00b\" is given twice"},
        {"GET /%zz?x", "400 /%zz the request target is malformed"},
        {"GET *", "400 * the target \"*\" is for OPTIONS alone"},
        {"FETCH /now", "501 /now the method \"FETCH\" " + known},
        {"TRACE /none", "501 /none the method \"TRACE\" " + known},
        {"get /private-log", "501 /private-log the method \"get\" " + known},
    };
    for (const auto& [request, problem] : problems) {
        client.Send(Head(request) + "\r\n");
        const HttpReply reply = client.Receive();
        const json shown = reply.Json();
        EXPECT_EQ(std::to_string(reply.status) + " " + shown.value("instance", "") + " " + shown.value("detail", ""),
                  problem);
    }
    EXPECT_EQ(client.Request("POST", "/echo", "1", {{"Origin", "http://evil.example"}}).status, 403);
    EXPECT_EQ(client.Request("POST", "/none", std::string(60'000, '1')).status, 404);
}

TEST_F(HttpWire, HeadersAndBodiesAreLimited)
{
    Start([](auto& options) {
        options.headerBytes = 500;
        options.headerFields = 5;
        options.bodyBytes = 1000;
    });
    const std::string get = Head("GET /now");
    const std::string room(500 - get.size() - 2 - 5, 'x');
    HttpClient client = Begin(get + "A: " + room + "\r\n\r\n");
    EXPECT_EQ(client.Receive().status, 200);
    EXPECT_EQ(StatusOf(Raw(get + "A: " + room + "x\r\n\r\n")), 431);
    EXPECT_EQ(StatusOf(Raw("GET /" + std::string(100'000, 'x'))), 431);
    EXPECT_EQ(StatusOf(Raw(get + "1:\r\n2:\r\n3:\r\nConnection: close\r\n\r\n")), 200);
    EXPECT_EQ(StatusOf(Raw(get + "1:\r\n2:\r\n3:\r\n4:\r\n5:\r\n\r\n")), 431);

    const std::string text = "\"" + std::string(998, 'x') + "\"";
    EXPECT_EQ(client.Request("POST", "/echo", text).body, text);
    EXPECT_EQ(StatusOf(Raw(Post("Content-Length: 1001\r\n\r\n"))), 413);
    EXPECT_EQ(StatusOf(Raw(Post("Transfer-Encoding: chunked\r\n\r\n3E9\r\n" + std::string(1001, '1') + "\r\n"))), 413);
    // The answer arrives although the client goes on sending.
    EXPECT_EQ(StatusOf(Raw(PostWhole(std::string(3'000'000, 'x')))), 413);
    EXPECT_TRUE(IsServing());
}

TEST_F(HttpWire, BodiesOfAllConnectionsAreLimitedTogether)
{
    Start([](auto& options) { options.bodyBytes = 60'000, options.allBodyBytes = 100'000; });
    std::optional<HttpClient> first(Begin(Post("Content-Length: 60000\r\n\r\n\"" + std::string(55'000, 'x'))));
    const auto second = [&] { return Connect().Request("POST", "/echo", "\"" + std::string(50'000, 'y') + "\""); };
    // Until the server has read them a second body still fits.
    ASSERT_TRUE(Eventually([&] {
        const HttpReply reply = second();
        EXPECT_TRUE(reply.status == 503 || reply.status == 200) << reply.status;
        return IsBusy(reply);
    }));
    first.reset();
    EXPECT_TRUE(Eventually([&] { return second().status == 200; }));
}

TEST_F(HttpWire, DeadlinesAreAbsolute)
{
    Start([](auto& options) {
        // Long enough for what a busy machine makes a test wait between two steps, which must not be late.
        options.headerDeadline = 300ms;
        options.bodyDeadline = 300ms;
        options.idleDeadline = 1s;
        options.bodyBytesPerSecond = 1'000'000;
    });
    const auto drip = [&](const std::string& begin) {
        HttpClient client = Begin(begin);
        EXPECT_TRUE(Eventually([&] { return client.HasArrived() || !client.Send("x"); }));
        return client.Receive().status;
    };
    EXPECT_EQ(StatusOf(Raw("GET /now HTTP/1.1\r\nHo")), 408);
    EXPECT_EQ(StatusOf(Raw(Post("Content-Length: 5\r\n\r\n[1"))), 408);
    EXPECT_EQ(StatusOf(Raw(Post("Transfer-Encoding: chunked\r\n\r\n5\r\n[1"))), 408);
    EXPECT_EQ(Raw(""), "");  // an idle connection is closed without a word
    EXPECT_EQ(drip("GET /now HTTP/1.1\r\nA: "), 408);
    EXPECT_EQ(drip(Post("Content-Length: 100000\r\n\r\n")), 408);
    // The time between requests is not the request's.
    HttpClient client = Connect();
    EXPECT_EQ(client.Get("/now").status, 200);
    EXPECT_EQ(client.ReceiveAll(), "");
    ExpectServingBeside(0);
}

TEST_F(HttpWire, AClientThatDoesNotReadIsGivenUp)
{
    const std::string big(30'000'000, 'x');
    FakeResource huge = FakeResource::WithDocument({{"text", big}});
    router.Register("/huge", huge);
    Start([](auto& options) { options.writeDeadline = 100ms; });
    HttpClient lazy = Connect(4096);
    lazy.SendRequest("GET", "/huge");
    EXPECT_TRUE(Eventually([&] { return server->Statistics().requests == 1; }));
    ExpectServingBeside(0);
    EXPECT_LT(lazy.ReceiveAll().size(), big.size());
}

TEST_F(HttpWire, ClientsThatLeaveMidwayDoNoHarm)
{
    Start();
    for (const bool abort : {false, true}) {
        for (const std::string& begin : {std::string("GET /now HT"), Post("Content-Length: 100\r\n\r\n[1,"),
                                         Post("Transfer-Encoding: chunked\r\n\r\n3\r\n[1")}) {
            Begin(begin).Close(abort);
        }
    }
    BeginSlow().Close(true);
    gate.open.Set();
    ExpectServingBeside(0);
}

TEST_F(HttpWire, ConnectionsAreLimited)
{
    Start([](auto& options) { options.connections = 2; });
    HttpClient first = Connect();
    EXPECT_EQ(first.Get("/now").status, 200);
    std::optional<HttpClient> second(Connect());
    EXPECT_EQ(second->Get("/now").status, 200);
    HttpClient third = Connect();
    EXPECT_TRUE(IsBusy(third.Get("/now")));
    EXPECT_EQ(third.ReceiveAll(), "");
    second.reset();
    ExpectServingBeside(1);
    EXPECT_EQ(first.Get("/now").status, 200);
}

TEST_F(HttpWire, AnImmediateDocumentWaitsForItsTurnOnAWorker)
{
    router.Register("/tree/slow", slow);
    router.Register("/tree/now", document);
    document.immediate = true;
    router.Serialize("/tree");
    Start();
    HttpClient running = BeginSlow("/tree/slow");
    HttpClient waiting = Begin(Head("GET /tree/now") + "\r\n");
    EXPECT_TRUE(IsServing());  // the I/O thread does not wait
    gate.open.Set();
    EXPECT_EQ(waiting.Receive().status, 200);
    EXPECT_EQ(running.Receive().status, 200);
}

TEST_F(HttpWire, TheWorkQueueIsLimitedAndStopSendsTheAnswersOfRunningCalls)
{
    Start([](auto& options) { options.workers = 1, options.workQueue = 1; });
    HttpClient idle = Connect();
    EXPECT_EQ(idle.Get("/now").status, 200);
    HttpClient begun = Begin("GET /n");
    HttpClient running = BeginSlow();
    HttpClient waiting = Begin(Head("GET /doc") + "\r\n");
    ASSERT_TRUE(Eventually([&] { return server->Statistics().requests == 3; }));
    EXPECT_TRUE(IsBusy(Connect().Get("/doc")));
    EXPECT_TRUE(IsServing());  // what is immediate needs no worker
    std::thread stopper([&] { server->Stop(20s); });
    EXPECT_TRUE(IsBusy(waiting.Receive()));
    EXPECT_EQ(idle.ReceiveAll(), "");
    EXPECT_EQ(begun.ReceiveAll(), "");
    EXPECT_THROW(Connect(), std::runtime_error);
    gate.open.Set();
    const HttpReply answer = running.Receive();
    EXPECT_EQ(answer.body, "\"done\"");
    EXPECT_EQ(answer.Header("Connection"), "close");
    stopper.join();
    server->Stop();  // does nothing any more
    EXPECT_EQ(server->Statistics().connections, 0u);
}

TEST_F(HttpWire, StopLosesPatience)
{
    Start();
    HttpClient running = BeginSlow();
    std::thread stopper([&] { server->Stop(1ms); });
    EXPECT_EQ(running.ReceiveAll(), "");  // closed while the call still runs
    gate.open.Set();
    stopper.join();
}

TEST_F(HttpWire, ManyClientsAtOnce)
{
    Start();
    VxTestSupport::OnThreads(8, [&](int thread) {
        HttpClient client = Connect();
        for (int i = 0; i < 50; ++i) {
            const std::string body = "[" + std::to_string(thread * 1000 + i) + "]";
            EXPECT_EQ(client.Request("POST", "/echo", body).body, body);
            EXPECT_EQ(client.Get("/now").status, 200);
        }
    });
}

}  // namespace
