#pragma once

#include <chrono>
#include <cstddef>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>

namespace VxHost
{

/// Keeps the texts that the logger's filters remember from growing without bound. The logger must outlive it. Made and
/// destroyed by one thread, which does not hold the logger's lock.
class LogFilterWatch
{
public:
    static constexpr std::chrono::microseconds Period{10'000'000};

    /// Beyond this many texts the filters are emptied: texts that were shown once may then be shown again.
    static constexpr std::size_t MaxTexts = 10'000;

    /// Looks every Period from now on.
    LogFilterWatch();
    ~LogFilterWatch();
    LogFilterWatch(const LogFilterWatch&) = delete;
    LogFilterWatch& operator=(const LogFilterWatch&) = delete;

private:
    void OnTimer();

    Nucleo::Mutex mutex_;
    bool ending_ VX_GUARDED_BY(mutex_) = false;

    // The last member: its end waits for the callback, which uses the others.
    Vx::AsyncTimer timer_{"logFilterWatch", [this] { OnTimer(); }};
};

}  // namespace VxHost
