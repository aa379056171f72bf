#include <VxCommon/ProblemsManager/VcProblemSeverity.h>

const char* VcProblemSeverity_Name(VcProblemSeverity severity)
{
    switch (severity) {
        case VcProblemSeverity_Potential:
            return "Potential";
        case VcProblemSeverity_Blocking:
            return "Blocking";
    }
    return "Unknown";
}
