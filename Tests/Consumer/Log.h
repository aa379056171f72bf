#pragma once

#include <Nucleo/Clock.h>
#include <VxApi/Exception.h>
#include <VxCommon/Logger/VcLogger.h>

/// The logger of the process: made before everything that logs, destroyed after it.
class Log
{
public:
    Log()
    {
        VX_CHECK(VcLogger_Construct(logger_.Receive(), 1, Nucleo::Timer_Scale(Nucleo::Timer_Query()), nullptr));
        VX_CHECK(VcLogger_AddLogHandler());
    }
    ~Log() { static_cast<void>(VcLogger_RemoveLogHandler()); }

private:
    Nucleo::Handle<VcLogger> logger_;
};
