#include <atomic>
#include <utility>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxApi/TimeService.h>

namespace Vx
{

struct AsyncTimer::State
{
    State(std::string timerName, std::function<void()> timerCallback)
        : name(std::move(timerName)), callback(std::move(timerCallback)), service(TimeService::Current())
    {}

    void Stop() VX_REQUIRES(mutex)
    {
        if (pending != 0) {
            service.Cancel(std::exchange(pending, 0));
        }
    }

    // Runs one firing. `generation` tells a firing that was just being called when the timer was stopped or restarted.
    void Fire(std::uint64_t generation)
    {
        {
            const Nucleo::MutexGuard guard(mutex);
            if (generation != started || pending == 0) {
                return;
            }
            running = std::exchange(pending, 0);
        }
        try {
            callback();
        } catch (const std::exception& exception) {
            ++failures;
            Vx_Debug_Log(Error, "Callback of timer '%s' failed (%s).", name, exception.what());
            LogException(VX_HERE, exception);
        } catch (...) {
            ++failures;
            Vx_Debug_Log(Error, "Callback of timer '%s' failed with an unknown exception.", name);
        }
    }

    const std::string name;
    const std::function<void()> callback;
    TimeService& service;
    std::atomic<std::uint64_t> failures{0};
    Nucleo::Mutex mutex;
    TimeService::Ticket pending VX_GUARDED_BY(mutex) = 0;
    TimeService::Ticket running VX_GUARDED_BY(mutex) = 0;  // The last firing that began.
    std::uint64_t started VX_GUARDED_BY(mutex) = 0;
    bool ended VX_GUARDED_BY(mutex) = false;  // The timer is being destroyed: its running callback starts it no more.
};

AsyncTimer::AsyncTimer(std::string name, std::function<void()> callback)
    : state_(std::make_shared<State>(std::move(name), std::move(callback)))
{}

AsyncTimer::~AsyncTimer()
{
    TimeService::Ticket running = 0;
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        state_->Stop();
        state_->ended = true;
        running = state_->running;
    }
    if (running != 0) {
        state_->service.Wait(running);
    }
}

void AsyncTimer::Start(std::chrono::microseconds delay)
{
    const Nucleo::MutexGuard guard(state_->mutex);
    if (state_->ended) {
        return;
    }
    state_->Stop();
    const std::uint64_t generation = ++state_->started;
    state_->pending = state_->service.Schedule(state_->service.Now() + delay,
                                               [state = state_, generation] { state->Fire(generation); });
}

void AsyncTimer::Stop()
{
    const Nucleo::MutexGuard guard(state_->mutex);
    state_->Stop();
}

bool AsyncTimer::IsRunning() const
{
    const Nucleo::MutexGuard guard(state_->mutex);
    return state_->pending != 0;
}

std::uint64_t AsyncTimer::Failures() const
{
    return state_->failures;
}

}  // namespace Vx
