// The small parts of the HTTP server, each by itself.

#include <gtest/gtest.h>

#include <Server/AnswerCounters.h>
#include <Server/Authority.h>
#include <Server/Gate.h>
#include <Server/MediaType.h>
#include <Server/NoticeHistory.h>
#include <Server/NoticeQueue.h>
#include <Server/Options.h>
#include <Server/Reply.h>
#include <Server/Target.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using namespace VxRest::Http;
using VxRest::EventType;

/// The HTTP status of the refusal that `call` throws; 0 when it throws none.
template <class Call>
unsigned RefusalOf(Call&& call)
{
    try {
        call();
    } catch (const Refusal& refusal) {
        return refusal.HttpStatus();
    }
    return 0;
}

TEST(AnswerCounters, ABoundBelongsToItsBucket)
{
    AnswerCounters counters;
    for (const std::chrono::nanoseconds duration :
         {0ns, 1'000'000ns, 1'000'001ns, 2'500'000ns, 100'000'000ns, 10'000'000'000ns, 10'000'000'001ns}) {
        counters.CountDuration(duration);
    }
    VxRest::HttpServerStatistics statistics;
    counters.Read(statistics);
    EXPECT_EQ(statistics.durations.counts, (std::array<std::uint64_t, 14>{2, 2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1, 1}));
    EXPECT_DOUBLE_EQ(statistics.durations.sum, 20.104500002);
}

TEST(MediaTypes, ContentTypes)
{
    EXPECT_EQ(ParseContentType("Application/JSON ; charset=UTF-8"), Media::Json);
    EXPECT_EQ(ParseContentType("application/json; charset=\"utf-8\"; x=\";\""), Media::Json);
    EXPECT_EQ(ParseContentType("application/cbor"), Media::Cbor);
    EXPECT_EQ(ParseContentType("application/msgpack;"), Media::MsgPack);
    EXPECT_EQ(ParseContentType("application/octet-stream"), Media::Octets);
    for (const char* other :
         {"", "text/plain", "application/jsonx", "application/json; charset=latin1", "json", "*/*"}) {
        EXPECT_EQ(ParseContentType(other), std::nullopt) << other;
    }
}

TEST(MediaTypes, AcceptChoosesTheBest)
{
    const std::pair<const char*, std::optional<Media>> cases[] = {
        {"", Media::Json},
        {"*/*", Media::Json},
        {"application/*", Media::Json},
        {"APPLICATION/CBOR", Media::Cbor},
        {"text/html, application/msgpack;q=0.2, application/cbor;q=0.1", Media::MsgPack},
        {"application/json;q=0, */*", Media::Cbor},  // the more exact range counts
        {"application/octet-stream", std::nullopt},
        {"application/octet-stream;q=0.5, application/json", Media::Json},
        {"application/json; version=\"1,2\"; q=0.5", Media::Json},
        {"application/json;q=0", std::nullopt},
        {"application/json;q=2", std::nullopt},
        {"application/json;q=x, nonsense, ,;", std::nullopt},
    };
    for (const auto& [accept, structured] : cases) {
        EXPECT_EQ(Acceptance(accept).BestStructured(), structured) << accept;
    }
    EXPECT_TRUE(Acceptance("application/octet-stream, application/json;q=0.9").PrefersOctets());
    for (const char* other : {"*/*", "application/*", "application/octet-stream;q=0.5, application/json"}) {
        EXPECT_FALSE(Acceptance(other).PrefersOctets()) << other;
    }
}

TEST(Targets, PathAndArguments)
{
    const std::pair<const char*, const char*> cases[] = {
        {"/", "/ {}"},
        {"*", "* {}"},
        {"/a%20b/c.d-~9/*?", "/a%20b/c.d-~9/* {}"},
        {"/a?n=7&o=-2&f=1.5&e=1e3", R"(/a {"e":1000.0,"f":1.5,"n":7,"o":-2})"},
        {"/a?big=18446744073709551615", R"(/a {"big":18446744073709551615})"},
        {"/a?t=true&f=false&s=text&c=True&z=null", R"(/a {"c":"True","f":false,"s":"text","t":true,"z":"null"})"},
        {"/a?x=07&y=%2B7&w=7%20&v=.5&u=5.", R"(/a {"u":"5.","v":".5","w":"7 ","x":"07","y":"+7"})"},
        {"/a?h=1e999&q=%227%22&empty=&flag", R"(/a {"empty":"","flag":"","h":"1e999","q":"\"7\""})"},
        {"/a?n%20m=a+b%2Bc%00&&", R"(/a {"n m":"a b+c\u0000"})"},
        {"/a?schema=true&b=1", R"(/a {"b":1})"},
        {"/a?schema=false", "/a {}"},
        {"http://host:1/p?a=1", R"(/p {"a":1})"},
        {"http://host", "/ {}"},
    };
    for (const auto& [text, parts] : cases) {
        const Target target = ParseTarget(text);
        EXPECT_EQ(target.path + " " + target.args.dump(), parts) << text;
        EXPECT_EQ(target.schema, std::string_view(text).find("schema=true") != std::string_view::npos);
    }
    EXPECT_EQ(ParseTarget("http://host:1/p").authority, "host:1");
    for (const char* malformed :
         {"", "a", "/a%zz", "/a b", "/a#b", "/a?a=%", "https://host/", "ftp://h/", "http:///p", "http://user@host/",
          "/a?x=1&x=2", "/a?schema=1", "/a?schema=true&schema=true", "host:80"}) {
        EXPECT_EQ(RefusalOf([&] { ParseTarget(malformed); }), 400u) << malformed;
    }
}

TEST(Authorities, OwnForeignAndMalformed)
{
    using Verdict = Authority::Verdict;
    const Authority own("127.0.0.1", 8080);
    for (const char* host : {"127.0.0.1:8080", "127.0.0.1", "LocalHost:8080", "localhost:08080"}) {
        EXPECT_EQ(own.Host(host, "127.0.0.1"), Verdict::Own) << host;
    }
    for (const char* host : {"127.0.0.1:80", "127.0.0.2:8080", "evil.example:8080", "localhost.evil.example",
                             "127.0.0.1.evil.example", "[::1]:8080"}) {
        EXPECT_EQ(own.Host(host, "127.0.0.1"), Verdict::Foreign) << host;
    }
    for (const char* host : {"", ":8080", "localhost:", "localhost:x", "localhost:99999", "localhost:8080:8080",
                             "a@localhost", "localhost, evil", "[::1", "[x]:8080"}) {
        EXPECT_EQ(own.Host(host, "127.0.0.1"), Verdict::Malformed) << host;
    }
    EXPECT_EQ(Authority("::1", 1).Host("[0:0:0:0:0:0:0:1]:1", "::1"), Verdict::Own);
    const Authority any("0.0.0.0", 1);
    EXPECT_EQ(any.Host("10.0.0.5:1", "10.0.0.5"), Verdict::Own);
    EXPECT_EQ(any.Host("10.0.0.6:1", "10.0.0.5"), Verdict::Foreign);
    EXPECT_EQ(any.Host("0.0.0.0:1", "10.0.0.5"), Verdict::Own);
    EXPECT_EQ(NormalAddress("::ffff:10.0.0.5"), "10.0.0.5");

    EXPECT_TRUE(own.IsOwnOrigin("http://localhost:8080", "127.0.0.1"));
    EXPECT_TRUE(Authority("127.0.0.1", 80).IsOwnOrigin("HTTP://127.0.0.1", "127.0.0.1"));
    for (const char* foreign : {"null", "", "http://", "http://localhost", "http://localhost:3000",
                                "https://localhost:8080", "http://evil.example:8080"}) {
        EXPECT_FALSE(own.IsOwnOrigin(foreign, "127.0.0.1")) << foreign;
    }
}

TEST(Gates, HostThenTokenThenOrigin)
{
    const auto check = [](const std::function<void(RequestHead&)>& change, const char* authority = "") {
        RequestHead head;
        head.verb = Verb::Get;
        head.http11 = true;
        head.host = "localhost";
        head.authorization = "Bearer secret";
        change(head);
        Target target;
        target.authority = authority;
        const VxRest::Http::Gate gate(Authority("127.0.0.1", 80), "secret");
        return RefusalOf([&] { gate.Check(head, target, "127.0.0.1"); });
    };
    EXPECT_EQ(check([](auto& head) { head.verb = Verb::Put, head.origin = "http://localhost"; }), 0u);
    EXPECT_EQ(check([](auto& head) { head.host.reset(); }), 400u);
    EXPECT_EQ(check([](auto& head) { head.host.reset(), head.http11 = false; }), 0u);  // HTTP/1.0 knows no Host
    EXPECT_EQ(check([](auto& head) { head.host = ""; }), 400u);
    EXPECT_EQ(check([](auto& head) { head.host = "evil.example", head.authorization.reset(); }), 421u);
    EXPECT_EQ(check([](auto&) {}, "evil.example"), 421u);
    EXPECT_EQ(check([](auto& head) { head.authorization = "bearer  secret "; }), 0u);
    EXPECT_EQ(check([](auto& head) { head.authorization.reset(); }), 401u);
    for (const char* wrong :
         {"", "Bearer", "Bearer ", "Bearer secre", "Bearer secret2", "Bearer Secret", "Basic secret"}) {
        EXPECT_EQ(check([&](auto& head) { head.authorization = wrong; }), 401u) << wrong;
    }
    EXPECT_EQ(check([](auto& head) { head.verb = Verb::Post, head.origin = "http://evil.example"; }), 403u);
    EXPECT_EQ(check([](auto& head) { head.verb = Verb::Other, head.origin = "null"; }), 403u);
    EXPECT_EQ(check([](auto& head) { head.origin = "http://evil.example"; }), 0u);
}

TEST(Replies, HeadersCannotBeForged)
{
    Reply reply;
    reply.AddField("Location", "/a\r\nSet-Cookie: x\x7F ü");
    EXPECT_EQ(reply.fields, "Location: /a%0D%0ASet-Cookie: x%7F %C3%BC\r\n");
    std::string head;
    AppendHead(head, reply, "close", DateLine(951827696));
    EXPECT_EQ(head, "HTTP/1.1 204 No Content\r\nDate: Tue, 29 Feb 2000 12:34:56 GMT\r\nConnection: close\r\n" +
                        reply.fields + "\r\n");
}

TEST(Notices, QueueMergesRepeatedUpdatesAndDropsEverythingWhenFull)
{
    int woken = 0;
    NoticeQueue queue(3, [&] { ++woken; });
    queue.Raise(EventType::Updated, "/a");
    EXPECT_EQ(woken, 0);  // nobody listens yet
    EXPECT_EQ(queue.Take(true).notices.size(), 1u);
    for (int i = 0; i < 5; ++i) {
        queue.Raise(EventType::Updated, "/a");
    }
    queue.Raise(EventType::Created, "/a");
    queue.Raise(EventType::Created, "/a");
    EXPECT_EQ(woken, 1);
    NoticeQueue::Batch batch = queue.Take(true);
    EXPECT_EQ(batch.notices.size(), 3u);
    EXPECT_FALSE(batch.lost);
    for (int i = 0; i < 4; ++i) {
        queue.Raise(EventType::Deleted, "/a");
    }
    batch = queue.Take(true);
    EXPECT_EQ(batch.notices.size(), 1u);
    EXPECT_TRUE(batch.lost);
    EXPECT_FALSE(queue.Take(true).lost);
    EXPECT_EQ(queue.Raised(), 12u);
    queue.Close();
    queue.Raise(EventType::Created, "/a");
    EXPECT_TRUE(queue.Take(true).notices.empty());
    EXPECT_EQ(woken, 2);

    NoticeQueue failing(3, [] { throw std::bad_alloc(); });
    failing.Take(true);
    failing.Raise(EventType::Created, "/a");  // must not throw
    EXPECT_TRUE(failing.Take(true).lost);
}

TEST(Notices, HistoryReplaysOrResets)
{
    NoticeHistory history(3, 100);
    for (const char* path : {"/a", "/b", "/a/x", "/b\n\xFF"}) {
        history.Add({EventType::Updated, path});
    }
    EXPECT_EQ(history.Replay("104", ""), "");
    EXPECT_EQ(history.Replay("102", "/a"), "id: 103\nevent: updated\ndata: {\"path\":\"/a/x\",\"type\":2}\n\n");
    const std::string all = history.Replay("101", "/");
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 12);  // three events; a line feed in a path makes no line
    EXPECT_NE(all.find("/b\\n\xEF\xBF\xBD"), std::string::npos);
    const std::string reset = "id: 104\nevent: reset\ndata: {}\n\n";
    for (const char* unknown : {"100", "0", "105", "", "x", "103x", "-1", "99999999999999999999999"}) {
        EXPECT_EQ(history.Replay(unknown, ""), reset) << unknown;
    }
    history.Forget();
    EXPECT_EQ(history.Replay("104", ""), history.ResetEvent());
    EXPECT_EQ(history.Replay("105", ""), "");
    EXPECT_EQ(history.Add({EventType::Created, "/a"}).id, 106u);

    NoticeHistory none(0, 0);
    EXPECT_EQ(none.Add({EventType::Created, "/a"}).event,
              "id: 1\nevent: created\ndata: {\"path\":\"/a\",\"type\":1}\n\n");
    EXPECT_NE(none.Replay("0", ""), "");
    EXPECT_EQ(none.Replay("1", ""), "");
}

TEST(Options, UnusableAndUnsafeOnesAreRefused)
{
    using VxRest::HttpServerOptions;
    const std::pair<std::function<void(HttpServerOptions&)>, Nucleo::Status> cases[] = {
        {[](auto&) {}, Nucleo::OK},
        {[](auto& o) { o.address = "::1"; }, Nucleo::OK},
        {[](auto& o) { o.address = "0.0.0.0", o.token = "t"; }, Nucleo::OK},
        {[](auto& o) { o.address = "0.0.0.0"; }, Nucleo::ERROR_PARAMETER},
        {[](auto& o) { o.address = "::"; }, Nucleo::ERROR_PARAMETER},
        {[](auto& o) { o.token = "two words"; }, Nucleo::ERROR_PARAMETER},
        {[](auto& o) { o.workers = 0; }, Nucleo::ERROR_PARAMETER},
        {[](auto& o) { o.allBodyBytes = o.bodyBytes - 1; }, Nucleo::ERROR_PARAMETER},
        {[](auto& o) { o.headerDeadline = std::chrono::milliseconds(-1); }, Nucleo::ERROR_PARAMETER},
    };
    for (const auto& [change, status] : cases) {
        HttpServerOptions options;
        change(options);
        EXPECT_EQ(StatusThrown([&] { CheckOptions(options); }), status);
    }
}

}  // namespace
