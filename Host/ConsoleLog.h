#pragma once

#include <Nucleo/Log.h>
#include <VxApi/Logging.h>

namespace VxHost
{

/// Writes log lines of at least a level to stderr, for its own life. Safe on any thread.
class ConsoleLog
{
public:
    explicit ConsoleLog(Vx::Logging::Level level);
    ~ConsoleLog();
    ConsoleLog(const ConsoleLog&) = delete;
    ConsoleLog& operator=(const ConsoleLog&) = delete;

private:
    static Nucleo::Status OnRecord(void* receiver, const Nucleo::LogArgs& record);

    const Vx::Logging::Level level_;
};

}  // namespace VxHost
