#pragma once
// The documents of the public log: a range of its entries, and which ids it holds.

#include <string>
#include <utility>
#include <vector>

#include <VxApi/Properties.h>
#include <VxCommon/Logger/VcLogger.h>
#include <VxRest/Resource.h>

template <>
struct Vx::Properties::EnumTraits<VcLogMsgType>
{
    static std::vector<std::pair<VcLogMsgType, std::string>> Values()
    {
        return {{VcLogMsgType_Info, "Info"}, {VcLogMsgType_Warning, "Warning"}, {VcLogMsgType_Error, "Error"}};
    }
};

namespace VxCommon::Internal
{

/// One entry.
struct LogAttributes : Vx::Properties::Structure
{
    Vx::Properties::Value<VcLogMsgType> level{*this, "level"};
    Vx::Properties::Value<std::string> text{*this, "text"};
    Vx::Properties::Value<std::uint32_t> id{*this, "id"};
    Vx::Properties::Value<std::uint64_t> timestamp{*this, "timestamp"};  ///< Microseconds since the logger's origin.
};

/// "/logs".
struct LogsProperties : Vx::Properties::Structure
{
    Vx::Properties::Array<LogAttributes> logs{*this, "logs"};
};

/// "/logs/summary". The first id is one above the last when the log is empty.
struct LogsSummaryProperties : Vx::Properties::Structure
{
    Vx::Properties::Value<std::uint32_t> idStart{*this, "idStart"};
    Vx::Properties::Value<std::uint32_t> idEnd{*this, "idEnd"};
};

/// "/logs": the entries from argument "startId" to argument "endId", both optional. Safe on any thread.
class LogRes final : public VxRest::DocumentResourceBase
{
public:
    /// Throws Vx::Exception with ERROR_PARAMETER for an id that the log does not hold, and the JSON library's type
    /// error for one that is no number.
    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;
};

/// "/logs/summary". Turns changes of the public log into notices. Safe on any thread.
class LogSummaryRes final : public VxRest::DocumentResourceBase
{
public:
    LogSummaryRes();

    // A copy, and the target of a move, follows the log by a subscription of its own.
    LogSummaryRes(const LogSummaryRes& other);
    LogSummaryRes& operator=(const LogSummaryRes&) = delete;
    ~LogSummaryRes() override;

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

    /// The handler of the log's change event, called under the logger's lock: `args` is a VcLogChangeArgs. Raises a
    /// notice; what a listener throws is logged and answered as its status.
    static Nucleo::Status OnLogSummaryChanged(void* receiver, void* sender, void* args);

private:
    void SetupEvents();
    void TeardownEvents();
};

}  // namespace VxCommon::Internal
