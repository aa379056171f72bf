#pragma once
// Change notices on their way from whoever raises them to the I/O thread.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <Nucleo/Lock.h>
#include <VxRest/EventType.h>

namespace VxRest::Http
{

struct Notice
{
    EventType type;
    std::string path;
};

/// A leaf: raising takes only the queue's own lock, never logs, never calls out but to `wake`, and never throws. Safe
/// on any thread.
class NoticeQueue
{
public:
    /// `wake` is called under the queue's lock when something is there for Take and somebody listens; it must be just
    /// as harmless, and does not call back in here. What it throws counts as a wake that was missed: the next notice
    /// wakes again.
    NoticeQueue(std::size_t limit, std::function<void()> wake) : limit_(limit), wake_(std::move(wake)) {}

    /// Adds a notice. An update of the path that was updated last, and that nobody has taken yet, is the same notice.
    /// When the queue is full everything in it is dropped, and Take says so.
    void Raise(EventType type, const std::string& path) noexcept;

    struct Batch
    {
        std::vector<Notice> notices;
        bool lost = false;  ///< Notices before these were dropped.
    };

    /// Takes everything out. `listened`: whether notices from now on are worth waking for.
    Batch Take(bool listened);

    /// From now on nothing is added and nobody is woken.
    void Close() noexcept;

    /// Calls of Raise so far.
    std::uint64_t Raised() const noexcept { return raised_.load(std::memory_order_relaxed); }

private:
    const std::size_t limit_;
    const std::function<void()> wake_;
    std::atomic<std::uint64_t> raised_{0};
    Nucleo::Mutex mutex_;
    Batch batch_ VX_GUARDED_BY(mutex_);
    bool listened_ VX_GUARDED_BY(mutex_) = false;
    bool awake_ VX_GUARDED_BY(mutex_) = false;  ///< Woken, and not yet taken.
    bool closed_ VX_GUARDED_BY(mutex_) = false;
};

}  // namespace VxRest::Http
