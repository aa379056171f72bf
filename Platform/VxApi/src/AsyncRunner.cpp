#include <atomic>
#include <condition_variable>
#include <thread>
#include <utility>
#include <vector>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncRunner.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxApi/TimeService.h>

namespace Vx
{

struct AsyncRunner::State : std::enable_shared_from_this<AsyncRunner::State>
{
    using Job = std::function<void()>;

    State(std::string runnerName, std::size_t capacity)
        : name(std::move(runnerName)),
          service(TimeService::Current().RunsJobs() ? &TimeService::Current() : nullptr),
          jobs(capacity)
    {}

    bool Post(Job job)
    {
        const Nucleo::MutexGuard guard(mutex);
        if (stopping || waiting == jobs.size()) {
            ++dropped;
            return false;
        }
        jobs[(first + waiting) % jobs.size()] = std::move(job);
        ++waiting;
        if (service != nullptr) {
            ScheduleNext();
        } else {
            changed.notify_all();
        }
        return true;
    }

    void Stop()
    {
        std::vector<Job> rest;  // Destroyed after the lock is left: what jobs captured may do anything.
        std::thread ended;
        mutex.lock();
        stopping = true;
        dropped += std::exchange(waiting, 0);
        rest.swap(jobs);
        if (scheduled != 0) {
            service->Cancel(std::exchange(scheduled, 0));
        }
        changed.notify_all();
        const std::thread::id self = std::this_thread::get_id();
        while (runningOn != std::thread::id() && runningOn != self) {
            changed.wait(mutex);
        }
        if (thread.get_id() != self) {
            ended = std::move(thread);
        }
        mutex.unlock();
        if (ended.joinable()) {
            ended.join();
        }
    }

    /// The thread's function.
    void Work()
    {
        mutex.lock();
        while (!stopping) {
            if (waiting == 0) {
                changed.wait(mutex);
            } else {
                RunFirst();
            }
        }
        mutex.unlock();
        finished = true;
    }

    /// The call that the time service makes.
    void RunScheduled()
    {
        mutex.lock();
        scheduled = 0;
        if (waiting != 0) {
            RunFirst();
            ScheduleNext();
        }
        mutex.unlock();
    }

    void ScheduleNext() VX_REQUIRES(mutex)
    {
        const bool running = runningOn != std::thread::id();  // The next call is scheduled when the job is done.
        if (scheduled == 0 && waiting != 0 && !running) {
            scheduled = service->Schedule(service->Now(), [self = shared_from_this()] { self->RunScheduled(); });
        }
    }

    /// Leaves the lock while the job runs and is destroyed. There is a job.
    void RunFirst() VX_REQUIRES(mutex)
    {
        Job job = std::exchange(jobs[first], nullptr);
        first = (first + 1) % jobs.size();
        --waiting;
        runningOn = std::this_thread::get_id();
        mutex.unlock();
        Call(job);
        job = nullptr;
        mutex.lock();
        runningOn = std::thread::id();
        changed.notify_all();
    }

    void Call(const Job& job)
    {
        try {
            job();
        } catch (const std::exception& exception) {
            ++failures;
            Vx_Debug_Log(Error, "Job of runner '%s' failed (%s).", name, exception.what());
            LogException(VX_HERE, exception);
        } catch (...) {
            ++failures;
            Vx_Debug_Log(Error, "Job of runner '%s' failed with an unknown exception.", name);
        }
    }

    const std::string name;
    TimeService* const service;  // What runs the jobs; null when the thread does.
    std::atomic<std::uint64_t> failures{0};
    std::atomic<bool> finished{false};  // The thread does nothing more.
    Nucleo::Mutex mutex;
    std::condition_variable_any changed;
    std::thread thread VX_GUARDED_BY(mutex);
    std::vector<Job> jobs VX_GUARDED_BY(mutex);  // A circle: `waiting` jobs from `first` on.
    std::size_t first VX_GUARDED_BY(mutex) = 0;
    std::size_t waiting VX_GUARDED_BY(mutex) = 0;
    std::uint64_t dropped VX_GUARDED_BY(mutex) = 0;
    TimeService::Ticket scheduled VX_GUARDED_BY(mutex) = 0;
    std::thread::id runningOn VX_GUARDED_BY(mutex);  // Where a job runs just now.
    bool stopping VX_GUARDED_BY(mutex) = false;

    class Orphans;
};

/// Owns the threads whose runners were destroyed inside one of their own jobs, where they could not be joined.
class AsyncRunner::State::Orphans
{
public:
    ~Orphans()
    {
        for (Orphan& orphan : orphans_) {
            orphan.thread.join();
        }
    }

    /// Takes the thread of `state` over, and joins those taken over before that have nothing left to do.
    void Adopt(std::shared_ptr<State> state, std::thread orphaned)
    {
        const Nucleo::MutexGuard guard(mutex_);
        std::erase_if(orphans_, [](Orphan& orphan) {
            const bool ended = orphan.state->finished;
            if (ended) {
                orphan.thread.join();
            }
            return ended;
        });
        orphans_.push_back({std::move(state), std::move(orphaned)});
    }

    static Orphans& Instance()
    {
        static Orphans orphans;
        return orphans;
    }

private:
    struct Orphan
    {
        std::shared_ptr<State> state;
        std::thread thread;
    };

    Nucleo::Mutex mutex_;
    std::vector<Orphan> orphans_ VX_GUARDED_BY(mutex_);
};

AsyncRunner::AsyncRunner(std::string name, std::size_t capacity)
    : state_(std::make_shared<State>(std::move(name), capacity))
{
    if (state_->service == nullptr) {
        const Nucleo::MutexGuard guard(state_->mutex);
        state_->thread = std::thread([state = state_] { state->Work(); });
    }
}

AsyncRunner::~AsyncRunner()
{
    state_->Stop();
    std::thread orphan;
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        orphan = std::move(state_->thread);
    }
    if (orphan.joinable()) {
        State::Orphans::Instance().Adopt(state_, std::move(orphan));
    }
}

bool AsyncRunner::Post(std::function<void()> job)
{
    return state_->Post(std::move(job));
}

void AsyncRunner::Stop()
{
    const std::shared_ptr<State> state = state_;  // A dropped job may hold the last reference to the runner itself.
    state->Stop();
}

std::uint64_t AsyncRunner::Dropped() const
{
    const Nucleo::MutexGuard guard(state_->mutex);
    return state_->dropped;
}

std::uint64_t AsyncRunner::Failures() const
{
    return state_->failures;
}

}  // namespace Vx
