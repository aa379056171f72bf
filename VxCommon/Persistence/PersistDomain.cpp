#include <VxCommon/Persistence/PersistDomain.h>

namespace VxCommon
{

std::string PersistDomain_Name(PersistDomain domain)
{
    switch (domain) {
        case PersistDomain::GLOBAL:
            return "GLOBAL";
        case PersistDomain::WORKSPACE:
            return "WORKSPACE";
        case PersistDomain::JOB:
            return "JOB";
    }
    return "UNKNOWN";
}

}  // namespace VxCommon
