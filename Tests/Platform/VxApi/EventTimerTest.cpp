#include <gmock/gmock.h>

#include <VxApi/AsyncTimer.h>
#include <VxApi/Event.h>
#include <VxApi/TimeService.h>
#include <VxTestSupport/Gate.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ManualTime.h>

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace
{

TEST(EventTest, ListenersMaySubscribeAndUnsubscribeWhileTheyAreCalledAndWhenTheEventIsGone)
{
    std::optional<Vx::Event<int>> event(std::in_place);
    std::vector<std::string> calls;
    Vx::Subscription second;
    Vx::Subscription late;
    Vx::Subscription first = event->Subscribe([&](int) {
        calls.emplace_back("first");
        second.Reset();
        late = event->Subscribe([&](int) { calls.emplace_back("late"); });
    });
    second = event->Subscribe([&](int) { calls.emplace_back("second"); });
    Vx::Subscription third = event->Subscribe([&](int value) { calls.push_back("third " + std::to_string(value)); });

    event->Raise(1);
    EXPECT_THAT(calls, ElementsAre("first", "third 1"));
    first.Reset();
    calls.clear();
    event->Raise(2);
    EXPECT_THAT(calls, ElementsAre("third 2", "late"));

    Vx::Subscription empty = event->Subscribe(nullptr);
    EXPECT_THROW(event->Raise(3), std::bad_function_call);
    event.reset();
    third.Reset();
    EXPECT_FALSE(third);
}

TEST(AsyncTimerTest, FiresOnceAtItsDeadlineAndStartsAnewWhenRestarted)
{
    VxTestSupport::ScopedManualTime time;
    std::vector<std::string> fired;
    Vx::AsyncTimer a("a", [&] { fired.emplace_back("a"); });
    Vx::AsyncTimer b("b", [&] { fired.emplace_back("b"); });
    b.Start(10ms);
    a.Start(10ms);
    time.Advance(9ms);
    EXPECT_TRUE(a.IsRunning());
    a.Start(10ms);
    time.Advance(1ms);
    EXPECT_THAT(fired, ElementsAre("b"));
    b.Start(9ms);  // The same deadline as a, but started later.
    time.Advance(9ms);
    EXPECT_THAT(fired, ElementsAre("b", "a", "b"));
    a.Start(1ms);
    a.Stop();
    time.Advance(1h);
    EXPECT_EQ(fired.size(), 3U);
    EXPECT_EQ(time.Pending(), 0U);
}

TEST(AsyncTimerTest, AThrowingCallbackIsLoggedAndCountedAndTheTimerGoesOn)
{
    VxTestSupport::ScopedManualTime time;
    VxTestSupport::ScopedLogCapture log;
    Vx::AsyncTimer timer("saver", [] { throw std::runtime_error("no disk"); });
    timer.Start(1ms);
    time.Advance(1ms);
    timer.Start(1ms);
    time.Advance(1ms);
    EXPECT_EQ(timer.Failures(), 2U);
    EXPECT_EQ(log.Count("Callback of timer 'saver' failed (no disk)."), 2);
}

TEST(AsyncTimerTest, DestructionWaitsForACallbackOnTheTimerThread)
{
    for (int round = 0; round < 100; ++round) {  // One that does not wait may be lucky.
        VxTestSupport::Gate held;
        auto timer = std::make_unique<Vx::AsyncTimer>("slow", [&held] { held.Pass(); });
        timer->Start(0us);
        ASSERT_TRUE(held.entered.Await());
        held.open.Set();
        timer.reset();
        ASSERT_TRUE(held.left);
    }

    // From inside its own callback a timer can be restarted and destroyed without waiting for itself.
    VxTestSupport::Signal done;
    auto self = std::make_shared<std::unique_ptr<Vx::AsyncTimer>>();
    *self = std::make_unique<Vx::AsyncTimer>("self", [&done, self] {
        self->reset();
        done.Set();
    });
    (*self)->Start(0us);
    EXPECT_TRUE(done.Await());
}

}  // namespace
