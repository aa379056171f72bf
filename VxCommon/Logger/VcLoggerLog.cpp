// The ways in: texts, formats and platform records. Each takes the logger's lock for itself.

#include <VxCommon/Logger/VcLogger.h>

#include <cstring>

#include <Nucleo/Clock.h>
#include <VxApi/Logging.h>
#include <VxCommon/Logger/VcLogInternal.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;

namespace
{

/// Inserts by `insert` unless a filter holds `text` back, then remembers `text`. The lock is held.
template <class Insert>
Status LogFiltered(VcLogger& logger, std::uint32_t usePublic, const char* text, Insert insert)
{
    // Most calls filter and remember nothing, and spare the look into the sets.
    const auto concernsFilters = [&] { return logger.inCycle != 0 || usePublic != 0; };
    if (!concernsFilters() || VcLogger_IsMessageFiltered(usePublic, text) == 0) {
        if (const Status status = insert(); status != OK) {
            return status;
        }
    }
    // Asked again: a listener of the insertion may have begun a cycle.
    return !concernsFilters() ? OK : VcLogger_AddToMessageFilter(&logger, usePublic, text);
}

const char* MessageOf(const Nucleo::LogArgs& logArgs)
{
    return logArgs.message != nullptr ? logArgs.message : "";
}

std::uint32_t UsePublic(const VcLogger& logger, std::uint32_t publicFilter)
{
    return publicFilter != 0 && logger.publicFilterEnabled != 0 ? 1 : 0;
}

/// Inserts a plain text at the present time.
Status InsertNow(VcLogger& logger, VcLog& log, VcLogMsgType type, std::string_view text)
{
    const Nucleo::ClockReading now = Nucleo::Clock_Read();
    return VxCommon::Internal::VcLog_InsertContent(
        log, {logger.sourceId, type, now.scaled - logger.timeOrigin, now.dateTime, 0, text});
}

/// The entry `id`, or null when the ring does not hold it any more.
VcLogMsg* Find(VcLog& log, std::uint32_t id)
{
    const std::uint32_t index = id - VcLog_FirstId(&log);
    return index < VcLog_Count(&log) ? VcLog_At(&log, index) : nullptr;
}

/// Attaches the arguments of `format` to the entry `id`, which a listener that logs may have made an older one.
Status AttachArguments(VcLog& log, std::uint32_t id, const char* format, const Nucleo::FormatArgs& args)
{
    Nucleo::ArgCursor argCursor{args};
    const Nucleo::Type* argType = nullptr;
    while (VcLogger_ParseSpecificer(&format, &argType) == OK) {
        char text[VcLogger::ArgumentCapacity];
        if (const Status status = VcLogger_FormatArg(&argCursor, argType, text, sizeof text); status != OK) {
            return status;
        }
        VcLogMsg* msg = Find(log, id);
        if (msg == nullptr) {
            return ERROR_STATE;  // A listener dropped it.
        }
        if (const Status status = VcLogMsg_AddArgument(msg, text, argType); status != OK) {
            return status;
        }
        if (Find(log, id) == nullptr) {
            return ERROR_STATE;  // It went for its argument, though a reader has it still.
        }
    }
    return OK;
}

/// Prints `format`, which takes no notice of positional markers. Without them it has to fit into `stripped`; it is
/// printed with them all the same, so that what it prints does not depend on its length.
Status PrintText(const char* format, const Nucleo::FormatArgs& args, char (&stripped)[VcLogger::TextCapacity],
                 char* buffer, std::size_t capacity, std::size_t* length)
{
    const std::string_view whole(format);
    if (whole.size() >= sizeof stripped && !Vx::Logging::StripPositionalParameters(format, stripped, sizeof stripped)) {
        return ERROR_CAPACITY;
    }
    return Nucleo::PrintTo(buffer, capacity, length, whole, args);
}

}  // namespace

Status VcLogger_AddLogHandler()
{
    return Nucleo::Log_AddHandler(&VcLogger_LogCallback, nullptr);
}

Status VcLogger_RemoveLogHandler()
{
    return Nucleo::Log_RemoveHandler(&VcLogger_LogCallback, nullptr);
}

Status VcLogger_LogCallback(void* /*receiver*/, const Nucleo::LogArgs& logArgs)
{
    VcLogger* logger = VcLogger_Instance();
    if (logger == nullptr) {
        return OK;
    }
    const Vx::Locker locker(logger->lock);
    const char* text = MessageOf(logArgs);
    if (logger->privateLoggingEnabled != 0) {
        const Status status = LogFiltered(
            *logger, 0, text, [&] { return VcLog_InsertLogArgs(logger->privateLog, logger->sourceId, &logArgs); });
        if (status != OK) {
            return status;
        }
    }
    if ((logArgs.options & Nucleo::LogOption::Public) == 0) {
        return OK;
    }
    // In a cycle the private branch has just remembered the text, so this drops it: that is intended.
    return LogFiltered(*logger, logger->publicFilterEnabled, text,
                       [&] { return VcLog_InsertLogArgs(logger->publicLog, logger->sourceId, &logArgs); });
}

Status VcLogger_LogImpl(VcLogger* logger, VcLog* log, VcLogMsgType type, std::uint32_t publicFilter, const char* text)
{
    const Vx::Locker locker(logger->lock);
    return LogFiltered(*logger, UsePublic(*logger, publicFilter), text,
                       [&] { return InsertNow(*logger, *log, type, text); });
}

Status VcLogger_LogImplLogArgs(VcLogger* logger, VcLog* log, std::uint32_t publicFilter, const Nucleo::LogArgs* logArgs)
{
    const Vx::Locker locker(logger->lock);
    return LogFiltered(*logger, UsePublic(*logger, publicFilter), MessageOf(*logArgs),
                       [&] { return VcLog_InsertLogArgs(log, logger->sourceId, logArgs); });
}

Status VcLogger_LogfImpl(VcLogger* logger, VcLog* log, std::uint32_t structured, VcLogMsgType type,
                         std::uint32_t publicFilter, const char* format, const Nucleo::FormatArgs& args)
{
    // Printed before the lock is taken, so that threads that log at once print side by side.
    char stripped[VcLogger::TextCapacity];
    char text[VcLogger::TextCapacity];
    std::size_t length = 0;
    if (const Status status = PrintText(format, args, stripped, text, sizeof text, &length); status != OK) {
        return status;
    }
    const Vx::Locker locker(logger->lock);
    const std::uint32_t usePublic = UsePublic(*logger, publicFilter);
    return LogFiltered(*logger, usePublic, text, [&]() -> Status {
        if (VcLogger_IsMessageFiltered(usePublic, format) != 0) {
            return OK;
        }
        if (structured == 0) {
            return InsertNow(*logger, *log, type, {text, length});
        }
        const std::uint32_t id = VcLog_NextId(log);
        const Status status = InsertNow(*logger, *log, type, format);
        return status == OK ? AttachArguments(*log, id, format, args) : status;
    });
}

Status VcLogger_LogfImplLogArgs(VcLogger* logger, VcLog* log, std::uint32_t publicFilter,
                                const Nucleo::LogArgs* logArgs, const Nucleo::FormatArgs& args)
{
    const Vx::Locker locker(logger->lock);
    return LogFiltered(*logger, UsePublic(*logger, publicFilter), MessageOf(*logArgs), [&] {
        const std::uint32_t id = VcLog_NextId(log);
        const Status status = VcLog_InsertLogArgs(log, logger->sourceId, logArgs);
        return status == OK ? AttachArguments(*log, id, MessageOf(*logArgs), args) : status;
    });
}

Status VcLogger_MakeLogText(const char* format, const Nucleo::FormatArgs& args, char* buffer, std::size_t capacity)
{
    return PrintText(format, args, VcLogger_Instance()->formatBuffer, buffer, capacity, nullptr);
}
