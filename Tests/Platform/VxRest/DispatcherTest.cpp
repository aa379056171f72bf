// Requests as values: what resources get to see, and what clients get to see of what resources do.

#include <stdexcept>
#include <tuple>

#include <gtest/gtest.h>

#include <Server/Dispatcher.h>
#include <VxTestSupport/LogCapture.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using namespace VxRest::Http;
using VxRest::RequestInfo;

struct Answer
{
    unsigned status = 0;
    std::string media;
    std::string fields;
    std::string body;

    json Json() const { return json::parse(body); }
};

struct Extras
{
    std::optional<std::string> contentType = {};
    std::string accept = {};
    std::optional<std::string> contentEncoding = {};
};

class Dispatch : public ::testing::Test
{
protected:
    Answer Ask(Verb verb, const std::string& target, std::string_view body = {}, Extras extras = {})
    {
        RequestHead head;
        head.verb = verb;
        head.target = target;
        head.accept = extras.accept;
        head.contentType = extras.contentType;
        head.contentEncoding = extras.contentEncoding;
        if (!body.empty()) {
            head.contentLength = body.size();
        }
        Reply reply;
        try {
            Dispatcher::Outcome outcome = dispatcher.Examine(head, ParseTarget(target));
            if (auto* task = std::get_if<Task>(&outcome)) {
                reply = task->immediate ? dispatcher.TryPerform(*task).value()
                                        : dispatcher.Perform(*task, {body.begin(), body.end()});
            } else if (auto* made = std::get_if<Reply>(&outcome)) {
                reply = std::move(*made);
            } else {
                reply.status = 299;
                reply.fields = std::get<NoticeRequest>(outcome).root;
            }
        } catch (const std::exception& error) {
            reply = MakeProblem(error, false, target);
        }
        return {reply.status, std::string(reply.mediaType), reply.fields, std::string(reply.body.View())};
    }

    Answer Send(Verb verb, const std::string& target, const json& body)
    {
        return Ask(verb, target, body.dump(), asJson);
    }

    unsigned StatusOf(Verb verb, const std::string& target, std::string_view body = {}, Extras extras = {})
    {
        return Ask(verb, target, body, std::move(extras)).status;
    }

    /// Such as "405 Allow: OPTIONS, POST\r\n".
    std::string StatusAndFields(Verb verb, const std::string& target, std::string_view body = {}, Extras extras = {})
    {
        const Answer answer = Ask(verb, target, body, std::move(extras));
        return std::to_string(answer.status) + " " + answer.fields;
    }

    const Extras asJson{.contentType = "application/json"};
    const Extras asOctets{.contentType = "application/octet-stream"};
    VxRest::ResourceRouter router;
    Dispatcher dispatcher{router, CodecLimits{4, 100}, 1000};
};

TEST_F(Dispatch, DocumentsAreReadAndWritten)
{
    FakeResource setting;
    json stored = {{"gain", 1}};
    json seenArgs;
    setting.document = [&](const RequestInfo& request, auto&) {
        seenArgs = request.Args();
        seenArgs["schema"] = request.IsSchemaRequested();
        EXPECT_EQ(request.FindKey("name"), "a b");
        EXPECT_EQ(request.Path(), "/settings/a%20b");
        return stored;
    };
    setting.update = [&](const RequestInfo&, const json& document) { stored = document; };
    router.Register("/settings/:name", setting);

    Answer answer = Ask(Verb::Get, "/settings/a%20b?from=7&all=true&schema=true");
    EXPECT_EQ(answer.status, 200u);
    EXPECT_EQ(answer.media, "application/json");
    EXPECT_EQ(answer.Json(), json::parse(R"({"gain":1,"_links":{"self":{"href":"/settings/a%20b"}}})"));
    EXPECT_EQ(seenArgs, (json{{"from", 7}, {"all", true}, {"schema", true}}));

    for (const Verb verb : {Verb::Put, Verb::Patch}) {
        EXPECT_EQ(Send(verb, "/settings/a%20b", {{"gain", static_cast<int>(verb)}}).status, 204u);
        EXPECT_EQ(stored["gain"], static_cast<int>(verb));
    }
    setting.immediate = true;
    EXPECT_EQ(Ask(Verb::Get, "/settings/a%20b").Json()["gain"], stored["gain"]);
}

TEST_F(Dispatch, CollectionsCreateAndDeleteMembers)
{
    FakeResource files;
    json created;
    std::vector<std::string> deleted;
    files.document = [](const RequestInfo&, VxRest::ResponseInfo& response) {
        response.Embed("item", "/files/a", true, nullptr);
        return nullptr;
    };
    files.create = [&](const RequestInfo&, const json& body) {
        created = body;
        return VxRest::CreateResult{"a b", "/files/a%20b"};
    };
    files.remove = [&](const RequestInfo& request) { deleted.push_back(request.FindKey("file")); };
    router.Register("/files/:file", files);

    EXPECT_EQ(Ask(Verb::Get, "/files").Json(),
              json::parse(R"({"_links":{"self":{"href":"/files"},"item":[{"href":"/files/a"}]}})"));
    Answer answer = Send(Verb::Post, "/files", {{"name", "a b"}});
    EXPECT_EQ(answer.status, 201u);
    EXPECT_EQ(answer.fields, "Location: /files/a%20b\r\n");
    EXPECT_EQ(answer.body, R"({"id":"a b","path":"/files/a%20b"})");

    // Bytes reach the resource beside the arguments.
    EXPECT_EQ(StatusOf(Verb::Post, "/files?name=A&keep=true", std::string("\x00\xFF{", 3), asOctets), 201u);
    EXPECT_EQ(created, (json{{"name", "A"}, {"keep", true}, {"content", json::binary({0, 255, '{'})}}));
    EXPECT_EQ(StatusOf(Verb::Post, "/files?name=B", "", asOctets), 201u);
    EXPECT_EQ(created["content"], json::binary({}));

    for (const char* member : {"/files/a", "/files/*", "/files/%2A"}) {
        EXPECT_EQ(StatusOf(Verb::Delete, member), 204u);
    }
    EXPECT_EQ(deleted, (std::vector<std::string>{"a", "*", "*"}));
    EXPECT_EQ(StatusAndFields(Verb::Delete, "/files"), "405 Allow: OPTIONS, GET, HEAD, PUT, PATCH, POST\r\n");
    EXPECT_EQ(StatusAndFields(Verb::Post, "/files/a", "{}", asJson),
              "405 Allow: OPTIONS, GET, HEAD, PUT, PATCH, DELETE\r\n");
}

TEST_F(Dispatch, CommandsAnswerTheirResultOrNothing)
{
    json seen;
    FakeResource command = FakeResource::WithCommand([&](const RequestInfo&, const json& args) {
        seen = args;
        return args.is_object() ? json{{"done", args}} : json();
    });
    router.Register("/do", command);
    EXPECT_EQ(StatusOf(Verb::Post, "/do"), 204u);
    EXPECT_TRUE(seen.is_null());
    EXPECT_EQ(StatusOf(Verb::Post, "/do", "", asJson), 204u);
    EXPECT_EQ(Send(Verb::Post, "/do", {{"a", 1}}).body, R"({"done":{"a":1}})");
    EXPECT_EQ(StatusAndFields(Verb::Options, "/do"), "204 Allow: OPTIONS, POST\r\n");
    EXPECT_EQ(StatusAndFields(Verb::Get, "/do"), "405 Allow: OPTIONS, POST\r\n");
    EXPECT_EQ(StatusOf(Verb::Other, "/do"), 405u);
    EXPECT_EQ(StatusOf(Verb::Options, "*"), 204u);
    EXPECT_EQ(StatusOf(Verb::Get, "*"), 400u);
}

TEST_F(Dispatch, MediaTypesAreNegotiated)
{
    FakeResource data = FakeResource::WithDocument({{"content", json::binary({1, 2, 3})}});
    json stored;
    data.update = [&](const RequestInfo&, const json& document) { stored = document; };
    FakeResource text = FakeResource::WithDocument({{"a", 1}});
    FakeResource command = FakeResource::WithCommand([](const auto&, const auto&) { return json{{"b", 2}}; });
    router.Register("/data", data);
    router.Register("/text", text);
    router.Register("/do", command);

    Answer answer = Ask(Verb::Get, "/data", {}, {.accept = "application/octet-stream"});
    EXPECT_EQ(answer.media, "application/octet-stream");
    EXPECT_EQ(answer.body, "\x01\x02\x03");
    EXPECT_EQ(Ask(Verb::Get, "/data").Json()["content"], "AQID");
    answer = Ask(Verb::Get, "/data", {}, {.accept = "application/cbor"});
    EXPECT_EQ(answer.media, "application/cbor");
    EXPECT_EQ(json::from_cbor(answer.body)["content"], json::binary({1, 2, 3}));
    EXPECT_EQ(Ask(Verb::Get, "/data", {}, {.accept = "application/octet-stream, application/json"}).media,
              "application/json");

    EXPECT_EQ(StatusOf(Verb::Get, "/text", {}, {.accept = "application/octet-stream"}), 406u);
    EXPECT_EQ(Ask(Verb::Get, "/text", {}, {.accept = "application/octet-stream, application/msgpack;q=0.1"}).media,
              "application/msgpack");
    EXPECT_EQ(StatusOf(Verb::Post, "/do", {}, {.accept = "application/octet-stream"}), 406u);  // before it acts
    EXPECT_EQ(Ask(Verb::Post, "/do", {}, {.accept = "application/cbor"}).media, "application/cbor");

    const json document = {{"content", json::binary({9})}};
    const std::vector<std::uint8_t> cbor = json::to_cbor(document);
    const Extras cborOnly{.contentType = "application/cbor", .accept = "text/html"};
    EXPECT_EQ(StatusOf(Verb::Put, "/data", std::string(cbor.begin(), cbor.end()), cborOnly), 204u);
    EXPECT_EQ(stored, document);
    for (const Extras& extras : {Extras{}, Extras{.contentType = "text/plain"},
                                 Extras{.contentType = "application/json", .contentEncoding = "gzip"}}) {
        answer = Ask(Verb::Put, "/data", "{}", extras);
        EXPECT_EQ(answer.status, 415u);
        EXPECT_TRUE(answer.fields.starts_with("Accept")) << answer.fields;
    }
    EXPECT_EQ(StatusOf(Verb::Put, "/data", std::string(1001, ' '), asJson), 413u);
    EXPECT_EQ(stored, document);
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
    const auto throwing = [](Nucleo::Status status, std::string message = {}) {
        return [=] { throw Vx::Exception(VX_HERE, status, message); };
    };
    using namespace Nucleo::Statuses;
    const std::tuple<std::function<void()>, unsigned, Nucleo::Status, std::string> cases[] = {
        {throwing(ERROR_PARAMETER, "Jobs: \"%s\" \xFF"), 400, ERROR_PARAMETER, "Jobs: \"%s\" \xEF\xBF\xBD"},
        {throwing(ERROR_NAME), 400, ERROR_NAME, std::string(Nucleo::StatusText(ERROR_NAME))},
        {throwing(ERROR_NOT_FOUND), 404, ERROR_NOT_FOUND, std::string(Nucleo::StatusText(ERROR_NOT_FOUND))},
        {throwing(ERROR_UNSUPPORTED, "no"), 405, ERROR_UNSUPPORTED, "no"},
        {throwing(ERROR_ALREADY_EXISTS, "x"), 409, ERROR_ALREADY_EXISTS, "x"},
        {throwing(ERROR_STATE, "x"), 409, ERROR_STATE, "x"},
        {throwing(ERROR_CONTENT, "x"), 422, ERROR_CONTENT, "x"},
        {throwing(ERROR_LIMIT, "x"), 413, ERROR_LIMIT, "x"},
        {throwing(ERROR_DISK_FULL, "x"), 507, ERROR_DISK_FULL, "x"},
        {throwing(ERROR_IO, "x"), 500, ERROR_IO, "x"},
        {throwing(ERROR_BUSY, "x"), 500, ERROR_BUSY, "x"},
        {throwing(-12345, "x"), 500, -12345, "x"},
        {[] { json(5).get<std::string>(); }, 400, ERROR_PARAMETER,
         "[json.exception.type_error.302] type must be string, but is number"},
        {[] { json(5).value("a", 1); }, 400, ERROR_PARAMETER,
         "[json.exception.type_error.306] cannot use value() with number"},
        {[] { throw std::out_of_range("lost"); }, 500, ERROR_STATE, "lost"},
        {[] { throw 5; }, 500, ERROR_STATE, "the request failed for an unknown reason"},
    };
    for (const auto& [failure, status, code, detail] : cases) {
        const VxTestSupport::ScopedLogCapture log;
        fail = failure;
        const Answer answer = Send(Verb::Post, "/f", json::object());
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(answer.media, "application/problem+json");
        json problem = {{"title", ReasonPhrase(status)}, {"status", status}, {"detail", detail}};
        problem.update({{"instance", "/f"}, {"code", code}});
        EXPECT_EQ(answer.Json(), problem);
        EXPECT_EQ(log.Count("A request of \"/f\" failed."), status >= 500 ? 1 : 0) << status;
        EXPECT_EQ(log.Lines().empty(), status < 500);
    }
    fail = throwing(ERROR_LIMIT);
    EXPECT_EQ(StatusOf(Verb::Get, "/f"), 400u);  // there is no body that could be too large
    failing.immediate = true;
    EXPECT_EQ(StatusOf(Verb::Get, "/f"), 400u);

    FakeResource readOnly = FakeResource::WithDocument({{"a", 1}});
    router.Register("/ro", readOnly);
    EXPECT_EQ(StatusAndFields(Verb::Put, "/ro", "{}", asJson), "405 Allow: OPTIONS, GET, HEAD\r\n");
    EXPECT_EQ(StatusOf(Verb::Get, "/nowhere"), 404u);
    EXPECT_EQ(StatusOf(Verb::Get, "/%zz"), 400u);
    EXPECT_EQ(Ask(Verb::Post, "/f", "{", asJson).Json()["code"], ERROR_PARAMETER);
    EXPECT_EQ(Send(Verb::Post, "/f", std::vector<int>(200)).status, 413u);
}

TEST_F(Dispatch, NoticesAreTheServersOwn)
{
    EXPECT_EQ(StatusOf(Verb::Get, "/notifications"), 299u);
    EXPECT_EQ(Ask(Verb::Get, "/notifications?path=/jobs%2Fx").fields, "/jobs/x");
    EXPECT_EQ(StatusOf(Verb::Get, "/notifications?path=jobs"), 400u);
    EXPECT_EQ(StatusOf(Verb::Get, "/notifications?path=7"), 400u);
    EXPECT_EQ(StatusOf(Verb::Get, "/notifications", {}, {.accept = "application/json"}), 406u);
    EXPECT_EQ(Ask(Verb::Head, "/notifications").media, "text/event-stream");
    EXPECT_EQ(Ask(Verb::Post, "/notifications").fields, "Allow: OPTIONS, GET, HEAD\r\n");
}

}  // namespace
