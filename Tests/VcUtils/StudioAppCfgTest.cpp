#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include <VxApi/Exception.h>
#include <VxCommon/StudioAppCfg/StudioAppCfg.h>
#include <VxTestSupport/TemporaryFolder.h>

using namespace Nucleo::Statuses;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace VxCommon
{
namespace
{

auto Refuses(Nucleo::Status status, const std::string& text)
{
    using Vx::Exception;
    return testing::Throws<Exception>(testing::AllOf(testing::Property(&Exception::Status, status),
                                                     testing::Property(&Exception::what, HasSubstr(text))));
}

std::string TextOf(const StudioAppCfg& cfg)
{
    const std::vector<unsigned char> bytes = cfg.Write();
    return {bytes.begin(), bytes.end()};
}

class StudioAppCfgTest : public testing::Test
{
protected:
    void WriteFile(const std::string& text) const { std::ofstream(file_, std::ios::binary) << text; }
    std::string FileText() const
    {
        std::ostringstream text;
        text << std::ifstream(file_, std::ios::binary).rdbuf();
        return text.str();
    }
    std::size_t FilesInFolder() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder_.Path()), fs::directory_iterator()));
    }

    const VxTestSupport::TemporaryFolder folder_;
    const fs::path file_ = folder_.Path() / StudioAppCfg::FileName;
};

TEST_F(StudioAppCfgTest, MissingFileIsMadeWithTheDefaults)
{
    StudioAppCfg cfg;
    cfg.SetWebPort(1);
    cfg.Load(file_);
    const std::string defaults =
        "<StudioAppCfg>\n  <ControlPort>8600</ControlPort>\n  <WebPort>8080</WebPort>\n"
        "  <IpAddress>127.0.0.1</IpAddress>\n  <DiscoveryEnabled>true</DiscoveryEnabled>\n"
        "  <DiscoveryPort>8601</DiscoveryPort>\n  <DiscoveryInterval>1000</DiscoveryInterval>\n"
        "  <DebugEnabled>true</DebugEnabled>\n  <DebugLevel>warning</DebugLevel>\n</StudioAppCfg>\n";
    EXPECT_THAT(FileText(), testing::EndsWith(defaults));
    EXPECT_EQ(TextOf(cfg), FileText());
    EXPECT_EQ(FilesInFolder(), 1U);
    EXPECT_THAT([&] { cfg.Load(folder_.Path() / "missing" / "file"); }, Refuses(ERROR_NOT_FOUND, "missing/file"));
}

TEST_F(StudioAppCfgTest, EveryElementIsReadAndWritten)
{
    WriteFile(
        "<StudioAppCfg><DebugLevel>info</DebugLevel><DebugEnabled>false</DebugEnabled>"
        "<DiscoveryInterval>60000</DiscoveryInterval><DiscoveryPort>65535</DiscoveryPort>"
        "<DiscoveryEnabled>\n false\t</DiscoveryEnabled><IpAddress>0.0.0.0</IpAddress>"
        "<WebPort>0</WebPort><ControlPort>65535</ControlPort></StudioAppCfg>");
    StudioAppCfg cfg;
    cfg.Load(file_);
    const auto check = [](const StudioAppCfg& c) {
        EXPECT_EQ(c.ControlPort(), 65535);
        EXPECT_EQ(c.WebPort(), 0);
        EXPECT_EQ(c.IpAddress(), TesselLib::IpAddress{});
        EXPECT_FALSE(c.DiscoveryEnabled());
        EXPECT_EQ(c.DiscoveryPort(), 65535);
        EXPECT_EQ(c.DiscoveryInterval(), 60000U);
        EXPECT_FALSE(c.DebugEnabled());
        EXPECT_EQ(c.DebugLevel(), Vx::Logging::Level::Info);
    };
    check(cfg);
    cfg.Save(file_);
    StudioAppCfg again;
    again.Load(file_);
    check(again);
    // What a file leaves out has its default, not what was there before.
    WriteFile("<StudioAppCfg/>");
    again.Load(file_);
    const StudioAppCfg defaults;
    EXPECT_EQ(again.IpAddress(), defaults.IpAddress());
    EXPECT_EQ(again.DiscoveryInterval(), defaults.DiscoveryInterval());
}

TEST_F(StudioAppCfgTest, SavingPassesOverWhatOthersLeftBesideTheFile)
{
    // Names that a killed process with the same number may have used.
    for (int number = 1; number <= 200; ++number) {
        std::ofstream(file_.string() + "." + std::to_string(::getpid()) + "-" + std::to_string(number) + ".tmp") << "x";
    }
    StudioAppCfg().Save(file_);
    EXPECT_EQ(FilesInFolder(), 201U);
}

TEST_F(StudioAppCfgTest, DamageInAnyElementIsRefusedByItsName)
{
    const struct
    {
        const char* name;
        std::vector<std::string> values;
        const char* expected;
    } elements[] = {
        {"ControlPort", {"", "-1", "65536", "80.5", "0x50", "8080a", "99999999999"}, "ControlPort must be a"},
        {"ControlPort", {"8080"}, "ControlPort and WebPort must be different"},
        {"WebPort", {"80<x/>81", "<x/>"}, "WebPort must hold a value, but holds elements."},
        {"WebPort", {"", "+1", "65536", "8 0"}, "WebPort must be a"},
        {"WebPort", {"8600"}, "both are \"8600\""},
        {"IpAddress", {"", "localhost", "1.2.3", "1.2.3.256", "::1"}, "IpAddress must be an address such as"},
        {"DiscoveryEnabled", {"", "True", "1", "yes"}, "DiscoveryEnabled must be true or false, but is"},
        {"DiscoveryPort", {"", "0", "65536"}, "DiscoveryPort must be a whole number from 1 to 65535, but is"},
        {"DiscoveryInterval", {"", "99", "60001"}, "DiscoveryInterval must be a whole number from 100 to 60000"},
        {"DebugEnabled", {"", "on"}, "DebugEnabled must be true or false, but is"},
        {"DebugLevel", {"", "0", "INFO", "none"}, "DebugLevel must be error, warning or info, but is"},
    };
    StudioAppCfg cfg;
    cfg.SetDiscoveryInterval(777);
    const std::string before = TextOf(cfg);
    for (const auto& [name, values, expected] : elements) {
        const std::string start = std::string("<") + name + ">";
        const std::string end = std::string("</") + name + ">";
        for (const std::string& value : values) {
            SCOPED_TRACE(start + value);
            WriteFile("<StudioAppCfg><DiscoveryInterval>555</DiscoveryInterval>" + start + value + end +
                      "</StudioAppCfg>");
            const bool twice = std::string(name) == "DiscoveryInterval";
            EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(ERROR_PARAMETER, twice ? "once" : expected));
            WriteFile("<StudioAppCfg>" + start + value + end + "</StudioAppCfg>");
            EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(ERROR_PARAMETER, expected));
            EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(ERROR_PARAMETER, file_.string()));
            EXPECT_EQ(TextOf(cfg), before);
            EXPECT_THAT(FileText(), HasSubstr(start)) << "a refused file stays as it is";
        }
    }
    for (const auto& [text, status] :
         {std::pair<std::string, Nucleo::Status>{"", ERROR_FORMAT},
          {"<StudioAppCfg>", ERROR_FORMAT},
          {"<Other/>", ERROR_FORMAT},
          {"<StudioAppCfg>" + std::string(70'000, ' ') + "</StudioAppCfg>", ERROR_LIMIT}}) {
        WriteFile(text);
        EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(status, file_.string())) << text.substr(0, 20);
    }
    EXPECT_EQ(TextOf(cfg), before);
}

TEST_F(StudioAppCfgTest, SettersKeepTheirBounds)
{
    StudioAppCfg cfg;
    const std::string before = TextOf(cfg);
    EXPECT_THAT([&] { cfg.SetDiscoveryPort(0); }, Refuses(ERROR_PARAMETER, "DiscoveryPort"));
    EXPECT_THAT([&] { cfg.SetDiscoveryInterval(99); }, Refuses(ERROR_PARAMETER, "but is \"99\""));
    EXPECT_THAT([&] { cfg.SetDiscoveryInterval(60001); }, Refuses(ERROR_PARAMETER, "from 100 to 60000"));
    EXPECT_THAT([&] { cfg.SetIpAddress({{1}, TesselLib::IpVersion::V6}); }, Refuses(ERROR_PARAMETER, "IpAddress"));
    EXPECT_THAT([&] { cfg.SetDebugLevel(static_cast<Vx::Logging::Level>(3)); }, Refuses(ERROR_PARAMETER, "DebugLevel"));
    EXPECT_EQ(TextOf(cfg), before);
    // Ports may meet on the way to other values, but not in a file.
    cfg.SetControlPort(8080);
    EXPECT_THAT([&] { cfg.Save(file_); }, Refuses(ERROR_PARAMETER, "ControlPort and WebPort must be different"));
    EXPECT_EQ(FilesInFolder(), 0U);
    cfg.SetWebPort(8600);
    cfg.Save(file_);
    cfg.SetControlPort(0);
    cfg.SetWebPort(0);
    cfg.Save(file_);
}

TEST_F(StudioAppCfgTest, UnknownElementsAndTheFilesModeStay)
{
    WriteFile(
        "<StudioAppCfg version='7'><Future a='1'><More>x &amp; y</More></Future><WebPort>81</WebPort>"
        "<Future/></StudioAppCfg>");
    ::chmod(file_.c_str(), 0600);
    StudioAppCfg cfg;
    cfg.Load(file_);
    cfg.SetWebPort(82);
    const StudioAppCfg copy = cfg;
    copy.Save(file_);
    EXPECT_THAT(FileText(), HasSubstr("<StudioAppCfg version=\"7\">"));
    EXPECT_THAT(FileText(), testing::ContainsRegex("<Future a=\"1\">\\s*<More>x &amp; y</More>\\s*</Future>"));
    EXPECT_THAT(FileText(), testing::ContainsRegex("<WebPort>82</WebPort>\\s*<Future ?/>"));
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(StudioAppCfgTest, FailedReplacementLeavesNothingBehind)
{
    fs::create_directories(file_ / "in the way");
    StudioAppCfg cfg;
    EXPECT_THAT([&] { cfg.Save(file_); }, Refuses(ERROR_ACCESS, file_.string()));
    EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(ERROR_ACCESS, file_.string()));
    EXPECT_EQ(FilesInFolder(), 1U);
    fs::remove_all(file_);
    ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
    EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(ERROR_ACCESS, file_.string())) << "and nobody waits for a writer";
}

}  // namespace
}  // namespace VxCommon
