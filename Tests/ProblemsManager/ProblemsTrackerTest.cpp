#include <VxCommon/ProblemsManager/ProblemsTracker.h>

#include <optional>

#include <VxTestSupport/LogCapture.h>

#include "Listed.h"

using namespace VxCommonTest;
using testing::ElementsAre;
using testing::IsEmpty;
using VxCommon::ProblemIterator;
using VxCommon::ProblemsManager;
using VxCommon::ProblemsTracker;

namespace
{

class ProblemsTrackerTest : public testing::Test
{
protected:
    ProblemsTrackerTest()
    {
        subscription = manager.UpdatedEvent().Subscribe([this] { ++notices; });
    }

    void Cycle(ProblemsTracker& checker, const std::vector<std::string>& seen)
    {
        checker.Begin();
        for (const std::string& msg : seen) {
            checker.Register(manager.Add(msg.starts_with("!") ? blocking : potential, "s", "%s", msg));
        }
        checker.End();
    }

    ProblemsManager manager;
    std::optional<ProblemsTracker> tracker{manager};
    int notices = 0;
    Vx::Subscription subscription;
};

TEST_F(ProblemsTrackerTest, CyclesKeepWhatIsSeenAgainAndWithdrawTheRest)
{
    manager.Add(potential, "s", "b");  // Somebody else's.
    // Runs a cycle. What is listed then, and how many notifications there were.
    const auto cycle = [&](const std::vector<std::string>& seen) {
        notices = 0;
        Cycle(*tracker, seen);
        EXPECT_EQ(tracker->Count(), seen.size());
        EXPECT_EQ(tracker->BlockingCount(), static_cast<std::size_t>(manager.BlockingCount()));
        EXPECT_EQ(tracker->PotentialCount(), tracker->Count() - tracker->BlockingCount());
        auto listed = Listed(manager);
        listed.push_back(std::to_string(notices));
        return listed;
    };
    EXPECT_THAT(cycle({"!a", "b"}), ElementsAre("s: b 2", "s: !a 1", "1"));
    EXPECT_THAT(cycle({"!a", "b"}), ElementsAre("s: b 2", "s: !a 1", "0"));
    EXPECT_THAT(cycle({"b", "b", "c"}), ElementsAre("s: b 3", "s: c 1", "1"));
    EXPECT_THAT(cycle({"c"}), ElementsAre("s: b 1", "s: c 1", "0"));
    EXPECT_THAT(cycle({}), ElementsAre("s: b 1", "1"));
    EXPECT_THAT(cycle({}), ElementsAre("s: b 1", "0"));
    EXPECT_THAT(cycle({"d", "e", "f"}), ElementsAre("s: b 1", "s: d 1", "s: e 1", "s: f 1", "1"));
    tracker.reset();
    EXPECT_THAT(Listed(manager), ElementsAre("s: b 1"));
}

TEST_F(ProblemsTrackerTest, CyclesNestAndRefuseToBeUnbalanced)
{
    const std::string end = "-1000 ProblemsManager/ProblemsTracker 39 VxCommon::ProblemsTracker::End";
    EXPECT_EQ(Thrown([&] { tracker->End(); }), end);
    EXPECT_EQ(Thrown([&] { tracker->Register({}); }),
              "-1000 ProblemsManager/ProblemsTracker 61 VxCommon::ProblemsTracker::Register");
    Cycle(*tracker, {"a"});
    EXPECT_EQ(tracker->Begin(), 1);
    Cycle(*tracker, {"b"});
    EXPECT_EQ(tracker->Begin(), 2);
    EXPECT_EQ(tracker->End(), 1);
    EXPECT_THAT(Listed(manager), ElementsAre("s: a 1", "s: b 1")) << "not before the outermost end";
    EXPECT_EQ(notices, 1);
    EXPECT_EQ(tracker->End(), 0);
    EXPECT_THAT(Listed(manager), ElementsAre("s: b 1"));
    EXPECT_EQ(notices, 2);
    EXPECT_EQ(Thrown([&] { tracker->End(); }), end);
}

TEST_F(ProblemsTrackerTest, ClearUnderALiveTrackerIsSurvived)
{
    Cycle(*tracker, {"!a", "b"});
    manager.Clear();
    EXPECT_EQ(tracker->BlockingCount(), 1U) << "what it registered";
    Cycle(*tracker, {"!a"});
    EXPECT_THAT(Listed(manager), ElementsAre("s: !a 1")) << "the new one is not withdrawn for the old one";
    tracker->Begin();
    tracker->Register({});
    tracker->Register(manager.Add(potential, "s", "c"));
    manager.Clear();
    EXPECT_EQ(tracker->BlockingCount(), 0U);
    tracker->End();
    EXPECT_EQ(manager.Count(), 0U);
    Cycle(*tracker, {"d"});
    EXPECT_THAT(Listed(manager), ElementsAre("s: d 1"));
}

TEST_F(ProblemsTrackerTest, TrackerThatEndsInsideACycleOnlyWithdraws)
{
    Cycle(*tracker, {"a"});
    tracker->Begin();
    tracker->Register(manager.Add(potential, "s", "b"));
    tracker.reset();
    EXPECT_THAT(Listed(manager), IsEmpty());
    EXPECT_EQ(notices, 1) << "the batch is still open";
    manager.EndUpdate();
    EXPECT_EQ(notices, 2);
}

TEST_F(ProblemsTrackerTest, CopiesHoldReportsOfTheirOwn)
{
    Cycle(*tracker, {"a", "gone"});
    tracker->Begin();
    tracker->Register(manager.Add(potential, "s", "b"));
    manager.Remove(manager.ProblemExists({"gone", "s"}));
    std::optional<ProblemsTracker> copy(*tracker);
    tracker->End();
    EXPECT_THAT(Listed(manager), ElementsAre("s: a 1", "s: b 2"));
    Cycle(*copy, {});
    EXPECT_THAT(Listed(manager), ElementsAre("s: b 1"));
    copy.reset();
    EXPECT_THAT(Listed(manager), ElementsAre("s: b 1"));
}

TEST_F(ProblemsTrackerTest, ListenersThatThrowStopNeitherACycleNorTheEnd)
{
    Cycle(*tracker, {"a"});
    subscription = manager.UpdatedEvent().Subscribe([] { throw std::runtime_error("listener"); });
    EXPECT_THROW(Cycle(*tracker, {"b", "c"}), std::runtime_error);
    EXPECT_THAT(Listed(manager), ElementsAre("s: b 1", "s: c 1"));
    const VxTestSupport::ScopedLogCapture log;
    tracker.reset();
    EXPECT_EQ(manager.Count(), 0U);
    EXPECT_THAT(log.Texts(), testing::Contains(testing::HasSubstr("listener")));
}

}  // namespace
