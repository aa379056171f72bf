#include "ProcessLog.h"

#include <cstdio>

#include <Nucleo/Clock.h>
#include <VxApi/Exception.h>
#include <VxCommon/Logger/VcLogger.h>

namespace VxHost
{
namespace
{

constexpr std::uint32_t hostSourceId = 1;

}  // namespace

ProcessLog::ProcessLog(bool filterPublic)
{
    VX_CHECK(VcLogger_Construct(&logger_, hostSourceId, Nucleo::Timer_Scale(Nucleo::Timer_Query()), nullptr));
    static_cast<void>(VcLogger_EnablePublicMessageFilter(filterPublic ? 1 : 0));
    if (const Nucleo::Status status = VcLogger_AddLogHandler(); status != Nucleo::OK) {
        static_cast<void>(Nucleo::Destroy(logger_));
        VX_THROW(status);
    }
}

ProcessLog::~ProcessLog()
{
    static_cast<void>(VcLogger_RemoveLogHandler());
    if (const Nucleo::Status status = Nucleo::Destroy(logger_); status != Nucleo::OK) {
        // Nothing takes log lines any more.
        std::fprintf(stderr, "vxhost: the logger cannot be released (%d)\n", status);
    }
}

}  // namespace VxHost
