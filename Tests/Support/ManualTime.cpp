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
    const TimePoint end = now_ + duration;
    while (!queue_.empty() && queue_.begin()->first.first <= end) {
        auto call = queue_.extract(queue_.begin());
        now_ = std::max(now_, call.key().first);
        call.mapped()();
    }
    now_ = end;
}

Vx::TimeService::Ticket ScopedManualTime::Schedule(TimePoint deadline, std::function<void()> callback)
{
    queue_.emplace(std::pair{deadline, ++lastTicket_}, std::move(callback));
    return lastTicket_;
}

void ScopedManualTime::Cancel(Ticket ticket)
{
    std::erase_if(queue_, [ticket](const auto& entry) { return entry.first.second == ticket; });
}

}  // namespace VxTestSupport
