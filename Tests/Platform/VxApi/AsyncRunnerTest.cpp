// The worker: order, the bounded queue, jobs that throw, and the ways in which it may be stopped.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <stdexcept>

#include <gmock/gmock.h>

#include <VxApi/AsyncRunner.h>
#include <VxApi/AsyncTimer.h>
#include <VxApi/Exception.h>
#include <VxTestSupport/Gate.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ManualTime.h>
#include <VxTestSupport/Threads.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using Vx::AsyncRunner;

namespace
{

TEST(AsyncRunnerTest, UnderManualTimeJobsRunInOrderWithTheTimersWhenTheTestSaysSo)
{
    VxTestSupport::ScopedManualTime time;
    std::vector<std::string> calls;
    AsyncRunner runner("worker", 3);
    Vx::AsyncTimer timer("timer", [&] { runner.Post([&] { calls.emplace_back("from timer"); }); });
    timer.Start(1ms);
    const auto post = [&](
                          const char* name, std::function<void()> then = [] {}) {
        return runner.Post([&calls, name, then] {
            calls.emplace_back(name);
            then();
        });
    };
    EXPECT_TRUE(post("a", [&] { post("posted by a"); }));
    EXPECT_TRUE(post("b"));
    EXPECT_TRUE(post("c"));
    EXPECT_FALSE(post("d"));
    EXPECT_THAT(calls, ElementsAre());
    time.Run();
    EXPECT_THAT(calls, ElementsAre("a", "b", "c", "posted by a"));
    EXPECT_EQ(runner.Dropped(), 1U);
    calls.clear();
    time.Advance(1ms);
    EXPECT_THAT(calls, ElementsAre("from timer"));

    // Stopped inside a job, the rest is dropped and nothing is left behind in the service.
    calls.clear();
    EXPECT_TRUE(post("stops", [&] {
        post("too late");
        runner.Stop();
    }));
    EXPECT_TRUE(post("also too late"));
    time.Run();
    EXPECT_THAT(calls, ElementsAre("stops"));
    EXPECT_FALSE(post("after the stop"));
    EXPECT_EQ(runner.Dropped(), 4U);
    EXPECT_TRUE(AsyncRunner("other").Post([] {}));
    EXPECT_EQ(time.Pending(), 0U);
}

TEST(AsyncRunnerTest, AThrowingJobIsLoggedWithItsBackTraceAndCountedAndTheNextOneRuns)
{
    VxTestSupport::ScopedManualTime time;
    VxTestSupport::ScopedLogCapture log;
    AsyncRunner runner("digest");
    bool ran = false;
    runner.Post([] { throw Vx::Exception(VX_HERE, Nucleo::ERROR_STATE, "bad report"); });
    runner.Post([] { throw 7; });
    runner.Post([&] { ran = true; });
    time.Run();
    EXPECT_TRUE(ran);
    EXPECT_EQ(runner.Failures(), 2U);
    EXPECT_EQ(log.Count("Job of runner 'digest' failed (bad report)."), 1);
    EXPECT_EQ(log.Count("Job of runner 'digest' failed with an unknown exception."), 1);
    EXPECT_THAT(log.Texts(),
                testing::Contains(testing::ContainsRegex(std::string("#0 .*") + program_invocation_short_name)));
}

TEST(AsyncRunnerTest, StopFinishesTheRunningJobAndDropsTheOthers)
{
    VxTestSupport::Gate held;
    AsyncRunner runner("worker", 2);
    int ran = 0;
    auto token = std::make_shared<int>();
    ASSERT_TRUE(runner.Post([&] { held.Pass(); }));
    ASSERT_TRUE(held.entered.Await());
    EXPECT_TRUE(runner.Post([&ran, token] { ++ran; }));
    EXPECT_TRUE(runner.Post([&ran, token] { ++ran; }));
    EXPECT_FALSE(runner.Post([&ran, token] { ++ran; }));
    auto stop = std::async(std::launch::async, [&] {
        runner.Stop();
        return held.left.load();
    });
    // The job goes on when the stop has dropped what waited.
    EXPECT_TRUE(VxTestSupport::Eventually([&] { return runner.Dropped() == 3; }));
    held.open.Set();
    EXPECT_TRUE(stop.get());
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(token.use_count(), 1);
    runner.Stop();
    EXPECT_EQ(runner.Dropped(), 3U);
}

TEST(AsyncRunnerTest, MayBeStoppedAndDestroyedInsideAJob)
{
    VxTestSupport::Signal stopped;
    {
        AsyncRunner runner("stops itself");
        runner.Post([&] {
            runner.Stop();
            stopped.Set();
        });
        ASSERT_TRUE(stopped.Await());
    }

    // Inside the job's code, and by what the job owned when that goes; more than once, so that threads are taken over.
    for (const bool inCode : {true, false, true, false}) {
        VxTestSupport::Gate held;
        bool ranLater = false;
        auto done = std::make_shared<std::promise<void>>();  // The job sets it last of all, when its captures go.
        std::shared_ptr<void> end(nullptr, [done](void*) { done->set_value(); });
        auto self = std::make_shared<AsyncRunner>("destroys itself");
        AsyncRunner& runner = *self;
        runner.Post([&held, inCode, end = std::move(end), self = std::move(self)]() mutable {
            held.Pass();
            if (inCode) {
                self.reset();
            }
        });
        ASSERT_TRUE(held.entered.Await());
        runner.Post([&ranLater] { ranLater = true; });
        held.open.Set();
        ASSERT_EQ(done->get_future().wait_for(30s), std::future_status::ready);
        EXPECT_FALSE(ranLater);
    }
}

TEST(AsyncRunnerTest, EveryJobIsRunOrCountedAsDroppedWhileManyPostAndOneStops)
{
    constexpr int threads = 4;
    constexpr int each = 2000;
    AsyncRunner runner("busy", 64);
    std::uint64_t ran = 0;  // The worker's alone.
    std::atomic<int> posted{0};
    VxTestSupport::OnThreads(threads, [&](int) {
        for (int n = 0; n < each; ++n) {
            runner.Post([&ran] { ++ran; });
            if (++posted == threads * each / 2) {
                runner.Stop();
            }
        }
    });
    runner.Stop();
    EXPECT_EQ(ran + runner.Dropped(), std::uint64_t{threads} * each);
    EXPECT_GT(runner.Dropped(), 0U);
}

}  // namespace
