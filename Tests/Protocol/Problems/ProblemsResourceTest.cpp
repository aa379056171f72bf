// "/problems" through the router, with request values and no socket.

#include <atomic>
#include <optional>

#include <gmock/gmock.h>

#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Problems/ProblemsDir.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/RouterProbe.h>
#include <VxTestSupport/Threads.h>

using nlohmann::json;
using testing::ElementsAre;
using VxCommon::ProblemsDir;
using VxCommon::ProblemsManager;

namespace
{

class ProblemsResourceTest : public testing::Test, public VxTestSupport::RouterProbe
{
protected:
    ProblemsManager manager;
    std::optional<ProblemsDir> directory{manager};
};

TEST_F(ProblemsResourceTest, ShowsTheListInOrderWithItsSchemaOnRequest)
{
    directory->Register(router);
    EXPECT_EQ(Get("/problems"), json::parse(R"({"items": []})"));
    manager.Add(VcProblemSeverity_Potential, "b", "hot");
    manager.Add(VcProblemSeverity_Blocking, "a", "hot");
    EXPECT_EQ(Get("/problems"), json::parse(R"({"items": [{"msg": "hot", "source": "b", "severity": 0},
                                               {"msg": "hot", "source": "a", "severity": 1}]})"));
    const json withSchema = Get("/problems", json::object(), true);
    EXPECT_EQ(withSchema.at("items").size(), 2U);
    EXPECT_EQ(withSchema.at("_schema").at("properties").at("severity"),
              json::parse(R"({"type": "integer", "title": "severity", "sortOrder": 200, "oneOf": [
                              {"const": 0, "title": "Potential"}, {"const": 1, "title": "Blocking"}]})"));
    EXPECT_EQ(withSchema.at("_schema").at("properties").at("msg").at("type"), "string");
}

TEST_F(ProblemsResourceTest, EveryNotificationIsANotice)
{
    std::vector<std::size_t> found;  // By those who read on a notification.
    const Vx::Subscription subscription =
        router.NotificationEvent().Subscribe([&](VxRest::EventType, const std::string&) {
            found.push_back(Get("/problems").at("items").size());
            if (noticed.size() == 5) {
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
    manager.Remove(manager.Add(VcProblemSeverity_Potential, "c", "hot"));
    EXPECT_THAT(noticed, testing::AllOf(testing::SizeIs(4), testing::Each("2 /problems")));
    EXPECT_THAT(found, ElementsAre(1U, 1U, 2U, 1U)) << "what the notification tells of, removals included";
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
    EXPECT_EQ(noticed.size(), 5U);
}

TEST_F(ProblemsResourceTest, IsReadMadeAndEndedWhileOthersChangeTheList)
{
    std::atomic<bool> stop = false;
    VxTestSupport::OnThreads(3, [&](int thread) {
        while (thread < 2 && !stop) {
            manager.TryRemove(manager.Add(VcProblemSeverity_Potential, "thread", "%d", thread));
        }
        for (int round = 0; thread == 2 && round < 200; ++round) {
            directory.emplace(manager);
            directory->Register(router);
            EXPECT_LE(Get("/problems").at("items").size(), 2U);
            directory.reset();
        }
        stop = stop || thread == 2;
    });
}

}  // namespace
