#pragma once
// Events of the object classes: synchronous, in subscription order, on the raising thread.
//
// Subscribe and Raise may be used from any thread. No lock is held while listeners run: Raise walks a snapshot, a
// listener may subscribe, unsubscribe (itself or others) and raise again, and one that was unsubscribed during a raise
// is not called any more by it. What a listener throws leaves Raise; listeners after it are not called.

#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <Nucleo/Lock.h>

namespace Vx
{

/// Owns one subscription and ends it with its own life (or at Reset). May outlive the event. Ending it does not wait
/// for a call that is just running on another thread.
class Subscription
{
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> end) : end_(std::move(end)) {}
    Subscription(Subscription&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept
    {
        if (this != &other) {
            Reset();
            end_ = std::exchange(other.end_, nullptr);
        }
        return *this;
    }
    ~Subscription() { Reset(); }

    /// Ends the subscription now.
    void Reset() noexcept
    {
        if (auto end = std::exchange(end_, nullptr)) {
            end();
        }
    }

    explicit operator bool() const noexcept { return static_cast<bool>(end_); }

private:
    std::function<void()> end_;
};

template <class... Args>
class Event
{
public:
    using Listener = std::function<void(Args...)>;

    Event() : state_(std::make_shared<State>()) {}
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    /// Adds `listener` after those that are there. The listener is called until the subscription ends.
    [[nodiscard]] Subscription Subscribe(Listener listener)
    {
        auto slot = std::make_shared<Slot>(std::move(listener));
        {
            const Nucleo::MutexGuard guard(state_->mutex);
            auto slots = std::make_shared<Slots>(*state_->slots);
            slots->push_back(slot);
            state_->slots = std::move(slots);
        }
        return Subscription([state = std::weak_ptr<State>(state_), slot = std::weak_ptr<Slot>(slot)] {
            const auto ended = slot.lock();
            if (!ended) {
                return;
            }
            ended->live.store(false, std::memory_order_release);
            if (const auto owner = state.lock()) {
                const Nucleo::MutexGuard guard(owner->mutex);
                try {
                    auto slots = std::make_shared<Slots>(*owner->slots);
                    std::erase(*slots, ended);
                    owner->slots = std::move(slots);
                } catch (const std::bad_alloc&) {
                    // Ending a subscription never fails: a slot that stays is passed over from now on.
                    return;
                }
            }
        });
    }

    /// Calls every listener. A listener without a callable raises std::bad_function_call.
    void Raise(Args... args) const
    {
        std::shared_ptr<const Slots> slots;
        {
            const Nucleo::MutexGuard guard(state_->mutex);
            slots = state_->slots;
        }
        for (const auto& slot : *slots) {
            if (slot->live.load(std::memory_order_acquire)) {
                slot->listener(args...);
            }
        }
    }

private:
    struct Slot
    {
        explicit Slot(Listener callable) : listener(std::move(callable)) {}
        const Listener listener;
        std::atomic<bool> live{true};
    };
    using Slots = std::vector<std::shared_ptr<Slot>>;
    struct State
    {
        Nucleo::Mutex mutex;
        std::shared_ptr<const Slots> slots VX_GUARDED_BY(mutex) = std::make_shared<const Slots>();
    };
    std::shared_ptr<State> state_;
};

}  // namespace Vx
