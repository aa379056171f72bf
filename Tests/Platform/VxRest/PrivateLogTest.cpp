#include <future>

#include <gmock/gmock.h>

#include <Server/PrivateLog.h>

#include "TestResources.h"

namespace VxRestTests
{
namespace
{

using namespace Nucleo::Statuses;
using Nucleo::Status;

Status WriteText(Nucleo::Stream* stream)
{
    const std::string_view text = "one\r\nhalf \xC3 and \xFF\xFE\r\n";
    return stream->Write(text.data(), text.size());
}

Status FailHalfway(Nucleo::Stream* stream)
{
    stream->Write("half", 4);
    return ERROR_PARAMETER;
}

Status replaceFromInside = OK;
Status ReplaceItself(Nucleo::Stream*)
{
    replaceFromInside = VrHttpServer_SetPrivateLogHandler(nullptr, nullptr);
    return OK;
}

Gate* calls = nullptr;
Status PassGate(Nucleo::Stream*)
{
    calls->Pass();
    return OK;
}

class PrivateLogTest : public ServerFixture
{
protected:
    ~PrivateLogTest() override
    {
        gate.open.Set();
        VrHttpServer_SetPrivateLogHandler(nullptr, nullptr);
    }
};

TEST_F(PrivateLogTest, AnswersByHandlerAndMethod)
{
    Start();
    const struct
    {
        VrPrivateLogFx handler;
        const char* method;
        const char* accept;
        int status;
    } cases[] = {
        {nullptr, "GET", "*/*", 404},       {nullptr, "OPTIONS", "*/*", 404},
        {&WriteText, "GET", "text/*", 200}, {&WriteText, "GET", "application/json", 406},
        {&WriteText, "HEAD", "", 200},      {&WriteText, "OPTIONS", "", 204},
        {&WriteText, "POST", "", 405},      {&FailHalfway, "GET", "", 500},
        {&ReplaceItself, "GET", "", 200},
    };
    const std::string text = "one\r\nhalf \xEF\xBF\xBD and \xEF\xBF\xBD\xEF\xBF\xBD\r\n";
    for (const auto& [handler, method, accept, status] : cases) {
        SCOPED_TRACE(std::string(method) + " " + accept);
        ASSERT_EQ(VrHttpServer_SetPrivateLogHandler(handler, nullptr), OK);
        HttpClient client = Connect();
        client.SendRequest(method, "/private-log", {}, {{"Accept", accept}});
        const HttpReply reply = client.Receive(std::string_view(method) == "HEAD");
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(status >= 400, reply.Header("Content-Type") == "application/problem+json");
        EXPECT_TRUE(handler != &FailHalfway || reply.Json().at("code") == ERROR_PARAMETER);
        EXPECT_EQ(reply.Header("Allow"), status == 204 || status == 405 ? "OPTIONS, GET, HEAD" : "");
        if (handler == &WriteText && status == 200) {
            EXPECT_EQ(reply.Header("Content-Type"), "text/plain; charset=utf-8");
            EXPECT_EQ(reply.Header("Cache-Control"), "no-store");
            EXPECT_EQ(reply.Header("Content-Length"), std::to_string(text.size()));
            EXPECT_EQ(reply.body, std::string_view(method) == "GET" ? text : "");
        }
    }
    EXPECT_EQ(replaceFromInside, ERROR_STATE) << "it would wait for itself";
}

TEST_F(PrivateLogTest, IsShownOnThisMachineOrWithTheToken)
{
    ASSERT_EQ(VrHttpServer_SetPrivateLogHandler(&WriteText, nullptr), OK);
    Start([](HttpServerOptions& options) { options.token = "secret"; });
    EXPECT_EQ(Connect().Get("/private-log").status, 401);
    EXPECT_EQ(Connect().Get("/private-log", {{"Authorization", "Bearer secret"}}).status, 200);

    for (const VxRest::Http::Verb verb : {VxRest::Http::Verb::Get, VxRest::Http::Verb::Options}) {
        VxRest::Http::RequestHead head;
        head.verb = verb;
        EXPECT_THAT([&] { VxRest::Http::ExaminePrivateLog(head, false); },
                    testing::Throws<VxRest::Http::Refusal>(testing::Property(&VxRest::Http::Refusal::HttpStatus, 403)));
    }
}

TEST_F(PrivateLogTest, ReplacingWaitsForTheCallThatIsRunning)
{
    Start();
    calls = &gate;
    ASSERT_EQ(VrHttpServer_SetPrivateLogHandler(&PassGate, nullptr), OK);
    const HttpClient slowClient = Begin(Head("GET /private-log") + "\r\n");
    ASSERT_TRUE(gate.entered.Await());

    VrPrivateLogFx previous = nullptr;
    auto endedBefore = std::async(std::launch::async, [&] {
        EXPECT_EQ(VrHttpServer_SetPrivateLogHandler(nullptr, &previous), OK);
        return gate.left.load();
    });
    // The handler is gone for new requests while its call goes on.
    EXPECT_TRUE(Eventually([&] { return Connect().Request("OPTIONS", "/private-log").status == 404; }));
    gate.open.Set();
    EXPECT_TRUE(endedBefore.get());
    EXPECT_EQ(previous, &PassGate);
}

}  // namespace
}  // namespace VxRestTests
