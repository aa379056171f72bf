#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Logs/LogCommands.h>

namespace VxCommon::Internal
{

nlohmann::json LogClearCmdRes::Invoke(const VxRest::RequestInfo& /*request*/, const nlohmann::json& /*args*/)
{
    const Vx::Locker locker = VcLogger_GetLock();
    // The line is part of the report that clients know.
    Vx::Check({"Protocol/Logs/LogCommands", 33, "VxCommon::Internal::LogClearCmdRes::Invoke"},
              VcLogger_ClearPublicLogAndFilter());
    return nullptr;
}

}  // namespace VxCommon::Internal
