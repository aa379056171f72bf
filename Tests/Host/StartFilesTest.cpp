// The files that vxhost keeps beside its state: who used the data folder, and the PC service's configuration.

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Host/AppInfo.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

TEST(StartFilesTest, WhoUsedTheDataFolderIsCheckedAndNoted)
{
    const VxTestSupport::TemporaryFolder folder;
    const fs::path file = folder.Path() / "AppInfo.xml";
    const auto warnings = [&] {
        const VxTestSupport::ScopedLogCapture log;
        VxHost::RecordAppInfo(folder.Path());
        std::string text;
        for (const std::string& line : log.Texts("Start")) {
            text += line;
        }
        return text;
    };
    EXPECT_EQ(warnings(), "") << "a folder that nobody has used";
    const std::string own = ReadFile(file);
    EXPECT_THAT(own, AllOf(HasSubstr("<ProductionVersion>1."), HasSubstr("<ReleaseType>Release</ReleaseType>")));

    const auto info = [](const std::string& version) {
        return "<AppInfo><ProductionVersion>" + version + "</ProductionVersion><ReleaseType>x</ReleaseType></AppInfo>";
    };
    const struct
    {
        std::string text;
        std::string warning;
        bool stays = false;
    } cases[] = {
        {own, ""},
        {info("0.255.255.255"), ""},
        {info("1.0.0.1"), "W The data folder was used by version 1.0.0.1, which is newer than 1.", true},
        {info("255"), "W The data folder was used by version 255, which is newer", true},
        {info("1.0.x"), "W AppInfo.xml cannot be used (\"1.0.x\" is no version)"},
        {info(std::string(32, '1')), "W AppInfo.xml cannot be used"},
        {"<AppInfo/>", "W AppInfo.xml cannot be used"},
        {"", "W AppInfo.xml cannot be used"},
        {std::string(100'000, 'x'), "W AppInfo.xml cannot be used"},
    };
    for (const auto& [text, warning, stays] : cases) {
        SCOPED_TRACE(text.substr(0, 60));
        WriteFile(file, text);
        for (const bool again : {false, true}) {
            const std::string said = warnings();
            EXPECT_EQ(said.empty(), warning.empty() || (again && !stays)) << said;
            EXPECT_THAT(said, HasSubstr(again && !stays ? "" : warning));
            EXPECT_EQ(ReadFile(file), stays ? text : own);
        }
    }
    fs::remove(file);
    fs::create_directories(file / "in the way");
    EXPECT_THAT(warnings(), HasSubstr("AppInfo.xml cannot be read now")) << "which keeps nobody from starting";
}

TEST(StartFilesTest, ServiceTakesItsConfigurationAndTheCommandLineWins)
{
    const VxTestSupport::TemporaryFolder folder;
    const fs::path data = folder.Path() / "data";
    const fs::path file = data / "StudioAppCfg.xml";
    const std::vector<std::string> service{"--app", "service"};
    const auto run = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--data", data.string()});
        return HostProcess::Run(arguments);
    };
    EXPECT_EQ(HostProcess(data).Stop().code, 0);
    EXPECT_FALSE(fs::exists(file)) << "only the service has it";
    EXPECT_TRUE(fs::exists(data / "AppInfo.xml"));
    HostProcess(data, service).Stop();
    EXPECT_THAT(ReadFile(file), HasSubstr("<WebPort>8080</WebPort>"));

    const auto configure = [&](const std::string& elements) {
        WriteFile(file, "<StudioAppCfg>" + elements + "</StudioAppCfg>");
    };
    // The port is taken by someone else: what vxhost says when it cannot have it is which port it wanted.
    HostProcess taker(folder.Path() / "other");
    const std::string taken = std::to_string(taker.Port());
    const std::string port = "<WebPort>" + taken + "</WebPort>";
    const std::string used = " Host: \"" + file.string() + "\" gives ";
    configure(port + "<DebugLevel>info</DebugLevel><webport>1</webport>");
    Ended ended = run(service);
    EXPECT_EQ(ended.code, 4);
    EXPECT_THAT(ended.errors,
                AllOf(HasSubstr("127.0.0.1 port " + taken),
                      HasSubstr(used + "address 127.0.0.1, port " + taken + ", log level info.\n"),
                      HasSubstr("Warning Host: \"" + file.string() + "\": The element webport is not known and is ")));
    configure(port + "<IpAddress>127.0.0.2</IpAddress><DebugLevel>info</DebugLevel>");
    ended = run({"--app", "service", "--address", "127.0.0.1", "--log-level", "error"});
    EXPECT_EQ(ended.code, 4);
    EXPECT_THAT(ended.errors, AllOf(HasSubstr("127.0.0.1 port " + taken), Not(HasSubstr(" Info "))));
    configure("<WebPort>0</WebPort><IpAddress>0.0.0.0</IpAddress>");
    ended = run(service);
    EXPECT_EQ(ended.code, 2);
    EXPECT_THAT(ended.errors, HasSubstr("token"));
    configure("<WebPort>http</WebPort>");
    ended = run({"--app", "service", "--port", "0"});
    EXPECT_EQ(ended.code, 2);
    EXPECT_THAT(ended.errors, HasSubstr("WebPort must be a whole number from 0 to 65535, but is \"http\"."));

    configure("<DebugLevel>info</DebugLevel><DebugEnabled>false</DebugEnabled>");
    EXPECT_EQ(HostProcess(data, service).Stop().errors, "");
}

}  // namespace
}  // namespace VxHostTest
