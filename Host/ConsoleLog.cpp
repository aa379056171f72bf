#include "ConsoleLog.h"

#include <cstdio>
#include <exception>
#include <string>

#include <VxApi/Exception.h>

namespace VxHost
{

ConsoleLog::ConsoleLog(Vx::Logging::Level level) : level_(level)
{
    VX_CHECK(Nucleo::Log_AddHandler(&ConsoleLog::OnRecord, this));
}

ConsoleLog::~ConsoleLog()
{
    static_cast<void>(Nucleo::Log_RemoveHandler(&ConsoleLog::OnRecord, this));
}

Nucleo::Status ConsoleLog::OnRecord(void* receiver, const Nucleo::LogArgs& record)
{
    const auto& self = *static_cast<const ConsoleLog*>(receiver);
    if ((record.options & Nucleo::LogOption::SeverityMask) < static_cast<std::uint64_t>(self.level_)) {
        return Nucleo::OK;
    }
    try {
        const std::string line =
            Vx::Logging::FormatLogLine(record.dateTime, record.options, record.source, record.message) + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);  // One call a line: lines of two threads do not mix.
        return Nucleo::OK;
    } catch (const std::exception&) {
        return Nucleo::ERROR_MEMORY;
    }
}

}  // namespace VxHost
