#pragma once
// The commands of the public log.

#include <VxCommon/Logger/VcLogger.h>
#include <VxRest/Resource.h>

namespace VxCommon::Internal
{

/// What the log commands share: they need no arguments and are safe on any thread.
class LogCmdResBase : public VxRest::CommandResourceBase
{
protected:
    LogCmdResBase() = default;
};

/// "/logs/commands/clear": empties the public log and the filters, and answers null.
class LogClearCmdRes final : public LogCmdResBase
{
public:
    nlohmann::json Invoke(const VxRest::RequestInfo& request, const nlohmann::json& args) override;
};

}  // namespace VxCommon::Internal
