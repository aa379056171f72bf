#pragma once
// Time that the test drives: while a ScopedManualTime lives, timers made by the test fire inside Advance, on its
// thread, and so do the jobs of runners. Other threads may start timers and post jobs meanwhile.

#include <algorithm>
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
    ScopedManualTime() : previous_(TimeService::Replace(this)) {}
    ~ScopedManualTime() override { TimeService::Replace(previous_); }

    /// Moves time on and fires what falls due, in deadline order, each at its own deadline. Timers that are started by
    /// a callback fire in the same call when they fall due within it.
    void Advance(std::chrono::microseconds duration)
    {
        mutex_.lock();
        const TimePoint end = now_ + duration;
        while (!queue_.empty() && queue_.begin()->first.first <= end) {
            auto call = queue_.extract(queue_.begin());
            now_ = std::max(now_, call.key().first);
            mutex_.unlock();
            call.mapped()();
            call = {};  // What it captured may do anything when it goes.
            mutex_.lock();
        }
        now_ = end;
        mutex_.unlock();
    }

    /// Fires what is due now: the jobs of runners, those that they post included.
    void Run() { Advance(std::chrono::microseconds::zero()); }

    /// Calls that are scheduled and have not fired.
    std::size_t Pending() const
    {
        const Nucleo::MutexGuard guard(mutex_);
        return queue_.size();
    }

    TimePoint Now() const override
    {
        const Nucleo::MutexGuard guard(mutex_);
        return now_;
    }

    Ticket Schedule(TimePoint deadline, std::function<void()> callback) override
    {
        const Nucleo::MutexGuard guard(mutex_);
        queue_.emplace(std::pair{deadline, ++lastTicket_}, std::move(callback));
        return lastTicket_;
    }

    void Cancel(Ticket ticket) override
    {
        std::function<void()> dropped;  // Destroyed after the lock is left.
        const Nucleo::MutexGuard guard(mutex_);
        const auto found = std::ranges::find(queue_, ticket, [](const auto& entry) { return entry.first.second; });
        if (found != queue_.end()) {
            dropped = std::move(found->second);
            queue_.erase(found);
        }
    }

    void Wait(Ticket /*ticket*/) override {}  // Calls run inside Advance: none is running on another thread.
    void Sleep(std::chrono::microseconds duration) override { Advance(duration); }
    bool RunsJobs() const override { return true; }

private:
    mutable Nucleo::Mutex mutex_;  // Not held while a callback runs.
    TimePoint now_ VX_GUARDED_BY(mutex_){std::chrono::hours(1)};
    Ticket lastTicket_ VX_GUARDED_BY(mutex_) = 0;
    std::map<std::pair<TimePoint, Ticket>, std::function<void()>> queue_ VX_GUARDED_BY(mutex_);
    TimeService* previous_;
};

}  // namespace VxTestSupport
