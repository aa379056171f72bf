#pragma once

#include <cstdint>

#include <VxCommon/VcLib/Export.h>

/// How bad a problem is. The values travel to clients.
enum VcProblemSeverity : std::int32_t
{
    VcProblemSeverity_Potential = 0,  ///< May stop the system from running.
    VcProblemSeverity_Blocking = 1,   ///< Stops the system from running.
};

extern "C" {

/// "Potential", "Blocking"; "Unknown" for any other value. Never null; lives as long as the process. Any thread.
VXCOMMON_API const char* VcProblemSeverity_Name(VcProblemSeverity severity);

}  // extern "C"
