#pragma once
// All REST resources of the job system.

#include <VxCommon/Protocol/Persistence/PersistJobsActionsRes.h>
#include <VxCommon/Protocol/Persistence/PersistJobsRes.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Holds the resources of "/jobs" and below, registered on a router for its own life. Requests to them run one at a
/// time. Made and destroyed by one thread; the destructor waits for requests that are being served.
class VXCOMMON_API PersistDir
{
public:
    /// Both must outlive the directory. Throws Vx::Exception with ERROR_ALREADY_EXISTS, and registers nothing, when one
    /// of the paths is taken.
    PersistDir(VxRest::ResourceRouter& router, PersistManager& manager);
    ~PersistDir();
    PersistDir(const PersistDir&) = delete;
    PersistDir& operator=(const PersistDir&) = delete;

private:
    VxRest::ResourceRouter& router_;
    Internal::PersistJobsRes jobs_;
    Internal::PersistJobsFilesRes files_;
    Internal::PersistJobsFilesDataRes data_;
    Internal::PersistJobsLoadCommandRes load_;
    Internal::PersistJobsSaveCommandRes save_;
    Internal::PersistJobsCopyCommandRes copy_;
    Internal::PersistJobsRenameCommandRes rename_;
    Internal::PersistJobsSetDefaultCommandRes setDefault_;
};

}  // namespace VxCommon
