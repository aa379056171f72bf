#pragma once
// Time that the test drives: while a ScopedManualTime lives, timers made by the test fire inside Advance, on its
// thread, and so do the jobs of runners. Other threads may start timers and post jobs meanwhile.

#include <chrono>
#include <functional>
#include <map>

#include <Nucleo/Lock.h>
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

    /// Fires what is due now: the jobs of runners, those that they post included.
    void Run() { Advance(std::chrono::microseconds::zero()); }

    /// Calls that are scheduled and have not fired.
    std::size_t Pending() const;

    TimePoint Now() const override;
    Ticket Schedule(TimePoint deadline, std::function<void()> callback) override;
    void Cancel(Ticket ticket) override;
    void Wait(Ticket /*ticket*/) override {}  // Calls run inside Advance: none is running on another thread.
    void Sleep(std::chrono::microseconds duration) override { Advance(duration); }
    bool RunsJobs() const override { return true; }

private:
    mutable Nucleo::Mutex mutex_;  // Not held while a callback runs.
    TimePoint now_ VX_GUARDED_BY(mutex_);
    Ticket lastTicket_ VX_GUARDED_BY(mutex_) = 0;
    std::map<std::pair<TimePoint, Ticket>, std::function<void()>> queue_ VX_GUARDED_BY(mutex_);
    TimeService* previous_;
};

}  // namespace VxTestSupport
