// vxhost as its users meet it: settings, notices and jobs over a restart; its command line; its files under attack.

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

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
using VxTestSupport::EventReader;
using VxTestSupport::HttpReply;
using VxTestSupport::TemporaryFolder;
namespace fs = std::filesystem;

json Document(const HostProcess& host, std::string_view target)
{
    const HttpReply reply = host.Get(target);
    EXPECT_EQ(reply.status, 200) << target << ": " << reply.body;
    json document = reply.Json();
    document.erase("_links");
    return document;
}

/// The paths of the next `count` notices, in order, but for those that come by themselves.
std::vector<std::string> Notices(EventReader& reader, std::size_t count)
{
    std::vector<std::string> notices;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (notices.size() < count && std::chrono::steady_clock::now() < end) {
        const auto event = reader.Next();
        if (!event) {
            break;
        }
        const auto path = event->Json().at("path").get<std::string>();
        if (!path.starts_with("/metrics") && !path.starts_with("/health")) {
            notices.push_back(event->event + " " + path);
        }
    }
    return notices;
}

TEST(HostEndToEndTest, ChangesAreToldInOrder)
{
    const TemporaryFolder folder;
    HostProcess host(folder.Path() / "data");
    EventReader notices(host.Port());
    ASSERT_EQ(host.Put("/settings/acquisition", R"({"exposure":2500})").status, 204);
    EXPECT_THAT(Notices(notices, 2), testing::ElementsAre("updated /settings/acquisition", "updated /jobs"));
    ASSERT_EQ(host.Post("/jobs/commands/save", R"({"name":"A"})").status, 204);
    EXPECT_THAT(Notices(notices, 2), testing::ElementsAre("created /jobs/files/A", "updated /jobs"));
    ASSERT_EQ(host.Request("PATCH", "/settings/acquisition", R"({"exposure":50,"gain":3})").status, 204);
    EXPECT_THAT(Notices(notices, 2), testing::ElementsAre("updated /settings/acquisition", "updated /jobs"));
    ASSERT_EQ(host.Post("/jobs/commands/load", R"({"name":"A"})").status, 204);
    EXPECT_THAT(Notices(notices, 2), testing::ElementsAre("updated /settings/acquisition", "updated /jobs"));
    EXPECT_EQ(Document(host, "/settings/acquisition").at("gain"), 0);
    EXPECT_EQ(host.Stop().output, "") << "the ready line is the only one";
}

TEST(HostEndToEndTest, EntryPointsLinkToWhatThereIs)
{
    const TemporaryFolder folder;
    HostProcess host(folder.Path() / "data", {"--nodes", "3", "--app", "accelerator"});
    for (const auto& [target, count] :
         {std::pair{"/", 9U}, {"/settings", 3U}, {"/health", 2U}, {"/health/nodes", 4U}, {"/health/sets", 1U}}) {
        const json links = host.Get(target).Json().at("_links");
        EXPECT_EQ(links.at("self").at("href"), target);
        EXPECT_EQ(links.at("item").size(), count);
        for (const json& item : links.at("item")) {
            const auto path = item.at("href").get<std::string>();
            EXPECT_EQ(host.Request("HEAD", path).status, 200) << path;
        }
        EXPECT_EQ(host.Put(target, "{}").status, 405);
    }
    const json status = Document(host, "/status");
    EXPECT_EQ(status.at("nodes"), 4);
    EXPECT_GT(status.at("requests"), 8);
    EXPECT_GT(status.at("freeSpace"), 0);
    EXPECT_EQ(status.at("application"), "AccelixFirmware");
    EXPECT_EQ(status.at("controllerType"), "virtual");
    EXPECT_EQ(status.at("address"), "127.0.0.1");
    EXPECT_EQ(status.at("webPort"), host.Port());
    EXPECT_EQ(status.at("controlPort"), 0);
    EXPECT_EQ(status.at("jobUnsaved"), false);
    const json schema = Document(host, "/settings/acquisition?schema=true").at("_schema").at("properties");
    EXPECT_EQ(schema.at("exposure").at("units"), "us");
    // A document that was read can be sent back as it is.
    EXPECT_EQ(host.Put("/settings/acquisition", host.Get("/settings/acquisition?schema=true").body).status, 204);
    EXPECT_EQ(Document(host, "/jobs").at("loadedJobDirty"), false);
}

TEST(HostEndToEndTest, CommandLineMistakesAreExplained)
{
    const TemporaryFolder folder;
    const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
    WriteFile(path("empty"), " \n");
    WriteFile(path("large"), std::string(5000, 'x'));
    WriteFile(path("file"), "");
    HostProcess other(folder.Path() / "used");
    const struct
    {
        std::vector<std::string> arguments;
        int code;
        std::string message;
    } cases[] = {
        {{"--port", "65536"}, 2, "--port: must be a whole number from 0 to 65535, but is \"65536\""},
        {{"--nodes", "257"}, 2, "--nodes: must be a whole number from 0 to 256, but is \"257\""},
        {{"--nodes"}, 2, "--nodes: needs a value: Simulated nodes beside the local one, 256 at most"},
        {{"--workers", "-1"}, 2, "--workers: must be a whole number from 0 to 18446744073709551615, but is \"-1\""},
        {{"--storage-size", "99999999999999999999"}, 2, "--storage-size: must be a whole number"},
        {{"--storage-warning", "99"},
         2,
         "--storage-warning: must not be above --storage-limit, which is 98, but is 99"},
        {{"--idle-timeout", "0x10"}, 2, "--idle-timeout: must be a whole number from 1 to 86400000"},
        {{"--app", "studio"}, 2, "--app: must be one of accelerator, sensor, service, but is \"studio\""},
        {{"--max-json-depth", "0100000"}, 2, "jsonDepth is 100000"},
        {{"surplus"}, 2, "surplus"},
        {{"--data", ""}, 2, "--data: must name a folder"},
        {{"--token-file", path("missing")}, 2, "No such file"},
        {{"--token-file", folder.Path().string()}, 2, "Is a directory"},
        {{"--token-file", path("empty")}, 2, "holds no token"},
        {{"--token-file", path("large")}, 2, "larger than 4096 bytes"},
        {{"--address", "everywhere"}, 2, "everywhere"},
        {{"--address", "0.0.0.0"}, 2, "needs a token"},
        {{"--data", path("file/x")}, 3, "--data: \"" + path("file") + "\" must be a folder, but is a file"},
        {{"--data", path("used")}, 3, "\"" + path("used") + "\" is in use by another process"},
        {{"--port", std::to_string(other.Port())}, 4, std::to_string(other.Port())},
    };
    for (const auto& [arguments, code, message] : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        std::vector<std::string> all;
        for (const auto& [option, value] :
             {std::pair{"--data", path("fresh")}, {"--port", "0"}, {"--log-level", "error"}}) {
            if (arguments.front() != option) {
                all.insert(all.end(), {option, value});
            }
        }
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Ended ended = HostProcess::Run(all);
        EXPECT_EQ(ended.code, code);
        EXPECT_EQ(ended.output, "");
        EXPECT_THAT(ended.errors, testing::StartsWith("vxhost: "));
        EXPECT_THAT(ended.errors, HasSubstr(message));
        EXPECT_TRUE(code != 2 || !fs::exists(path("fresh"))) << "a mistake leaves nothing behind";
    }
    EXPECT_THAT(HostProcess::Run({"--help"}).output, HasSubstr("--token-file"));
    EXPECT_EQ(other.Get("/jobs").status, 200) << "the first host is not disturbed by the second";
}

TEST(HostEndToEndTest, SignalsSaveWhatIsStillInTheDebounceAndEndAllInOrder)
{
    const struct
    {
        std::vector<int> signals;
        std::string said;
        std::vector<std::string> starter = {};
    } cases[] = {
        {{SIGTERM}, "SIGTERM"},
        {{SIGINT}, "SIGINT"},
        {{SIGTERM, SIGINT, SIGTERM}, "SIG"},
        {{SIGHUP}, "SIGHUP"},  // What a terminal that is closed sends.
        {{SIGHUP, SIGTERM}, "SIGTERM", {"nohup"}},
        {{SIGTERM}, "SIGTERM"},
    };
    const TemporaryFolder folder;
    std::string name = "virtual-controller";
    for (const auto& [signals, said, starter] : cases) {
        SCOPED_TRACE(testing::PrintToString(signals));
        HostProcess host(folder.Path() / "data", {"--log-level", "info"}, starter);
        EXPECT_EQ(Document(host, "/settings/network").at("name"), name);
        name += "x";
        ASSERT_EQ(host.Put("/settings/network", json{{"name", name}}.dump()).status, 204);
        for (const int signal : signals) {
            host.Signal(signal);
        }
        const Ended ended = host.Wait();
        EXPECT_EQ(ended.code, 0);
        const auto at = [&errors = ended.errors](const std::string& text) { return errors.find(text); };
        EXPECT_LT(at(" vxhost stops after " + said), at("Destroying PersistManager."));
        EXPECT_LT(ended.errors.rfind("aving GLOBAL"), at("Destroying PersistManager."));
        EXPECT_LT(at("Destroying PersistManager."), at("Stopping Health..."));
        ASSERT_NE(at("Stopping Health..."), std::string::npos);
    }
}

TEST(HostEndToEndTest, StopRightAfterAReportDropsNothingAndWarnsOfNothing)
{
    const TemporaryFolder folder;
    HostProcess(folder.Path() / "data").Stop();  // The first start says that it makes the record.
    for (int run = 0; run < 4; ++run) {
        HostProcess host(folder.Path() / "data", {"--nodes", "256"});
        ASSERT_TRUE(EventReader(host.Port(), "/notifications?path=/metrics").Next());
        EXPECT_THAT(host.Stop().errors, testing::Not(testing::ContainsRegex("(Warning|Error) +[^P]")))
            << "except for problems of the machine";
    }
}

TEST(HostEndToEndTest, StateThatCannotBeSavedAtTheEndIsSaid)
{
    const TemporaryFolder folder;
    HostProcess host(folder.Path() / "data");
    fs::remove_all(folder.Path() / "data/tmp");  // No upload can begin any more.
    ASSERT_EQ(host.Put("/settings/layout", R"({"zoom":110})").status, 204);
    EXPECT_GE(host.Post("/jobs/commands/save", R"({"name":"A"})").status, 400);
    const Ended ended = host.Stop();
    EXPECT_EQ(ended.code, 5);
    EXPECT_THAT(ended.errors, HasSubstr("vxhost: the WORKSPACE domain could not be saved: "));
    EXPECT_THAT(ended.errors, testing::Not(HasSubstr("the GLOBAL domain could not be saved")));
}

TEST(HostEndToEndTest, KillDuringWritesLeavesOldOrNewStateAndAllThatWasConfirmed)
{
    const TemporaryFolder folder;
    const fs::path data = folder.Path() / "data";
    int exposure = 100;
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        HostProcess host(data, {"--log-level", "error"});
        std::atomic<int> confirmed = exposure;
        std::atomic<int> sent = exposure;
        std::thread writer([&] {
            try {
                VxTestSupport::HttpClient client(host.Port());
                const auto done = [&](const char* method, const char* target, const json& body) {
                    return client.Request(method, target, body.dump()).status == 204;
                };
                while (done("PUT", "/settings/acquisition", {{"exposure", ++sent}}) &&
                       done("PUT", "/settings/layout", {{"zoom", std::min(sent.load(), 1000)}}) &&
                       done("POST", "/jobs/commands/save", {{"name", "A"}})) {
                    confirmed = sent.load();
                }
            } catch (const std::exception&) {
                // The connection breaks with the kill.
            }
        });
        // A few saves later, somewhere inside the next one.
        const int enough = exposure + 1 + round % 4;
        EXPECT_TRUE(VxTestSupport::Eventually([&] { return confirmed >= enough; }, std::chrono::seconds(60)));
        host.Kill();
        writer.join();
        ASSERT_GT(confirmed, exposure);

        HostProcess after(data, {"--log-level", "error"});
        ASSERT_EQ(after.Post("/jobs/commands/load", R"({"name":"A"})").status, 204);
        const int found = Document(after, "/settings/acquisition").at("exposure").get<int>();
        EXPECT_GE(found, confirmed);
        EXPECT_LE(found, sent);
        const int zoom = Document(after, "/settings/layout").at("zoom").get<int>();
        EXPECT_TRUE(zoom == 100 || (zoom > 100 && zoom <= sent)) << zoom;
        const Ended ended = after.Stop();
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.errors, "") << "nothing was damaged";
        exposure = sent;
    }
}

}  // namespace
}  // namespace VxHostTest
