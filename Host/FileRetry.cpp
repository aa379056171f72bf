#include "FileRetry.h"

#include <algorithm>
#include <utility>

namespace VxHost
{

FileRetry::FileRetry(VxCommon::PersistManager& manager, AutoSaveWatch& watch) : manager_(manager), watch_(watch)
{
    if (Retry()) {
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

bool FileRetry::Retry()
{
    const bool settled = manager_.RetryFiles();
    const auto troubles = manager_.FileTroubles();
    const auto copies = std::count_if(troubles.begin(), troubles.end(),
                                      [](const auto& trouble) { return trouble.unread && !trouble.keptAs.empty(); });
    if (std::exchange(copies_, copies) != copies) {
        watch_.Expect(VxCommon::PersistDomain::GLOBAL);
    }
    return settled;
}

void FileRetry::OnTimer()
{
    if (Retry()) {
        return;
    }
    const Nucleo::MutexGuard guard(mutex_);
    if (timer_) {
        timer_->Start(Period);
    }
}

}  // namespace VxHost
