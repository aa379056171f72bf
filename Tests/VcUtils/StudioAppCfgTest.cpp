#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>

#include <VxApi/Exception.h>
#include <VxCommon/AppInfoCfg/AppInfoCfg.h>
#include <VxCommon/StudioAppCfg/StudioAppCfg.h>
#include <VxTestSupport/HeapFailure.h>
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
        std::ifstream file(file_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
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
    cfg.Save(file_);
    cfg.Load(file_);
    EXPECT_EQ(cfg.ControlPort(), 65535);
    EXPECT_EQ(cfg.WebPort(), 0);
    EXPECT_EQ(cfg.IpAddress(), TesselLib::IpAddress{});
    EXPECT_FALSE(cfg.DiscoveryEnabled());
    EXPECT_EQ(cfg.DiscoveryPort(), 65535);
    EXPECT_EQ(cfg.DiscoveryInterval(), 60000U);
    EXPECT_FALSE(cfg.DebugEnabled());
    EXPECT_EQ(cfg.DebugLevel(), Vx::Logging::Level::Info);
    WriteFile("<StudioAppCfg/>");
    cfg.Load(file_);
    EXPECT_EQ(TextOf(cfg), TextOf(StudioAppCfg())) << "what a file leaves out has its default";
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
        std::vector<std::string> values;
        std::string expected;  // It begins with the element's name.
    } elements[] = {
        {{"", "-1", "65536", "80.5", "0x50", "8080a", "99999999999"}, "ControlPort must be a"},
        {{"8080"}, "ControlPort and WebPort must be different"},
        {{"80</WebPort><WebPort>81"}, "WebPort must be there once"},
        {{"80<x/>81", "<x/>"}, "WebPort must hold a value, but holds elements."},
        {{"", "+1", "65536", "8 0"}, "WebPort must be a"},
        {{"", "localhost", "1.2.3", "1.2.3.256", "::1"}, "IpAddress must be an address such as"},
        {{"", "True", "1", "yes"}, "DiscoveryEnabled must be true or false, but is"},
        {{"", "0", "65536"}, "DiscoveryPort must be a whole number from 1 to 65535, but is"},
        {{"", "99", "60001"}, "DiscoveryInterval must be a whole number from 100 to 60000"},
        {{"", "on"}, "DebugEnabled must be true or false, but is"},
        {{"", "0", "INFO", "none"}, "DebugLevel must be error, warning or info, but is"},
    };
    StudioAppCfg cfg;
    cfg.SetDiscoveryInterval(777);
    const std::string before = TextOf(cfg);
    for (const auto& [values, expected] : elements) {
        const std::string name = expected.substr(0, expected.find(' '));
        for (const std::string& value : values) {
            const std::string element = "<" + name + ">" + value + "</" + name + ">";
            SCOPED_TRACE(element);
            WriteFile("<StudioAppCfg>" + element + "</StudioAppCfg>");
            EXPECT_THAT([&] { cfg.Load(file_); },
                        Refuses(ERROR_PARAMETER, file_.string() + "\" cannot be used: " + expected));
            EXPECT_EQ(TextOf(cfg), before);
            EXPECT_THAT(FileText(), HasSubstr(element)) << "a refused file stays as it is";
        }
    }
    for (const auto& [text, said] : {std::pair<std::string, const char*>{"", "-988"},
                                     {"<Other/>", "must be StudioAppCfg, but is Other"},
                                     {{"\xFF\xFE<\0/\0", 6}, "must be a text in UTF-8, but is one in UTF-16"},
                                     {{"\0<\0/", 4}, "UTF-16"},
                                     {"<StudioAppCfg>" + std::string(70'000, ' ') + "</StudioAppCfg>", "-985"}}) {
        WriteFile(text);
        EXPECT_THAT(VxTestSupport::MessageThrown([&] { cfg.Load(file_); }),
                    testing::AllOf(HasSubstr(file_.string()), HasSubstr(said)));
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
    cfg.SetControlPort(0);
    cfg.SetWebPort(0);
    cfg.Save(file_);
}

TEST_F(StudioAppCfgTest, UnknownElementsAreToldOfAndStayAsTheFilesModeDoes)
{
    WriteFile(
        "<StudioAppCfg version='7'><Future a='1'><More>x &amp; y</More></Future><WebPort>81</WebPort>"
        "<webport>83</webport></StudioAppCfg>");
    ::chmod(file_.c_str(), 0600);
    StudioAppCfg cfg;
    cfg.Load(file_);
    EXPECT_THAT(cfg.Warnings(),
                testing::ElementsAre("The element Future is not known and is passed over.",
                                     "The element webport is not known and is passed over; did you mean WebPort?"));
    cfg.SetWebPort(82);
    cfg.Save(file_);
    EXPECT_THAT(FileText(), testing::ContainsRegex("<StudioAppCfg version=\"7\">\\s*<Future a=\"1\">\\s*"
                                                   "<More>x &amp; y</More>\\s*</Future>"));
    EXPECT_THAT(FileText(), testing::ContainsRegex("<WebPort>82</WebPort>\\s*<webport>83</webport>"));
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
    fs::remove(file_);
    fs::create_symlink("nowhere", file_);
    EXPECT_THAT([&] { cfg.Load(file_); }, Refuses(ERROR_NOT_FOUND, "is a link to \"nowhere\", which does not exist."));
    EXPECT_THAT([&] { cfg.Save(file_); }, Refuses(ERROR_NOT_FOUND, file_.string()));
    EXPECT_EQ(fs::read_symlink(file_), "nowhere");
}

TEST(ConfigurationMemoryTest, LackOfMemoryIsAStatus)
{
    StudioAppCfg cfg;
    const std::string text = TextOf(cfg);
    AppInfoCfg info;
    info.SetProductionVersion(std::string(100, '1'));
    info.ReleaseType() = std::string(100, '2');
    const std::function<void()> actions[] = {[&] { cfg.Write(), cfg.Read(text.data(), text.size()); },
                                             [&] { info.Write(); }};
    for (const auto& action : actions) {
        auto thrown = VxTestSupport::SweepHeap(action);
        EXPECT_EQ(thrown.back(), "");
        thrown.pop_back();
        EXPECT_THAT(thrown, testing::AllOf(testing::SizeIs(testing::Ge(4U)), testing::Each("-996")));
    }
}

}  // namespace
}  // namespace VxCommon
