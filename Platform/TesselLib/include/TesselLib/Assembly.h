#pragma once

#include <Nucleo/Assembly.h>

namespace TesselLib
{

/// The sensor platform's own assembly, "TesselLib": always there, finalized. Any thread.
Nucleo::Assembly& TesselLib_Assembly() noexcept;

}  // namespace TesselLib
