// The logs resources through the router, with request values and no socket.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Logs/LogsDir.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/RouterProbe.h>

using namespace Nucleo::Statuses;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class LogsDirTest : public testing::Test, public VxTestSupport::RouterProbe
{
protected:
    LogsDirTest()
    {
        EXPECT_EQ(VcLogger_Construct(logger.Receive(), 1, 0, nullptr), OK);
        directory.emplace();
        directory->Register(router);
    }

    // Leaves the ids 5 to 9.
    void Fill()
    {
        for (int i = 1; i <= 9; ++i) {
            Log(VcLogMsgType_Info, std::to_string(i));
            if (i == 4) {
                VcLogger_ClearPublicLogAndFilter();
            }
        }
        noticed.clear();
    }

    void Log(VcLogMsgType type, const std::string& text)
    {
        ASSERT_EQ(VcLogger_LogImpl(logger.Get(), VcLogger_PublicLog(), type, 0, text.c_str()), OK);
    }

    // The ids of a page, or the message of the failure.
    std::string Ids(const json& args)
    {
        try {
            const json document = Get("/logs", args);
            std::string ids;
            for (const json& entry : document.at("logs")) {
                ids += (ids.empty() ? "" : " ") + entry.at("id").dump();
            }
            return ids;
        } catch (const Vx::Exception& exception) {
            EXPECT_EQ(exception.Status(), ERROR_PARAMETER);
            return exception.File() + " " + exception.Function() + " " + std::to_string(exception.Line()) + ": " +
                   exception.what();
        } catch (const json::exception& exception) {
            return exception.what();
        }
    }

    Nucleo::Handle<VcLogger> logger;
    std::optional<VxCommon::LogsDir> directory;
};

TEST_F(LogsDirTest, PagesAreRangesOfHeldIds)
{
    Fill();
    const auto outside = [](const std::string& which, const char* id) {
        return which + " ID (" + id + ") is not within required range [5, 9].";
    };
    const std::string place = "Protocol/Logs/LogRes VxCommon::Internal::LogRes::Document ";
    const std::string start = place + "125: Requested start";
    const std::string end = place + "136: Requested end";
    const std::pair<json, std::string> cases[] = {
        {json::object(), "5 6 7 8 9"},
        {{{"startId", 7}}, "7 8 9"},
        {{{"endId", 9}}, "5 6 7 8 9"},
        {{{"startId", 6}, {"endId", 7}}, "6 7"},
        {{{"startId", 9}, {"endId", 5}}, ""},
        {{{"startId", 7.9}, {"endId", 8.0}}, "7 8"},
        {{{"startId", 4}}, outside(start, "4")},
        {{{"endId", 10}}, outside(end, "10")},
        {{{"startId", 4294967296 + 5}}, outside(start, "4294967295")},
        {{{"endId", std::uint64_t{18446744073709551615U}}}, outside(end, "4294967295")},
        {{{"endId", -0.5}}, outside(end, "0")},
        {{{"endId", nullptr}}, "[json.exception.type_error.302] type must be number, but is null"},
    };
    for (const auto& [args, shown] : cases) {
        EXPECT_EQ(Ids(args), shown) << args;
    }
    VcLogger_ClearPublicLogAndFilter();
    EXPECT_EQ(Ids(json::object()), "");
    EXPECT_EQ(Ids({{"startId", 10}}), start + " ID (10) is not within required range [10, 9].");
    EXPECT_EQ(Ids({{"endId", 9}}), end + " ID (9) is not within required range [10, 9].");
}

TEST_F(LogsDirTest, EntriesHaveLevelTextIdAndTime)
{
    Log(VcLogMsgType_Error, "text\xff");
    const json document = Get("/logs", json::object(), true);
    const std::uint64_t time = VcLogMsg_Timestamp(VcLog_At(VcLogger_PublicLog(), 0));
    EXPECT_EQ(document.at("logs"), json({{{"level", 2}, {"text", "text\xff"}, {"id", 1}, {"timestamp", time}}}));
    const json& fields = document.at("_schema").at("properties").at("logs").at("items").at("properties");
    EXPECT_EQ(fields.at("level").at("oneOf").at(2), json({{"const", 2}, {"title", "Error"}}));
    EXPECT_EQ(fields.at("timestamp").at("type"), "integer");
    EXPECT_FALSE(Get("/logs").contains("_schema"));
    EXPECT_TRUE(Get("/logs/summary", json::object(), true).at("_schema").at("properties").contains("idEnd"));
}

TEST_F(LogsDirTest, ListenersOfTheSummary)
{
    VxCommon::Internal::LogSummaryRes resource;
    VxCommon::Internal::LogSummaryRes copy(resource);
    int calls = 0;
    const auto count = copy.NotificationEvent().Subscribe([&](VxRest::EventType, const std::string&) { ++calls; });
    Log(VcLogMsgType_Info, "text");
    EXPECT_EQ(calls, 1);  // A copy follows the log itself.

    VcLogChangeArgs unknown{2, 1, 1};
    EXPECT_EQ(VxCommon::Internal::LogSummaryRes::OnLogSummaryChanged(&copy, nullptr, &unknown), OK);
    EXPECT_EQ(calls, 1);

    VcLogChangeArgs added{0, 1, 1};
    const VxTestSupport::ScopedLogCapture captured;
    const auto broken = copy.NotificationEvent().Subscribe(
        [](VxRest::EventType, const std::string&) { VX_THROW(ERROR_BUSY, "no room for the notice"); });
    EXPECT_EQ(VxCommon::Internal::LogSummaryRes::OnLogSummaryChanged(&copy, nullptr, &added), ERROR_BUSY);
    EXPECT_THAT(captured.Texts("Protocol/Logs/LogRes"),
                testing::Contains(testing::HasSubstr("no room for the notice")));
    EXPECT_EQ(captured.Lines().at(0).options, 0x8000000000000002U);
    const auto odd = resource.NotificationEvent().Subscribe([](VxRest::EventType, const std::string&) { throw 5; });
    EXPECT_EQ(VxCommon::Internal::LogSummaryRes::OnLogSummaryChanged(&resource, nullptr, &added), ERROR_STATE);
}

TEST_F(LogsDirTest, LeavesNothingBehind)
{
    EXPECT_THAT(router.Patterns(), ElementsAre("/logs", "/logs/commands/clear", "/logs/summary"));
    EXPECT_THROW(directory->Register(router), Vx::Exception);
    VxCommon::LogsDir second;
    EXPECT_THROW(second.Register(router), Vx::Exception);
    EXPECT_EQ(router.Patterns().size(), 3U);
    directory.reset();
    EXPECT_THAT(router.Patterns(), IsEmpty());
    Log(VcLogMsgType_Info, "nobody listens");
    EXPECT_THAT(noticed, IsEmpty());
}

}  // namespace
