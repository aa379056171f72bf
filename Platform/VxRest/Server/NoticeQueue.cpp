#include "NoticeQueue.h"

#include <utility>

namespace VxRest::Http
{

void NoticeQueue::Raise(EventType type, const std::string& path) noexcept
{
    raised_.fetch_add(1, std::memory_order_relaxed);
    const Nucleo::MutexGuard guard(mutex_);
    if (closed_) {
        return;
    }
    std::vector<Notice>& waiting = batch_.notices;
    const bool repeated =
        type == EventType::Updated && !waiting.empty() && waiting.back().type == type && waiting.back().path == path;
    if (!repeated) {
        try {
            if (waiting.size() >= limit_) {
                waiting.clear();
                batch_.lost = true;
            }
            waiting.push_back({type, path});
        } catch (...) {
            batch_.lost = true;
        }
    }
    if (listened_ && !awake_) {
        try {
            wake_();
            awake_ = true;
        } catch (...) {
            batch_.lost = true;
        }
    }
}

NoticeQueue::Batch NoticeQueue::Take(bool listened)
{
    const Nucleo::MutexGuard guard(mutex_);
    awake_ = false;
    listened_ = listened;
    return std::exchange(batch_, Batch());
}

void NoticeQueue::Close() noexcept
{
    const Nucleo::MutexGuard guard(mutex_);
    closed_ = true;
    batch_ = Batch();
}

}  // namespace VxRest::Http
