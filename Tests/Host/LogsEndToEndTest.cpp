// The logs of vxhost as users and developers meet them.

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;
using VxTestSupport::HttpReply;
using VxTestSupport::TemporaryFolder;

json Refuse(const HostProcess& host)
{
    const HttpReply reply = host.Request("PATCH", "/settings/acquisition", R"({"exposure":2})");
    EXPECT_EQ(reply.status, 400);
    return reply.Json();
}

TEST(LogsEndToEndTest, ErrorsReachThePublicLogAndIdsGoOnAfterClearing)
{
    const TemporaryFolder folder;
    HostProcess host(folder.Path() / "data");
    const unsigned before = host.Get("/logs/summary").Json().at("idEnd");
    const std::string reason = Refuse(host).at("detail");
    ASSERT_EQ(host.Post("/jobs/files", R"({"name":"junk","content":"AAAA"})").status, 201);
    ASSERT_EQ(host.Post("/jobs/commands/load", R"({"name":"junk"})").status, 422);

    const json page = host.Get("/logs?schema=true&startId=" + std::to_string(before + 1)).Json();
    const json& logs = page.at("logs");
    ASSERT_EQ(logs.size(), 2U) << page;
    EXPECT_EQ(logs[0].at("text"), "A change of acquisition was refused: " + reason);
    EXPECT_EQ(logs[0].at("level"), 1);
    EXPECT_EQ(logs[0].at("id"), before + 1);
    EXPECT_THAT(logs[1].at("text").get<std::string>(), testing::StartsWith("Load job 'junk' failed"));
    EXPECT_EQ(logs[1].at("level"), 2);
    EXPECT_GT(logs[1].at("timestamp"), logs[0].at("timestamp"));
    EXPECT_TRUE(page.at("_schema").at("properties").contains("logs"));

    const std::string range = " is not within required range [1, " + std::to_string(before + 2) + "].";
    for (const auto& [query, detail] : std::initializer_list<std::pair<const char*, std::string>>{
             {"startId=0", "Requested start ID (0)" + range},
             {"startId=-1", "Requested start ID (4294967295)" + range},
             {"endId=1e300", "Requested end ID (4294967295)" + range},
             {"endId=18446744073709551616", "Requested end ID (4294967295)" + range},
             {"startId=true", "[json.exception.type_error.302] type must be number, but is boolean"},
             {"startId=", "[json.exception.type_error.302] type must be number, but is string"}}) {
        const HttpReply reply = host.Get(std::string("/logs?") + query);
        EXPECT_EQ(reply.status, 400) << query;
        EXPECT_EQ(reply.Json().at("code"), -997) << query;
        EXPECT_EQ(reply.Json().at("detail"), detail) << query;
    }

    VxTestSupport::EventReader notices(host.Port(), "/notifications?path=/logs");
    ASSERT_EQ(host.Post("/logs/commands/clear", "null").status, 204);
    const auto cleared = notices.Next();
    ASSERT_TRUE(cleared);
    EXPECT_EQ(cleared->Json(), json({{"path", "/logs/summary"}, {"type", 2}}));
    EXPECT_EQ(host.Get("/logs").Json().at("logs"), json::array());
    const json summary = host.Get("/logs/summary").Json();
    EXPECT_EQ(summary.at("idStart"), before + 3);
    EXPECT_EQ(summary.at("idEnd"), before + 2);

    Refuse(host);
    EXPECT_EQ(host.Get("/logs").Json().at("logs").at(0).at("id"), before + 3);
    EXPECT_EQ(host.Get("/status").Json().at("publicLogLastId"), before + 3);
    const Ended ended = host.Stop();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.errors, HasSubstr("A change of acquisition was refused: ")) << "the console shows it as well";
}

TEST(LogsEndToEndTest, PrivateLogShowsEveryLineAndDamageIsPublic)
{
    const TemporaryFolder folder;
    {
        HostProcess(folder.Path() / "data").Stop();
    }
    std::ofstream(folder.Path() / "data/user/Workspace.vpws", std::ios::binary) << "junk";
    std::ofstream(folder.Path() / "token") << "secret";
    const HostProcess host(folder.Path() / "data", {"--token-file", (folder.Path() / "token").string()});
    EXPECT_EQ(host.Get("/private-log").status, 401);

    const VxTestSupport::HttpHeaders token = {{"Authorization", "Bearer secret"}};
    const auto lastId = [&] { return host.Request("GET", "/status", {}, token).Json().at("privateLogLastId"); };
    const json before = lastId();
    const HttpReply page = host.Request("GET", "/private-log", {}, token);
    EXPECT_EQ(page.Header("Content-Type"), "text/plain; charset=utf-8");
    const auto lines = std::count(page.body.begin(), page.body.end(), '\n');
    EXPECT_GE(lines, before);
    EXPECT_LE(lines, lastId());
    EXPECT_THAT(page.body, HasSubstr("Info    Persistence/PersistManager: Constructing PersistManager.\r\n"));
    EXPECT_THAT(page.body, HasSubstr("Info    Host: vxhost listens on http://127.0.0.1:"));

    const std::string logs = host.Request("GET", "/logs", {}, token).body;
    EXPECT_THAT(logs, HasSubstr("The file Workspace.vpws is damaged"));
    EXPECT_THAT(logs, testing::Not(HasSubstr("Constructing PersistManager")));
}

}  // namespace
}  // namespace VxHostTest
