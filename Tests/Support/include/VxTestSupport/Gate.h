#pragma once
// Events between a test's threads. Every wait has a bound that only a failure meets.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace VxTestSupport
{

/// Something that happens once and can be waited for.
class Signal
{
public:
    void Set()
    {
        const std::lock_guard guard(mutex_);
        set_ = true;
        changed_.notify_all();
    }

    /// False when it has not happened within the bound.
    bool Await(std::chrono::milliseconds bound = std::chrono::seconds(30))
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, bound, [this] { return set_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};

/// A call that says when it has begun and goes on when it is told to.
struct Gate
{
    Signal entered;
    Signal open;
    std::atomic<bool> left{false};

    void Pass()
    {
        entered.Set();
        open.Await();
        left = true;
    }
};

/// Waits until `condition` holds; false when it does not within the bound.
template <class Condition>
bool Eventually(const Condition& condition, std::chrono::milliseconds bound = std::chrono::seconds(30))
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace VxTestSupport
