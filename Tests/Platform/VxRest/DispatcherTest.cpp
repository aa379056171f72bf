// Requests as values: what resources get to see, and what clients get to see of what resources do.

#include <stdexcept>

#include <gtest/gtest.h>

#include <Server/Dispatcher.h>
#include <VxTestSupport/LogCapture.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using namespace VxRest::Http;
using VxRest::RequestInfo;

struct Extras
{
    std::string contentType = "application/json";  // None when it is empty.
    std::string accept = {};
    std::optional<std::string> contentEncoding = {};
};

class Dispatch : public ::testing::Test
{
protected:
    /// The answer's status, media type, fields and body; of a problem its status and fields. All of it is in `reply`.
    std::string Ask(Verb verb, const std::string& target, const std::string& body = {}, const Extras& extras = {})
    {
        RequestHead head;
        head.verb = verb;
        head.target = target;
        head.accept = extras.accept;
        head.contentEncoding = extras.contentEncoding;
        if (!extras.contentType.empty()) {
            head.contentType = extras.contentType;
        }
        if (!body.empty()) {
            head.contentLength = body.size();
        }
        reply = Reply();
        try {
            Dispatcher::Outcome outcome = dispatcher.Examine(head, ParseTarget(target));
            if (auto* task = std::get_if<Task>(&outcome)) {
                reply = task->immediate ? dispatcher.TryPerform(*task).value()
                                        : dispatcher.Perform(*task, {body.begin(), body.end()});
            } else if (auto* made = std::get_if<Reply>(&outcome)) {
                reply = std::move(*made);
            } else {
                return "notices of " + std::get<NoticeRequest>(outcome).root;
            }
        } catch (const std::exception& error) {
            reply = MakeProblem(error, false, target);
        }
        std::string told = std::to_string(reply.status);
        if (reply.status < 400) {
            told += reply.mediaType.empty() ? "" : " " + std::string(reply.mediaType);
        }
        told += reply.fields.empty() ? "" : " " + reply.fields.substr(0, reply.fields.size() - 2);
        return reply.status < 400 && reply.status != 204 ? told + " " + std::string(reply.body.View()) : told;
    }

    VxRest::ResourceRouter router;
    Dispatcher dispatcher{router, CodecLimits{4, 100}, 1000};
    Reply reply;
};

TEST_F(Dispatch, VerbsFindTheirOperations)
{
    json seen;
    FakeResource files;
    files.document = [&](const RequestInfo& request, VxRest::ResponseInfo& response) {
        seen = request.Args();
        seen["schema"] = request.IsSchemaRequested();
        response.Embed("item", "/files/a", true, nullptr);
        return nullptr;
    };
    files.update = [&](const RequestInfo& request, const json& body) { seen = {request.FindKey("file"), body}; };
    files.create = [&](const RequestInfo&, const json& body) {
        seen = body;
        return VxRest::CreateResult{"a b", "/files/a%20b"};
    };
    files.remove = [&](const RequestInfo& request) { seen = request.FindKey("file"); };
    FakeResource command = FakeResource::WithCommand([&](const RequestInfo&, const json& args) {
        seen = args;
        return args.is_object() ? json{{"done", args}} : json();
    });
    router.Register("/files/:file", files);
    router.Register("/do", command);

    for (const bool immediate : {false, true}) {
        files.immediate = immediate;
        EXPECT_EQ(Ask(Verb::Get, "/files?from=7&all=true&schema=true"),
                  R"(200 application/json {"_links":{"item":[{"href":"/files/a"}],"self":{"href":"/files"}}})");
        EXPECT_EQ(seen, (json{{"from", 7}, {"all", true}, {"schema", true}}));
    }
    for (const Verb verb : {Verb::Put, Verb::Patch}) {
        EXPECT_EQ(Ask(verb, "/files/a%20b", R"({"gain":2})"), "204");
        EXPECT_EQ(seen, (json{"a b", {{"gain", 2}}}));
    }
    EXPECT_EQ(Ask(Verb::Post, "/files", R"({"name":"a b"})"),
              "201 application/json Location: /files/a%20b {\"id\":\"a b\",\"path\":\"/files/a%20b\"}");
    // Bytes reach the resource beside the arguments.
    const Extras asOctets{.contentType = "application/octet-stream"};
    files.textField = "name";  // Taken as it is written.
    Ask(Verb::Post, "/files?name=%31e3&keep=true&n=1e3", std::string("\x00\xFF{", 3), asOctets);
    EXPECT_EQ(seen, (json{{"name", "1e3"}, {"keep", true}, {"n", 1000.0}, {"content", json::binary({0, 255, '{'})}}));
    Ask(Verb::Post, "/files?name=true", "", asOctets);
    EXPECT_EQ(seen, (json{{"name", "true"}, {"content", json::binary({})}}));
    EXPECT_EQ(Ask(Verb::Post, "/files?content=x", "y", asOctets), "400");
    EXPECT_EQ(Ask(Verb::Delete, "/files/%2A"), "204");
    EXPECT_EQ(seen, "*");
    EXPECT_EQ(Ask(Verb::Delete, "/files"), "405 Allow: OPTIONS, GET, HEAD, PUT, PATCH, POST");
    EXPECT_EQ(Ask(Verb::Post, "/files/a", "{}"), "405 Allow: OPTIONS, GET, HEAD, PUT, PATCH, DELETE");

    EXPECT_EQ(Ask(Verb::Post, "/do", "", {.contentType = ""}), "204");
    EXPECT_TRUE(seen.is_null());
    EXPECT_EQ(Ask(Verb::Post, "/do"), "204");
    EXPECT_EQ(Ask(Verb::Post, "/do", R"({"a":1})"), R"(200 application/json {"done":{"a":1}})");
    EXPECT_EQ(Ask(Verb::Options, "/do"), "204 Allow: OPTIONS, POST");
    EXPECT_EQ(Ask(Verb::Get, "/do"), "405 Allow: OPTIONS, POST");
    EXPECT_EQ(Ask(Verb::Options, "*"), "204 Allow: OPTIONS, GET, HEAD, PUT, PATCH, POST, DELETE");
    EXPECT_EQ(Ask(Verb::Get, "*"), "400");
}

TEST_F(Dispatch, MediaTypesAreNegotiated)
{
    FakeResource data = FakeResource::WithDocument({{"content", json::binary({1, 2, 3})}});
    json stored;
    data.update = [&](const RequestInfo&, const json& document) { stored = document; };
    FakeResource more = FakeResource::WithDocument({{"content", json::binary({1})}, {"more", 1}});
    FakeResource command = FakeResource::WithCommand([](const auto&, const auto&) { return json{{"b", 2}}; });
    router.Register("/data", data);
    router.Register("/more", more);
    router.Register("/do", command);

    EXPECT_EQ(Ask(Verb::Get, "/data", "", {.accept = "application/octet-stream"}),
              "200 application/octet-stream \x01\x02\x03");
    EXPECT_EQ(Ask(Verb::Get, "/data", "", {.accept = "application/octet-stream, application/json"}),
              R"(200 application/json {"_links":{"self":{"href":"/data"}},"content":"AQID"})");
    Ask(Verb::Get, "/data", "", {.accept = "application/cbor"});
    EXPECT_EQ(reply.mediaType, "application/cbor");
    EXPECT_EQ(json::from_cbor(reply.body.View())["content"], json::binary({1, 2, 3}));

    EXPECT_EQ(Ask(Verb::Get, "/more", "", {.accept = "application/octet-stream"}), "406");
    EXPECT_EQ(Ask(Verb::Post, "/do", "", {.accept = "application/octet-stream"}), "406");  // before it acts
    const json document = {{"content", json::binary({9})}};
    const std::vector<std::uint8_t> cbor = json::to_cbor(document);
    const Extras cborOnly{.contentType = "application/cbor", .accept = "text/html"};
    EXPECT_EQ(Ask(Verb::Put, "/data", std::string(cbor.begin(), cbor.end()), cborOnly), "204");
    const std::string taken =
        "415 Accept: application/json, application/cbor, application/msgpack, application/octet-stream";
    EXPECT_EQ(Ask(Verb::Put, "/data", "{}", {.contentType = ""}), taken);
    EXPECT_EQ(Ask(Verb::Put, "/data", "{}", {.contentType = "text/plain"}), taken);
    EXPECT_EQ(Ask(Verb::Put, "/data", "{}", {.contentEncoding = "gzip"}), "415 Accept-Encoding: identity");
    EXPECT_EQ(Ask(Verb::Put, "/data", std::string(1001, ' ')), "413");
    EXPECT_EQ(stored, document);
}

TEST_F(Dispatch, TextsOfAResourcesOwnMediaType)
{
    FakeResource text;
    text.document = [](const RequestInfo&, VxRest::ResponseInfo& response) {
        response.Embed("item", "/doc", true, nullptr);
        response.SetText("text/x; v=1\r\nEvil: 1", "never sent");
        response.SetText("Text/x; v=1\r\nEvil: 1", "a \xFF\n");
        return json{{"not", "sent"}};
    };
    router.Register("/text", text);
    for (const bool immediate : {false, true}) {
        text.immediate = immediate;
        for (const char* accept : {"", "text/*;q=0.1", "application/json, text/X;v=2;q=0.001", "*/*;q=0, text/x"}) {
            EXPECT_EQ(Ask(Verb::Get, "/text?schema=true", "", {.accept = accept}),
                      "200 Content-Type: Text/x; v=1%0D%0AEvil: 1 a \xFF\n");
        }
        for (const char* accept : {"application/json", "text/x;q=0, */*", "text/*;q=0", "text", ";;,,q=\""}) {
            EXPECT_EQ(Ask(Verb::Get, "/text", "", {.accept = accept}), "406") << accept;
        }
    }
}

TEST_F(Dispatch, FailuresBecomeProblemDocuments)
{
    std::function<void()> fail;
    const auto failNow = [&](auto&&...) {
        fail();
        return nullptr;
    };
    FakeResource failing = FakeResource::WithCommand(failNow);
    failing.document = failNow;
    router.Register("/f", failing);
    const auto throwing = [](Nucleo::Status status, std::string message = "x") {
        return [=] { throw Vx::Exception(VX_HERE, status, message); };
    };
    const auto expect = [&](std::function<void()> failure, unsigned status, Nucleo::Status code,
                            std::string_view detail) {
        const VxTestSupport::ScopedLogCapture log;
        fail = std::move(failure);
        Ask(Verb::Post, "/f", "{}");
        EXPECT_EQ(reply.status, status) << code;
        EXPECT_EQ(reply.mediaType, "application/problem+json");
        json problem = {{"title", ReasonPhrase(status)}, {"status", status}, {"detail", detail}};
        problem.update({{"instance", "/f"}, {"code", code}});
        EXPECT_EQ(json::parse(reply.body.View()), problem);
        EXPECT_EQ(log.Count("A request of \"/f\" failed."), status >= 500 ? 1 : 0) << status;
        EXPECT_EQ(log.Lines().empty(), status < 500);
    };
    using namespace Nucleo::Statuses;
    const std::pair<Nucleo::Status, unsigned> statuses[] = {
        {ERROR_NAME, 400},           {ERROR_NOT_FOUND, 404}, {ERROR_UNSUPPORTED, 422},
        {ERROR_ALREADY_EXISTS, 409}, {ERROR_STATE, 409},     {ERROR_CONTENT, 422},
        {ERROR_LIMIT, 413},          {ERROR_DISK_FULL, 507}, {ERROR_IO, 500},
        {ERROR_BUSY, 500},           {-12345, 500},          {ERROR_CAPACITY, 400}};
    for (const auto& [code, status] : statuses) {
        expect(throwing(code), status, code, "x");
    }
    expect(throwing(ERROR_PARAMETER, "Jobs: \"%s\" \xFF"), 400, ERROR_PARAMETER, "Jobs: \"%s\" \xEF\xBF\xBD");
    expect(throwing(ERROR_PARAMETER, std::string(2000, 'x')), 400, ERROR_PARAMETER, std::string(1000, 'x') + "...");
    expect(throwing(ERROR_NAME, ""), 400, ERROR_NAME, Nucleo::StatusText(ERROR_NAME));
    expect([] { json(5).value("a", 1); }, 400, ERROR_PARAMETER,
           "[json.exception.type_error.306] cannot use value() with number");
    expect([] { throw std::out_of_range("lost"); }, 500, ERROR_STATE, "lost");
    expect([] { throw 5; }, 500, ERROR_STATE, "the request failed for an unknown reason");

    failing.update = failNow;
    fail = throwing(ERROR_UNSUPPORTED);
    EXPECT_EQ(Ask(Verb::Put, "/f", "{}"), "405 Allow: OPTIONS, GET, HEAD, POST");
    fail = throwing(ERROR_LIMIT);
    EXPECT_EQ(Ask(Verb::Get, "/f"), "400");  // there is no body that could be too large
    failing.immediate = true;
    EXPECT_EQ(Ask(Verb::Get, "/f"), "400");

    FakeResource readOnly = FakeResource::WithDocument({{"a", 1}});
    router.Register("/ro", readOnly);
    // Whatever comes with it: sent in another way, it would be refused as well.
    const std::string onlyRead = "405 Allow: OPTIONS, GET, HEAD";
    EXPECT_EQ(Ask(Verb::Put, "/ro", "{}"), onlyRead);
    EXPECT_EQ(Ask(Verb::Patch, "/ro", "x", {.contentType = "text/plain"}), onlyRead);
    EXPECT_EQ(Ask(Verb::Post, "/f", json(std::vector<int>(200)).dump()), "413");
}

TEST_F(Dispatch, NoticesAreTheServersOwn)
{
    EXPECT_EQ(Ask(Verb::Get, "/notifications?path=/jobs%2Fx"), "notices of /jobs/x");
    EXPECT_EQ(Ask(Verb::Get, "/notifications?path=jobs"), "400");
    EXPECT_EQ(Ask(Verb::Get, "/notifications?path=7"), "400");
    EXPECT_EQ(Ask(Verb::Get, "/notifications", "", {.accept = "application/json"}), "406");
    EXPECT_EQ(Ask(Verb::Head, "/notifications"), "200 text/event-stream ");
    EXPECT_EQ(Ask(Verb::Post, "/notifications"), "405 Allow: OPTIONS, GET, HEAD");
}

}  // namespace
