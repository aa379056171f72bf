// The files that vxhost keeps beside its state: who used the data folder last, and the PC service's configuration.

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

void WriteFile(const fs::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(StartFilesTest, WhoUsedTheDataFolderLastIsCheckedAndNoted)
{
    const VxTestSupport::TemporaryFolder folder;
    const fs::path data = folder.Path() / "data";
    const fs::path file = data / "AppInfo.xml";
    EXPECT_THAT(HostProcess(data).Stop().errors, Not(HasSubstr("AppInfo.xml")));
    const std::string own = ReadFile(file);
    EXPECT_THAT(own, AllOf(HasSubstr("<ProductionVersion>1."), HasSubstr("<ReleaseType>Release</ReleaseType>")));

    const auto info = [](const std::string& version) {
        return "<AppInfo><ProductionVersion>" + version + "</ProductionVersion><ReleaseType>x</ReleaseType></AppInfo>";
    };
    const std::pair<std::string, std::string> cases[] = {
        {own, ""},
        {info("0.255.255.255"), ""},
        {info("1.0.0.1"), "last used by version 1.0.0.1, which is newer than 1."},
        {info("255"), "last used by version 255, which is newer"},
        {info("1.0.x"), "AppInfo.xml cannot be used (\"1.0.x\" is no version)"},
        {info(std::string(32, '1')), "AppInfo.xml cannot be used"},
        {"<AppInfo/>", "AppInfo.xml cannot be used"},
        {"", "AppInfo.xml cannot be used"},
        {std::string(100'000, 'x'), "AppInfo.xml cannot be used"},
    };
    for (const auto& [text, warning] : cases) {
        SCOPED_TRACE(text.substr(0, 60));
        WriteFile(file, text);
        HostProcess host(data);
        EXPECT_EQ(host.Get("/status").status, 200);
        EXPECT_EQ(ReadFile(file), own);
        const Ended ended = host.Stop();
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.errors.empty(), warning.empty()) << ended.errors;
        EXPECT_THAT(ended.errors, HasSubstr(warning));
    }
    // A file that cannot be replaced keeps nobody from starting either.
    fs::remove(file);
    fs::create_directories(file / "in the way");
    EXPECT_THAT(HostProcess(data).Stop().errors, HasSubstr("AppInfo.xml cannot be written"));
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
    HostProcess other(data, service);
    EXPECT_THAT(ReadFile(file), HasSubstr("<WebPort>8080</WebPort>"));
    const std::string port = std::to_string(other.Port());
    other.Stop();

    const auto configure = [&](const std::string& elements) {
        WriteFile(file, "<StudioAppCfg>" + elements + "</StudioAppCfg>");
    };
    // The port is taken by someone else: what vxhost says when it cannot have it is which port it wanted.
    HostProcess taker(folder.Path() / "other");
    const std::string taken = std::to_string(taker.Port());
    configure("<WebPort>" + taken + "</WebPort>");
    Ended ended = run(service);
    EXPECT_EQ(ended.code, 4);
    EXPECT_THAT(ended.errors, HasSubstr("127.0.0.1 port " + taken));
    configure("<WebPort>" + taken + "</WebPort><IpAddress>127.0.0.2</IpAddress><DebugLevel>info</DebugLevel>");
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

    for (const auto& [elements, informs] :
         {std::pair{"<DebugLevel>info</DebugLevel>", true},
          {"<DebugLevel>info</DebugLevel><DebugEnabled>false</DebugEnabled>", false}}) {
        configure(elements);
        HostProcess host(data, service);  // The port on its command line wins over the file's default.
        EXPECT_EQ(host.Stop().errors.find(" Info ") != std::string::npos, informs) << elements;
    }
    EXPECT_EQ(run({"--app", "studio"}).code, 2);
}

}  // namespace
}  // namespace VxHostTest
