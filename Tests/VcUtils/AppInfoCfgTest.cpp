#include <tuple>

#include <gmock/gmock.h>

#include <VxCommon/AppInfoCfg/AppInfoCfg.h>
#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/Thrown.h>

using namespace Nucleo::Statuses;

namespace VxCommon
{
namespace
{

AppInfoCfg Info(const std::string& version, const std::string& type)
{
    AppInfoCfg info;
    info.SetProductionVersion(version);
    info.ReleaseType() = type;
    return info;
}

/// "Read 53 -999": where an action fails and with what; "" when it does not.
template <class Action>
std::string Failure(Action action)
{
    const auto exception = VxTestSupport::Caught(action);
    if (!exception) {
        return "";
    }
    EXPECT_EQ(exception->File(), "AppInfoCfg/AppInfoCfg");
    const std::string scope = "VxCommon::AppInfoCfg::";
    EXPECT_EQ(exception->Function().substr(0, scope.size()), scope);
    return exception->Function().substr(scope.size()) + " " + std::to_string(exception->Line()) + " " +
           std::to_string(exception->Status());
}

TEST(AppInfoCfgTest, WritesWhatItReads)
{
    for (const auto& [version, type] : {std::pair<std::string, std::string>{"6.1.2.30", "Release"},
                                        {"", ""},
                                        {" <&>\"'\r\n ", "]]>"},
                                        {std::string(31, 'v'), "\xE2\x82\xAC"}}) {
        const std::vector<unsigned char> bytes = Info(version, type).Write();
        EXPECT_NE(bytes.back(), '\0');
        AppInfoCfg read = Info("old", "old");
        read.Read(bytes);
        EXPECT_EQ(read.ProductionVersion(), version);
        EXPECT_EQ(read.ReleaseType(), type);
    }
    const auto bytes = Info("1", "2").Write();
    EXPECT_THAT(std::string(bytes.begin(), bytes.end()),
                testing::EndsWith("<AppInfo>\n  <ProductionVersion>1</ProductionVersion>\n"
                                  "  <ReleaseType>2</ReleaseType>\n</AppInfo>\n"));
}

TEST(AppInfoCfgTest, DamageIsReportedAtItsStep)
{
    const std::string long32(32, 'x');
    const std::string version = "<ProductionVersion>9</ProductionVersion>";
    const std::string type = "<ReleaseType>T</ReleaseType>";
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"", "Read 47 -988", "old", "old"},
        {"<AppInfo>" + version + type + "</AppInfo>" + std::string(1, '\0'), "Read 47 -988", "old", "old"},
        {"<AppInfo>" + std::string(70'000, ' ') + "</AppInfo>", "Read 47 -985", "old", "old"},
        {"<AppInfo>" + type + "</AppInfo>", "Read 51 -999", "old", "old"},
        {"<AppInfo><x>" + version + type + "</x></AppInfo>", "Read 51 -999", "old", "old"},
        {"<AppInfo><ProductionVersion>" + long32 + "</ProductionVersion>" + type + "</AppInfo>", "Read 51 -995", "old",
         "old"},
        {"<AppInfo>" + version + "</AppInfo>", "Read 53 -999", "9", "old"},
        {"<AppInfo>" + version + "<ReleaseType>" + long32 + "</ReleaseType></AppInfo>", "Read 53 -995", "9", "old"},
        {"<AppInfo><ReleaseType/><more/><ProductionVersion>1<!-- --><![CDATA[2]]></ProductionVersion></AppInfo>", "",
         "12", ""},
    };
    for (const auto& [text, failure, readVersion, readType] : cases) {
        SCOPED_TRACE(text.substr(0, 100));
        AppInfoCfg info = Info("old", "old");
        EXPECT_EQ(Failure([&, &read = text] { info.Read(read.data(), read.size()); }), failure);
        EXPECT_EQ(info.ProductionVersion(), readVersion);
        EXPECT_EQ(info.ReleaseType(), readType);
    }
}

TEST(AppInfoCfgTest, MemoryFailuresAreReportedAtTheirStep)
{
    const auto bytes = Info("1", "2").Write();
    std::vector<std::string> failures;
    const std::function<void()> actions[] = {[] { Info("1", "2").Write(); }, [&] { AppInfoCfg().Read(bytes); }};
    for (const auto& action : actions) {
        VxTestSupport::SweepFailures([&](VxTestSupport::FailingAllocator& allocator) {
            const VxTestSupport::ScopedDefaultAllocator scope(allocator);
            failures.push_back(Failure(action));
        });
    }
    EXPECT_THAT(failures,
                testing::ElementsAre("Write 30 -996", "Write 31 -996", "", "Read 44 -996", "Read 45 -996", ""));
}

}  // namespace
}  // namespace VxCommon
