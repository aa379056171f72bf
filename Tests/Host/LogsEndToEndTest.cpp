// The logs and the problems of vxhost as users and developers meet them.

#include <algorithm>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxTestSupport/Gate.h>
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

TEST(LogsEndToEndTest, DamageIsPublicAndAProblemAndThePrivateLogShowsEveryLine)
{
    const TemporaryFolder folder;
    const auto data = folder.Path() / "data";
    HostProcess(data).Stop();
    WriteFile(data / "user/Workspace.vpws", "junk");
    WriteFile(folder.Path() / "token", "secret");
    const HostProcess host(data, {"--token-file", (folder.Path() / "token").string(), "--filter-public-log",
                                  "--storage-warning", "0", "--storage-limit", "100", "--max-body-bytes", "20"});
    const VxTestSupport::HttpHeaders token = {{"Authorization", "Bearer secret"}};
    const auto get = [&](const char* target) { return host.Request("GET", target, {}, token); };
    EXPECT_EQ(host.Get("/private-log").status, 401);
    const auto lastId = [&] { return get("/status").Json().at("privateLogLastId"); };
    const json before = lastId();
    const HttpReply page = get("/private-log");
    EXPECT_EQ(page.Header("Content-Type"), "text/plain; charset=utf-8");
    const auto lines = std::count(page.body.begin(), page.body.end(), '\n');
    EXPECT_GE(lines, before);
    EXPECT_LE(lines, lastId());
    EXPECT_THAT(page.body, HasSubstr("Info    Persistence/PersistManager: Constructing PersistManager.\r\n"));
    EXPECT_THAT(page.body, HasSubstr("Platform Attributes: operatingSystem 2, virtual controller, PixoraFirmware "
                                     "interface IP 127.0.0.1 application id 1\r\n"));
    EXPECT_THAT(page.body, HasSubstr("Info    Host: vxhost listens on http://127.0.0.1:"));

    const std::string logs = get("/logs").body;
    EXPECT_THAT(logs, HasSubstr("The file Workspace.vpws is damaged"));
    EXPECT_THAT(logs, testing::Not(HasSubstr("Constructing PersistManager")));

    // From the first request on; other problems depend on the machine.
    const std::string damage = R"("source":"Start")";
    EXPECT_THAT(
        get("/problems").body,
        testing::AllOf(HasSubstr(damage), HasSubstr(R"({"msg":"The storage of the data folder is more than 0 % )"
                                                    R"(full.","severity":0,"source":"Storage"})")));
    std::filesystem::remove(data / "user/Workspace.vpws.d01");
    EXPECT_TRUE(VxTestSupport::Eventually([&] { return get("/problems").body.find(damage) == std::string::npos; }));

    EXPECT_EQ(host.Request("PATCH", "/settings/layout", R"({"page":"more than twenty"})", token).status, 413);
    const json first = get("/status").Json();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(host.Request("PATCH", "/settings/layout", R"({"zoom":2})", token).status, 400);
    }
    const json second = get("/status").Json();
    EXPECT_EQ(second.at("publicLogLastId"), first.at("publicLogLastId").get<int>() + 1) << "the second one is filtered";
    EXPECT_GT(second.at("logFilterTexts"), 0);
}

}  // namespace
}  // namespace VxHostTest
