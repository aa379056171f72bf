// "/problems" through the router, with request values and no socket.

#include <atomic>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Problems/ProblemsDir.h>
#include <VxTestSupport/LogCapture.h>

using nlohmann::json;
using testing::ElementsAre;
using VxCommon::ProblemsDir;
using VxCommon::ProblemsManager;

namespace
{

class ProblemsResourceTest : public testing::Test
{
protected:
    json Get(bool schema = false)
    {
        const auto match = router.Find("/problems");
        VxRest::ResponseInfo response;
        return match.Document({"/problems", match.Keys(), json::object(), schema}, response);
    }

    ProblemsManager manager;
    VxRest::ResourceRouter router;
    std::optional<ProblemsDir> directory{manager};
};

TEST_F(ProblemsResourceTest, ShowsTheListInOrderWithItsSchemaOnRequest)
{
    directory->Register(router);
    EXPECT_EQ(Get(), json::parse(R"({"items": []})"));
    manager.Add(VcProblemSeverity_Potential, "b", "hot");
    manager.Add(VcProblemSeverity_Blocking, "a", "hot");
    EXPECT_EQ(Get(), json::parse(R"({"items": [{"msg": "hot", "source": "b", "severity": 0},
                                               {"msg": "hot", "source": "a", "severity": 1}]})"));
    const json withSchema = Get(true);
    EXPECT_EQ(withSchema.at("items").size(), 2U);
    EXPECT_EQ(withSchema.at("_schema").at("properties").at("severity"),
              json::parse(R"({"type": "integer", "title": "severity", "sortOrder": 200, "oneOf": [
                              {"const": 0, "title": "Potential"}, {"const": 1, "title": "Blocking"}]})"));
    EXPECT_EQ(withSchema.at("_schema").at("properties").at("msg").at("type"), "string");
}

TEST_F(ProblemsResourceTest, EveryNotificationIsANotice)
{
    std::vector<std::string> notices;
    const Vx::Subscription subscription =
        router.NotificationEvent().Subscribe([&](VxRest::EventType type, const std::string& path) {
            notices.push_back(std::to_string(static_cast<int>(type)) + " " + path);
            if (notices.size() == 3) {
                throw std::runtime_error("no client");
            }
        });
    directory->Register(router);
    EXPECT_THROW(directory->Register(router), Vx::Exception);
    const auto problem = manager.Add(VcProblemSeverity_Potential, "a", "hot");
    manager.BeginUpdate();
    manager.Add(VcProblemSeverity_Potential, "b", "hot");
    manager.Remove(problem);
    manager.EndUpdate();
    EXPECT_THAT(notices, ElementsAre("2 /problems", "2 /problems"));
    const VxTestSupport::ScopedLogCapture log;
    manager.Add(VcProblemSeverity_Blocking, "c", "hot");
    EXPECT_EQ(manager.Count(), 2U) << "a notice that fails undoes nothing";
    EXPECT_THAT(log.Texts("Protocol/Problems/ProblemRes"), testing::Contains(testing::HasSubstr("no client")));

    directory->Deregister(router);
    EXPECT_TRUE(router.Patterns().empty());
    directory->Register(router);
    directory.reset();
    EXPECT_TRUE(router.Patterns().empty());
    manager.Clear();
    EXPECT_EQ(notices.size(), 3U);
}

TEST_F(ProblemsResourceTest, IsReadMadeAndEndedWhileOthersChangeTheList)
{
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 2; ++thread) {
        threads.emplace_back([&, thread] {
            while (!stop) {
                manager.TryRemove(manager.Add(VcProblemSeverity_Potential, "thread", "%d", thread));
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        directory.emplace(manager);
        directory->Register(router);
        EXPECT_LE(Get().at("items").size(), 2U);
        directory.reset();
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
