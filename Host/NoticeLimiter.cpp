#include "NoticeLimiter.h"

#include <utility>

namespace VxHost
{

NoticeLimiter::NoticeLimiter(VxRest::ResourceBase& resource, std::string path)
    : resource_(resource), path_(std::move(path)), time_(Vx::TimeService::Current())
{}

void NoticeLimiter::Raise()
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        if (pending_) {
            return;  // The notice that waits tells of this change too.
        }
        const auto now = time_.Now();
        if (last_ && now - *last_ < Period) {
            timer_.Start(std::chrono::ceil<std::chrono::microseconds>(*last_ + Period - now));
            pending_ = true;
            return;
        }
        last_ = now;
    }
    Notify();
}

void NoticeLimiter::OnTimer()
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        pending_ = false;
        last_ = time_.Now();
    }
    Notify();
}

void NoticeLimiter::Notify()
{
    resource_.NotificationEvent().Raise(VxRest::EventType::Updated, path_);
}

}  // namespace VxHost
