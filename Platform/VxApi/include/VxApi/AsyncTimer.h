#pragma once
// A one-shot timer whose callback runs on the timer thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Vx
{

/// Start, stop and restart from any thread, also from inside the callback. A callback that throws is logged and
/// counted; it ends neither the timer nor the process. Never destroy a timer while holding a lock that its callback
/// takes: destruction waits for a running callback (except from inside that callback).
class AsyncTimer
{
public:
    /// `name` appears in the log when a callback throws.
    AsyncTimer(std::string name, std::function<void()> callback);
    ~AsyncTimer();
    AsyncTimer(const AsyncTimer&) = delete;
    AsyncTimer& operator=(const AsyncTimer&) = delete;

    /// Fires once after `delay`. A timer that is running already starts anew with this delay. A callback that does this
    /// while its timer is being destroyed does nothing.
    void Start(std::chrono::microseconds delay);

    /// Takes a pending firing back and returns at once; a callback that is just running goes on.
    void Stop();

    /// True from Start until the callback begins or Stop.
    bool IsRunning() const;

    /// How many callbacks have thrown so far.
    std::uint64_t Failures() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace Vx
