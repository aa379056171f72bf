#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>
#include <VxApi/TimeService.h>
#include <VxRest/Resource.h>

namespace VxHost
{

/// Tells of a resource's changes at most once a second, and never loses the last one. Safe on any thread. Raise is not
/// called any more when it ends, and who ends it holds no lock that listeners of the notice take.
class NoticeLimiter
{
public:
    static constexpr std::chrono::microseconds Period{1'000'000};

    /// `resource`, whose notices these are, must outlive the limiter.
    NoticeLimiter(VxRest::ResourceBase& resource, std::string path);

    /// Says that the document at the path has changed: at once when the last notice is a second old, otherwise on the
    /// timer thread when it is.
    void Raise();

private:
    void OnTimer();
    void Notify();

    VxRest::ResourceBase& resource_;
    const std::string path_;
    Vx::TimeService& time_;

    Nucleo::Mutex mutex_;
    bool pending_ VX_GUARDED_BY(mutex_) = false;
    std::optional<Vx::TimeService::TimePoint> last_ VX_GUARDED_BY(mutex_);

    // The last member: its end waits for the callback, which uses the others.
    Vx::AsyncTimer timer_{"noticeLimiter", [this] { OnTimer(); }};
};

}  // namespace VxHost
