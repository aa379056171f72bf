#pragma once
// The list of log handlers: whoever logs writes a record here, whoever keeps or shows logs registers a handler.
// Any thread may log, add and remove; a handler may log from inside its call.

#include <cstdint>

#include <Nucleo/Status.h>

namespace Nucleo
{

/// One log record: five words. The texts are NUL-ended UTF-8 and belong to the caller; a handler copies what it keeps.
struct LogArgs
{
    std::uint64_t options;   ///< Option word, see LogOption.
    std::uint64_t upTime;    ///< Microseconds since the process started (UpTime_Now()).
    std::uint64_t dateTime;  ///< Wall-clock time (DateTime_Now()).
    const char* source;      ///< Name of the module that logs, such as "Persistence/PersistManager".
    const char* message;     ///< The text, ready to be shown.
};
static_assert(sizeof(LogArgs) == 40);

/// The parts of a record's option word.
namespace LogOption
{
inline constexpr std::uint64_t Info = 0;
inline constexpr std::uint64_t Warning = 1;
inline constexpr std::uint64_t Error = 2;
inline constexpr std::uint64_t SeverityMask = 3;
inline constexpr std::uint64_t Public = std::uint64_t{1} << 32;  ///< Meant for users, not for the private log alone.
inline constexpr std::uint64_t Debug = std::uint64_t{1} << 63;   ///< Written through the debug-log call.
}  // namespace LogOption

/// Called for every record, on the thread that logs. Must not throw. The status is for the handler's own tests: a
/// failing handler does not stop the others.
using LogHandlerFx = Status (*)(void* receiver, const LogArgs& record);

/// Adds a handler at the end of the list. ERROR_ALREADY_EXISTS when the same pair is there already,
/// ERROR_MEMORY.
Status Log_AddHandler(LogHandlerFx handler, void* receiver);

/// Removes a handler and waits until no other thread is inside it, so that its receiver may be destroyed afterwards.
/// Called from inside the handler itself it does not wait for that call. ERROR_NOT_FOUND when the pair is not there,
/// ERROR_MEMORY, and the handler stays.
Status Log_RemoveHandler(LogHandlerFx handler, void* receiver);

/// Hands a record to every handler, in the order in which they were added.
void Log_Write(const LogArgs& record) noexcept;

}  // namespace Nucleo
