#pragma once
// Time that the test drives: while a ScopedManualTime lives, timers made by the test fire inside Advance, on its
// thread.

#include <chrono>
#include <functional>
#include <map>

#include <VxApi/TimeService.h>

namespace VxTestSupport
{

class ScopedManualTime final : public Vx::TimeService
{
public:
    ScopedManualTime();
    ~ScopedManualTime() override;

    /// Moves time on and fires what falls due, in deadline order, each at its own deadline. Timers that are started by
    /// a callback fire in the same call when they fall due within it.
    void Advance(std::chrono::microseconds duration);

    /// Calls that are scheduled and have not fired.
    std::size_t Pending() const { return queue_.size(); }

    TimePoint Now() const override { return now_; }
    Ticket Schedule(TimePoint deadline, std::function<void()> callback) override;
    void Cancel(Ticket ticket) override;
    void Wait(Ticket /*ticket*/) override {}  // Calls run inside Advance: none is running on another thread.

private:
    TimePoint now_;
    Ticket lastTicket_ = 0;
    std::map<std::pair<TimePoint, Ticket>, std::function<void()>> queue_;
    TimeService* previous_;
};

}  // namespace VxTestSupport
