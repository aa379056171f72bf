#include <Host/LogFilterWatch.h>
#include <Host/ProcessLog.h>
#include <VxApi/Logging.h>
#include <VxCommon/Logger/VcLogger.h>

#include "Rig.h"

namespace VxHostTest
{
namespace
{

using namespace Nucleo::Statuses;

TEST(ProcessLogTest, KeepsWhatIsLoggedDuringItsLifeAlone)
{
    for (int run = 0; run < 2; ++run) {
        {
            const VxHost::ProcessLog log;
            EXPECT_THAT([] { VxHost::ProcessLog(); }, Refuses(ERROR_ALREADY_EXISTS));
            Vx_Debug_Log(Info, "for developers");
            Vx::Logging::Public(Vx::Logging::Level::Error, "Test", "for users");
            EXPECT_EQ(VcLog_Count(VcLogger_PrivateLog()), 2U);
            ASSERT_EQ(VcLog_Count(VcLogger_PublicLog()), 1U);
            const VcLogMsg* message = VcLog_At(VcLogger_PublicLog(), 0);
            EXPECT_STREQ(VcLogMsg_Text(message), "for users");
            EXPECT_EQ(VcLogMsg_SourceId(message), 1U);
        }
        EXPECT_EQ(VcLogger_Instance(), nullptr);
        Vx_Debug_Log(Info, "for nobody");
    }
}

TEST(ProcessLogTest, WatchEmptiesFiltersThatHoldTooManyTexts)
{
    VxTestSupport::ScopedManualTime time;
    const VxHost::ProcessLog log(true);
    const VxHost::LogFilterWatch watch;
    const VxTestSupport::ScopedLogCapture lines;
    for (const std::size_t count : {VxHost::LogFilterWatch::MaxTexts, VxHost::LogFilterWatch::MaxTexts + 1}) {
        for (std::size_t i = VcLogger_FilterCount(); i < count; ++i) {
            Vx::Logging::Public(Vx::Logging::Level::Info, "Test", "%llu", i);
        }
        time.Advance(VxHost::LogFilterWatch::Period);
        const bool cleared = count > VxHost::LogFilterWatch::MaxTexts;
        EXPECT_EQ(VcLogger_FilterCount(), cleared ? 0U : count);
        EXPECT_EQ(lines.Count("The log filters held 10001 texts; they are emptied."), cleared ? 1 : 0);
    }
}

}  // namespace
}  // namespace VxHostTest
