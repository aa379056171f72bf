#pragma once
// The REST resource of the current problems.

#include <VxCommon/Protocol/Problems/ProblemRes.h>
#include <VxCommon/VcLib/Export.h>
#include <VxRest/ResourceRouter.h>

namespace VxCommon
{

/// Holds the resource of "/problems". Made, used and destroyed by one thread.
class VXCOMMON_API ProblemsDir
{
public:
    /// `manager` must outlive the directory.
    explicit ProblemsDir(ProblemsManager& manager);

    /// Deregisters what is registered still.
    ~ProblemsDir();
    ProblemsDir(const ProblemsDir&) = delete;
    ProblemsDir& operator=(const ProblemsDir&) = delete;

    /// Registers "/problems". The router must outlive the registration. Throws Vx::Exception with ERROR_ALREADY_EXISTS
    /// when the path is taken or the directory is registered.
    void Register(VxRest::ResourceRouter& router);

    /// Removes "/problems" and everything beneath it from `router`, and waits for requests that are being served.
    void Deregister(VxRest::ResourceRouter& router);

private:
    Internal::ProblemRes problems_;
    VxRest::ResourceRouter* router_ = nullptr;
};

}  // namespace VxCommon
