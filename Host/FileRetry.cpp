#include "FileRetry.h"

#include <utility>

namespace VxHost
{

FileRetry::FileRetry(VxCommon::PersistManager& manager, AutoSaveWatch& watch) : manager_(manager), watch_(watch)
{
    if (manager_.RetryFiles()) {
        return;
    }
    const Nucleo::MutexGuard guard(mutex_);
    timer_ = std::make_unique<Vx::AsyncTimer>("fileRetry", [this] { OnTimer(); });
    timer_->Start(Period);
}

FileRetry::~FileRetry()
{
    std::unique_ptr<Vx::AsyncTimer> timer;
    {
        const Nucleo::MutexGuard guard(mutex_);
        timer = std::move(timer_);
    }
    // Here the timer waits for its callback, without the lock that this takes.
}

void FileRetry::OnTimer()
{
    if (manager_.RetryFiles()) {
        watch_.Expect(VxCommon::PersistDomain::GLOBAL);
        return;
    }
    const Nucleo::MutexGuard guard(mutex_);
    if (timer_) {
        timer_->Start(Period);
    }
}

}  // namespace VxHost
