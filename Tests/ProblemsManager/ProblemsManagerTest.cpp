#include <VxCommon/ProblemsManager/ProblemsManager.h>

#include <atomic>

#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/HeapFailure.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/Threads.h>

#include "Listed.h"

using namespace VxCommonTest;
using namespace Nucleo::Statuses;
using testing::ElementsAre;
using testing::IsEmpty;
using VxCommon::ProblemIterator;
using VxCommon::ProblemsManager;

namespace
{

const std::string addRefused = "-997 ProblemsManager/ProblemsManager 80 VxCommon::ProblemsManager::Add";
const std::string removeRefused = "-997 ProblemsManager/ProblemsManager 97 VxCommon::ProblemsManager::Remove";
const std::string endRefused = "-1000 ProblemsManager/ProblemsManager 173 VxCommon::ProblemsManager::EndUpdate";

class ProblemsManagerTest : public testing::Test
{
protected:
    /// Notes at each notification what is listed then and how much of it is to be shown, and does `then`.
    void Follow(std::function<void()> then = nullptr)
    {
        seen.clear();
        shown.clear();
        subscription = manager.UpdatedEvent().Subscribe([this, then] {
            seen.push_back(Listed(manager));
            shown.push_back(manager.Snapshot().size());
            if (then) {
                then();
            }
        });
    }

    ProblemsManager manager;
    std::vector<std::vector<std::string>> seen;
    std::vector<std::size_t> shown;
    Vx::Subscription subscription;
};

TEST_F(ProblemsManagerTest, ReportsAreCountedAndTheLastWithdrawalNotifiesBeforeItUnlinks)
{
    Follow();
    const ProblemIterator first = manager.Add(potential, "a", "hot: %1$d", 7);
    EXPECT_EQ(manager.Add(blocking, "a", "hot: 7"), first) << "whatever the severity";
    const ProblemIterator other = manager.Add(blocking, "b", "hot: %s", "7");
    EXPECT_EQ(first->severity, potential);
    EXPECT_EQ(manager.BlockingCount(), 1U);
    EXPECT_EQ(manager.ProblemExists({"hot: 7", "b", potential}), other);
    EXPECT_FALSE(manager.ProblemExists({"hot: 7", "c", potential}));
    EXPECT_THAT(seen, ElementsAre(ElementsAre("a: hot: 7 1"), ElementsAre("a: hot: 7 2", "b: hot: 7 1")));

    seen.clear();
    manager.Remove(first);
    EXPECT_THAT(seen, IsEmpty());
    manager.Remove(other);
    EXPECT_EQ(manager.BlockingCount(), 0U);
    EXPECT_THAT(Listed(manager), ElementsAre("a: hot: 7 1"));
    manager.Remove(first);
    EXPECT_THAT(Listed(manager), IsEmpty());
    EXPECT_THAT(seen, ElementsAre(ElementsAre("a: hot: 7 1", "b: hot: 7 0"), ElementsAre("a: hot: 7 0")));
}

TEST_F(ProblemsManagerTest, BatchNotifiesOnceAtItsOutermostEnd)
{
    Follow();
    EXPECT_EQ(Thrown([&] { manager.EndUpdate(); }), endRefused);
    manager.BeginUpdate();
    manager.BeginUpdate();
    manager.Add(potential, "s", "1");
    const ProblemIterator gone = manager.Add(potential, "s", "2");
    manager.Add(blocking, "s", "3");
    manager.Remove(gone);
    EXPECT_THAT(Listed(manager), ElementsAre("s: 1 1", "s: 3 1")) << "taken out at once";
    manager.EndUpdate();
    EXPECT_THAT(seen, IsEmpty());
    manager.EndUpdate();
    EXPECT_THAT(seen, ElementsAre(ElementsAre("s: 1 1", "s: 3 1")));

    manager.BeginUpdate();
    manager.Clear();
    manager.EndUpdate();
    EXPECT_THAT(seen.back(), IsEmpty());
    manager.BeginUpdate();
    manager.EndUpdate();
    EXPECT_EQ(seen.size(), 2U) << "nothing changed";
    EXPECT_EQ(Thrown([&] { manager.EndUpdate(); }), endRefused);
    manager.Clear();
    EXPECT_EQ(seen.size(), 3U) << "no batch is open, and clearing tells in any case";
}

TEST_F(ProblemsManagerTest, MessagesAreFormattedWithinTheirBoundAndLoggedAsTheyAre)
{
    const std::string longest(511, 'x');
    const std::string tooLong(512, 'x');
    const std::string percents(512, '%');  // Half as long when it is printed.
    const VxTestSupport::ScopedLogCapture log;
    EXPECT_EQ(manager.Add(potential, "s", longest.c_str())->msg, longest);
    EXPECT_EQ(manager.Add(blocking, "s", "%2$s%%d %%n", longest.substr(7))->msg, longest.substr(7) + "%d %n");
    EXPECT_EQ(manager.Add(static_cast<VcProblemSeverity>(2), "s", "neither")->msg, "neither");
    EXPECT_EQ(manager.Add(potential, "s", nullptr)->msg, "");
    EXPECT_EQ(Thrown([&] { manager.Add(potential, "s", tooLong.c_str()); }), addRefused);
    EXPECT_EQ(Thrown([&] { manager.Add(potential, "s", "%s", tooLong); }), addRefused);
    EXPECT_EQ(Thrown([&] { manager.Add(potential, "s", percents.c_str()); }), addRefused);
    EXPECT_EQ(manager.Count(), 4U);

    const std::string refused = "E Message is too long or could not be formatted: ";
    EXPECT_THAT(log.Texts("ProblemsManager/ProblemsManager"),
                ElementsAre("W " + longest, "E " + longest.substr(7) + "%d %n", "W ", refused + tooLong, refused + "%s",
                            refused + percents));
    EXPECT_EQ(manager.BlockingCount(), 1U);
    EXPECT_STREQ(VcProblemSeverity_Name(static_cast<VcProblemSeverity>(2)), "Unknown");
}

TEST_F(ProblemsManagerTest, IteratorsOutliveTheirProblems)
{
    const ProblemIterator removed = manager.Add(blocking, "s", "removed");
    manager.Remove(removed);
    const ProblemIterator cleared = manager.Add(blocking, "s", "cleared");
    manager.Add(potential, "s", "last");
    manager.Clear();
    const ProblemIterator added = manager.Add(blocking, "s", "cleared");
    ProblemsManager copy(manager);
    EXPECT_THAT(Listed(copy), ElementsAre("s: cleared 1"));
    for (const ProblemIterator& it : {ProblemIterator(), removed, cleared, copy.Enumerate().begin()}) {
        EXPECT_EQ(Thrown([&] { manager.Remove(it); }), removeRefused);
        EXPECT_FALSE(manager.TryRemove(it));
        EXPECT_FALSE(manager.Retain(it));
    }
    EXPECT_EQ(cleared->msg, "cleared");
    EXPECT_EQ(std::next(cleared), ProblemIterator()) << "not into the list as it is now";
    EXPECT_THAT(Listed(manager), ElementsAre("s: cleared 1"));

    ProblemsManager moved(std::move(manager));
    EXPECT_EQ(manager.Count() + manager.BlockingCount(), 0U);  // NOLINT(bugprone-use-after-move): it is defined.
    EXPECT_EQ(moved.BlockingCount(), 1U);
    moved.Remove(added);
    EXPECT_EQ(moved.Count() + moved.BlockingCount(), 0U);
    EXPECT_EQ(copy.Count() + copy.BlockingCount(), 2U);

    VxCommon::ProblemList large;
    for (int i = 0; i < 200'000; ++i) {
        large.Append({std::to_string(i), "s"});
    }
    large.Clear();
    EXPECT_FALSE(large.First()) << "and the stack was not used up";
}

TEST_F(ProblemsManagerTest, WhatListenersDoDuringARemovalIsKeptAndTold)
{
    ProblemIterator it;
    const auto during = [&](std::function<void()> action, const std::vector<std::size_t>& shownThen) {
        manager.Clear();
        manager.Add(potential, "t", "other");
        it = manager.Add(blocking, "s", "p");
        Follow([&action] {
            if (const auto once = std::exchange(action, nullptr)) {
                once();
            }
        });
        manager.Remove(it);
        subscription.Reset();
        EXPECT_EQ(shown, shownThen);
        auto left = Listed(manager);
        left.push_back(std::to_string(manager.BlockingCount()));
        return left;
    };
    const auto add = [&] { return manager.Add(potential, "s", "p"); };
    EXPECT_THAT(during([&] { EXPECT_EQ(add(), it); }, {1, 2}), ElementsAre("t: other 1", "s: p 1", "1"));
    EXPECT_THAT(during([&] { manager.Remove(add()); }, {1, 2, 1}), ElementsAre("t: other 1", "0"));
    EXPECT_THAT(during([&] { EXPECT_FALSE(manager.TryRemove(it)); }, {1}), ElementsAre("t: other 1", "0"));
    EXPECT_THAT(during([&] { manager.Clear(); }, {1, 0}), ElementsAre("0"));
    const auto clearAndAdd = [&] {
        manager.Clear();
        EXPECT_NE(add(), it);
    };
    EXPECT_THAT(during(clearAndAdd, {1, 0, 1}), ElementsAre("s: p 1", "0"));
    const auto copy = [&] {
        const ProblemsManager copied(manager);
        EXPECT_THAT(Listed(copied), ElementsAre("t: other 1"));
        EXPECT_EQ(copied.BlockingCount(), 0U);
    };
    EXPECT_THAT(during(copy, {1}), ElementsAre("t: other 1", "0"));
}

TEST_F(ProblemsManagerTest, ListenerThatThrowsTakesBackOneReportOnly)
{
    const ProblemIterator kept = manager.Add(potential, "s", "kept");
    const ProblemIterator withdrawn = manager.Add(blocking, "s", "withdrawn");
    Follow([] { throw std::runtime_error("listener"); });
    EXPECT_THROW(manager.Add(blocking, "s", "new"), std::runtime_error);
    EXPECT_THROW(manager.Remove(withdrawn), std::runtime_error);
    EXPECT_THAT(Listed(manager), ElementsAre("s: kept 1"));
    EXPECT_EQ(manager.BlockingCount(), 0U);
    manager.BeginUpdate();
    manager.Remove(kept);
    EXPECT_THROW(manager.EndUpdate(), std::runtime_error);
    EXPECT_EQ(Thrown([&] { manager.EndUpdate(); }), endRefused) << "the batch has ended";

    Follow([this] {
        manager.Add(blocking, "s", "new");
        throw std::bad_alloc();
    });
    EXPECT_THAT(Thrown([&] { manager.Add(blocking, "s", "new"); }), testing::StartsWith("-996"));
    EXPECT_THAT(Listed(manager), ElementsAre("s: new 1")) << "the listener's";
}

TEST_F(ProblemsManagerTest, MemoryThatIsShortIsTold)
{
    VxTestSupport::FailingAllocator allocator(0);
    {
        const VxTestSupport::ScopedDefaultAllocator scope(allocator);
        EXPECT_EQ(Thrown([] { const ProblemsManager other; }),
                  "-996 ProblemsManager/ProblemsManager 12 VxCommon::ProblemsManager::ProblemsManager");
    }
    EXPECT_EQ(allocator.Live(), 0);

    const std::string text(100, 'x');
    auto thrown = VxTestSupport::SweepHeap([&] { manager.Remove(manager.Add(blocking, text, "%1$s", text)); });
    EXPECT_EQ(thrown.back(), "");
    thrown.pop_back();
    EXPECT_THAT(thrown, testing::AllOf(testing::SizeIs(testing::Ge(4U)), testing::Each("-996")));
    EXPECT_EQ(manager.Count() + manager.BlockingCount(), 0U);
}

TEST(ProblemsManagerThreadsTest, EightThreadsWhileListenersCallBack)
{
    ProblemsManager manager;
    std::atomic<std::uint64_t> notices{0};
    const Vx::Subscription subscription = manager.UpdatedEvent().Subscribe([&] {
        thread_local bool inside = false;
        if (!std::exchange(inside, true)) {
            ++notices;
            manager.TryRemove(manager.Add(potential, "listener", "seen"));
            if (notices % 64 == 0) {
                manager.Clear();
            }
            Listed(manager);
            inside = false;
        }
    });
    VxTestSupport::OnThreads(8, [&manager](int thread) {
        for (int round = 0; round < 200; ++round) {
            const bool batch = (round + thread) % 3 == 0;
            if (batch) {
                manager.BeginUpdate();
            }
            const ProblemIterator reports[] = {manager.Add(potential, "s", "shared %d", round % 2),
                                               manager.Add(blocking, "s", "own %d", thread)};
            for (const ProblemIterator& report : reports) {
                manager.TryRemove(report);
            }
            if (batch) {
                manager.EndUpdate();
            }
        }
    });
    EXPECT_THAT(Listed(manager), IsEmpty());
    EXPECT_EQ(manager.BlockingCount(), 0U);
    EXPECT_GT(notices, 0U);
    EXPECT_EQ(Thrown([&] { manager.EndUpdate(); }), endRefused);
}

}  // namespace
