#pragma once

#include <cstdint>
#include <string>

#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// What a piece of state belongs to, and so how long it lives.
enum class PersistDomain : std::int32_t
{
    GLOBAL = 0,     ///< Settings of the device; they outlive everything.
    WORKSPACE = 1,  ///< The current working set.
    JOB = 2,        ///< Settings of the loaded job.
};

/// "GLOBAL", "WORKSPACE", "JOB"; "UNKNOWN" for any other value.
VXCOMMON_API std::string PersistDomain_Name(PersistDomain domain);

}  // namespace VxCommon
