#pragma once
// One worker that runs queued jobs one after the other.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Vx
{

/// Runs jobs in the order in which they were posted, on a thread of its own; under a time service that runs jobs
/// (TimeService::RunsJobs) as calls of that service. A job that throws is logged with its back trace and counted, and
/// the next one runs. All operations may be called from any thread, also from inside a job.
///
/// Never stop or destroy a runner while holding a lock that a job takes: both wait for the running job, except from
/// inside that job.
class AsyncRunner
{
public:
    static constexpr std::size_t DefaultCapacity = 1024;

    /// `name` appears in the log when a job throws. At most `capacity` jobs wait, for which room is taken here; the
    /// running one does not count. Throws std::system_error when no thread can be had.
    explicit AsyncRunner(std::string name, std::size_t capacity = DefaultCapacity);

    /// Stops. From inside a job the thread is left to the process, which joins it at its end; that job goes on.
    ~AsyncRunner();
    AsyncRunner(const AsyncRunner&) = delete;
    AsyncRunner& operator=(const AsyncRunner&) = delete;

    /// Queues a job. False when it was dropped: the queue is full or the runner stopped. A job, dropped or done, is
    /// destroyed without a lock held.
    bool Post(std::function<void()> job);

    /// Ends the runner for good: jobs that wait are dropped, the running one is finished, the thread is joined. From
    /// inside a job it returns at once, and the thread is joined by the next call from outside, the destructor's at the
    /// latest. Later calls drop nothing more; like the first they return when no job runs.
    void Stop();

    /// How many jobs were dropped so far, by a full queue or by the stop.
    std::uint64_t Dropped() const;

    /// How many jobs have thrown so far.
    std::uint64_t Failures() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace Vx
