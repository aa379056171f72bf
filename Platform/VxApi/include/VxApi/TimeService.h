#pragma once
// The clock and the thread behind every AsyncTimer, replaceable so that tests drive time themselves, and with it the
// jobs of every AsyncRunner.

#include <chrono>
#include <cstdint>
#include <functional>

namespace Vx
{

/// Runs callbacks at points in time, one at a time, in the order of their deadlines; equal deadlines in the order in
/// which they were started. Implementations are safe on any thread.
class TimeService
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Ticket = std::uint64_t;  ///< Names one scheduled call; never 0, never reused.

    virtual ~TimeService() = default;

    virtual TimePoint Now() const = 0;

    /// Calls `callback` once at `deadline` or soon after. The callback must not throw.
    virtual Ticket Schedule(TimePoint deadline, std::function<void()> callback) = 0;

    /// Takes a scheduled call back; one that is running or done is left alone. Does not wait.
    virtual void Cancel(Ticket ticket) = 0;

    /// Waits until the call, if it is just running on another thread, has returned. Returns at once when called from
    /// inside that call.
    virtual void Wait(Ticket ticket) = 0;

    /// Returns when this much time has passed; for short waits on a thread that holds no lock.
    virtual void Sleep(std::chrono::microseconds duration);

    /// Whether the jobs of an AsyncRunner are scheduled here, one call a job, instead of running on a thread of the
    /// runner's own: so they run when whoever drives the time lets them.
    virtual bool RunsJobs() const { return false; }

    /// The service in use: the process's own (a thread that is started with the first timer and joined at exit), unless
    /// replaced.
    static TimeService& Current();

    /// Puts `service` in use and returns the one that was (null: the process's own). Timers and runners stay with the
    /// service that was in use when they were made, so replace it before making any.
    static TimeService* Replace(TimeService* service);
};

}  // namespace Vx
