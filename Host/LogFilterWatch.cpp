#include "LogFilterWatch.h"

#include <VxApi/Logging.h>
#include <VxCommon/Logger/VcLogger.h>

namespace VxHost
{
namespace
{

/// Empties filters that hold too many texts. Gives how many they held, or 0 when they were left as they are.
std::size_t ClearLargeFilters()
{
    const Vx::Locker locker = VcLogger_GetLock();
    const std::size_t count = VcLogger_FilterCount();
    if (count <= LogFilterWatch::MaxTexts) {
        return 0;
    }
    static_cast<void>(VcLogger_ClearMessageFilters());
    return count;
}

}  // namespace

LogFilterWatch::LogFilterWatch()
{
    timer_.Start(Period);
}

LogFilterWatch::~LogFilterWatch()
{
    // A callback that is just running must not start the timer again.
    const Nucleo::MutexGuard guard(mutex_);
    ending_ = true;
    timer_.Stop();
}

void LogFilterWatch::OnTimer()
{
    if (const std::size_t count = ClearLargeFilters(); count != 0) {
        Vx_Debug_Log(Warning, "The log filters held %llu texts; they are emptied.", count);
    }
    const Nucleo::MutexGuard guard(mutex_);
    if (!ending_) {
        timer_.Start(Period);
    }
}

}  // namespace VxHost
