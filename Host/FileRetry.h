#pragma once
// Tries again what could not be done with the state's files at start.

#include <chrono>
#include <memory>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>
#include <VxCommon/Persistence/PersistManager.h>

#include "AutoSaveWatch.h"

namespace VxHost
{

/// Calls PersistManager::RetryFiles at once and then every few seconds, on the timer thread, until nothing is left to
/// be tried. Whenever a file was set aside unread it has GLOBAL saved, which names the copies. Made and destroyed by
/// one thread.
class FileRetry
{
public:
    static constexpr std::chrono::microseconds Period{3'000'000};

    /// `manager`, whose state has been loaded, and `watch` must outlive the object.
    FileRetry(VxCommon::PersistManager& manager, AutoSaveWatch& watch);

    /// Waits for an attempt that is under way. The caller holds no lock of the manager.
    ~FileRetry();
    FileRetry(const FileRetry&) = delete;
    FileRetry& operator=(const FileRetry&) = delete;

private:
    void OnTimer();
    bool Retry();

    VxCommon::PersistManager& manager_;
    AutoSaveWatch& watch_;
    std::ptrdiff_t copies_ = 0;  // Files that were set aside unread. Used by the thread that retries.
    Nucleo::Mutex mutex_;
    std::unique_ptr<Vx::AsyncTimer> timer_ VX_GUARDED_BY(mutex_);  // Null once this ends.
};

}  // namespace VxHost
