#include <algorithm>

#include <VxTestSupport/ManualTime.h>

namespace VxTestSupport
{

ScopedManualTime::ScopedManualTime() : now_(std::chrono::hours(1)), previous_(TimeService::Replace(this)) {}

ScopedManualTime::~ScopedManualTime()
{
    TimeService::Replace(previous_);
}

void ScopedManualTime::Advance(std::chrono::microseconds duration)
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

std::size_t ScopedManualTime::Pending() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return queue_.size();
}

Vx::TimeService::TimePoint ScopedManualTime::Now() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return now_;
}

Vx::TimeService::Ticket ScopedManualTime::Schedule(TimePoint deadline, std::function<void()> callback)
{
    const Nucleo::MutexGuard guard(mutex_);
    queue_.emplace(std::pair{deadline, ++lastTicket_}, std::move(callback));
    return lastTicket_;
}

void ScopedManualTime::Cancel(Ticket ticket)
{
    std::function<void()> dropped;  // Destroyed after the lock is left.
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = std::find_if(queue_.begin(), queue_.end(),
                                    [ticket](const auto& entry) { return entry.first.second == ticket; });
    if (found != queue_.end()) {
        dropped = std::move(found->second);
        queue_.erase(found);
    }
}

}  // namespace VxTestSupport
