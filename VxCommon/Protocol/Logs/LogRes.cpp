#include <VxCommon/Protocol/Logs/LogRes.h>

#include <algorithm>
#include <limits>

#include <VxApi/Exception.h>
#include <VxApi/JsonSerializer.h>
#include <VxApi/Logging.h>

namespace VxCommon::Internal
{
namespace
{

nlohmann::json ToDocument(const Vx::Properties::Structure& properties, const VxRest::RequestInfo& request)
{
    nlohmann::json document = Vx::Properties::JsonSerializer::Serialize(properties);
    if (request.IsSchemaRequested()) {
        document["_schema"] = Vx::Properties::JsonSerializer::SerializeSchema(properties);
    }
    return document;
}

/// The id in a request argument: whole numbers as they are, others cut to one. Numbers that no id can be become the
/// largest 64-bit value.
std::uint64_t ReadId(const nlohmann::json& value)
{
    constexpr std::uint64_t none = std::numeric_limits<std::uint64_t>::max();
    if (value.is_number_float()) {
        const double number = value.get<double>();
        // Converting what does not fit is undefined.
        return number > -1.0 && number < 4294967296.0 ? static_cast<std::uint64_t>(static_cast<std::int64_t>(number))
                                                      : none;
    }
    if (value.is_number_integer() && !value.is_number_unsigned() && value.get<std::int64_t>() < 0) {
        return none;
    }
    return value.get<std::uint64_t>();  // Throws the type error for what is no number.
}

/// The id in the argument `name`, which must be held by the log; `absent` when there is none.
std::uint64_t RequestedId(const nlohmann::json& args, const char* name, std::uint64_t absent, std::uint32_t first,
                          std::uint32_t last, const char* format, int line)
{
    const auto found = args.find(name);
    if (found == args.end()) {
        return absent;
    }
    const std::uint64_t id = ReadId(*found);
    if (id < first || id > last) {
        const auto shown =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(id, std::numeric_limits<std::uint32_t>::max()));
        // The lines are part of the report that clients know.
        VX_THROW_AT((Vx::Location{"Protocol/Logs/LogRes", line, "VxCommon::Internal::LogRes::Document"}),
                    Nucleo::ERROR_PARAMETER, format, shown, first, last);
    }
    return id;
}

/// What a page shows of an entry, taken out of the log so that its lock is not held while the page is made.
struct Entry
{
    VcLogMsgType level;
    std::uint32_t id;
    std::uint64_t timestamp;
    std::string text;
};

std::vector<Entry> CopyEntries(const nlohmann::json& args)
{
    const Vx::Locker locker = VcLogger_GetLock();
    const VcLog* log = VcLogger_PublicLog();
    const std::uint32_t first = VcLog_FirstId(log);
    const std::uint32_t last = VcLog_LastId(log);
    const std::uint64_t startIndex =
        RequestedId(args, "startId", first, first, last,
                    "Requested start ID (%u) is not within required range [%u, %u].", 125) -
        first;
    const std::uint64_t endIndex =
        args.contains("endId") ? RequestedId(args, "endId", last, first, last,
                                             "Requested end ID (%u) is not within required range [%u, %u].", 136) -
                                     first + 1
                               : VcLog_Count(log);
    std::vector<Entry> entries;
    if (startIndex < endIndex) {
        entries.reserve(endIndex - startIndex);
    }
    for (std::uint64_t i = startIndex; i < endIndex; ++i) {
        const VcLogMsg* msg = VcLog_At(log, i);
        entries.push_back({VcLogMsg_Type(msg), VcLogMsg_Id(msg), VcLogMsg_Timestamp(msg),
                           std::string(VcLogMsg_Text(msg), VcLogMsg_Length(msg))});
    }
    return entries;
}

}  // namespace

nlohmann::json LogRes::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    std::vector<Entry> entries = CopyEntries(request.Args());
    LogsProperties properties;
    for (Entry& entry : entries) {
        LogAttributes& attributes = properties.logs.Add();
        attributes.level.Set(entry.level);
        attributes.text.Set(std::move(entry.text));
        attributes.id.Set(entry.id);
        attributes.timestamp.Set(entry.timestamp);
    }
    return ToDocument(properties, request);
}

LogSummaryRes::LogSummaryRes()
{
    SetupEvents();
}

LogSummaryRes::LogSummaryRes(const LogSummaryRes& other) : VxRest::DocumentResourceBase(other)
{
    SetupEvents();
}

LogSummaryRes::~LogSummaryRes()
{
    TeardownEvents();
}

void LogSummaryRes::SetupEvents()
{
    const Vx::Locker locker = VcLogger_GetLock();
    VX_CHECK(VcLog_ChangeEvent(VcLogger_PublicLog())->Add(&LogSummaryRes::OnLogSummaryChanged, this));
}

void LogSummaryRes::TeardownEvents()
{
    // Under the lock no other thread is inside the handler, so the resource may go afterwards.
    const Vx::Locker locker = VcLogger_GetLock();
    static_cast<void>(VcLog_ChangeEvent(VcLogger_PublicLog())->Remove(&LogSummaryRes::OnLogSummaryChanged, this));
}

nlohmann::json LogSummaryRes::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    LogsSummaryProperties properties;
    {
        const Vx::Locker locker = VcLogger_GetLock();
        properties.idStart.Set(VcLog_FirstId(VcLogger_PublicLog()));
        properties.idEnd.Set(VcLog_LastId(VcLogger_PublicLog()));
    }
    return ToDocument(properties, request);
}

Nucleo::Status LogSummaryRes::OnLogSummaryChanged(void* receiver, void* /*sender*/, void* args)
{
    if (static_cast<const VcLogChangeArgs*>(args)->cleared > 1) {
        return Nucleo::OK;
    }
    try {
        static_cast<LogSummaryRes*>(receiver)->NotificationEvent().Raise(VxRest::EventType::Updated, "/logs/summary");
        return Nucleo::OK;
    } catch (const std::exception& exception) {
        const Vx::Location location{"Protocol/Logs/LogRes", 226,
                                    "VxCommon::Internal::LogSummaryRes::OnLogSummaryChanged"};
        Vx::Logging::Debug(Vx::Logging::Level::Error, location, "A listener of the log summary failed.");
        Vx::LogException(location, exception);
        return Vx::StatusOf(exception);
    } catch (...) {
        return Vx::StatusOf(std::current_exception());
    }
}

}  // namespace VxCommon::Internal
