#pragma once
// All REST resources of the logs.

#include <VxCommon/Protocol/Logs/LogCommands.h>
#include <VxCommon/Protocol/Logs/LogRes.h>
#include <VxCommon/VcLib/Export.h>
#include <VxRest/ResourceRouter.h>

namespace VxCommon
{

/// Holds the resources of "/logs" and below. They work on the public log, so the logger must exist for as long as the
/// directory does. Made, used and destroyed by one thread.
class VXCOMMON_API LogsDir
{
public:
    LogsDir();

    /// Deregisters what is registered still.
    ~LogsDir();
    LogsDir(const LogsDir&) = delete;
    LogsDir& operator=(const LogsDir&) = delete;

    /// Registers "/logs", "/logs/summary" and "/logs/commands/clear". The router must outlive the registration. Throws
    /// Vx::Exception with ERROR_ALREADY_EXISTS, and registers nothing, when one of the paths is taken or the directory
    /// is registered.
    void Register(VxRest::ResourceRouter& router);

    /// Removes the three paths and waits for requests that are being served. Does nothing when nothing is registered.
    void Deregister();

private:
    Internal::LogRes logs_;
    Internal::LogSummaryRes summary_;
    Internal::LogClearCmdRes clear_;
    VxRest::ResourceRouter* router_ = nullptr;
};

}  // namespace VxCommon
