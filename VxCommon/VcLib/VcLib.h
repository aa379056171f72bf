#pragma once
// The library's types as an assembly of the object model, and how the runtime's plug-in loader finds it. Any thread.

#include <Nucleo/Assembly.h>
#include <VxCommon/VcLib/Export.h>

extern "C" {

/// The assembly "VcLib", made by the first call and the same one in every later call, each time with one more
/// reference, which the caller releases. On failure `*assembly` is null, and the next call tries again.
VXCOMMON_API Nucleo::Status VcLib_Construct(Nucleo::Assembly** assembly);

// Entry points that the plug-in loader looks up by these names.

/// VcLib_Construct.
VXCOMMON_API Nucleo::Status PluginConstructAssembly(Nucleo::Assembly** assembly);

/// The assembly's version, four numbers with dots.
VXCOMMON_API const char* PluginAssemblyVersion();

/// The version of the platform that the library is built for, four numbers with dots.
VXCOMMON_API const char* PluginPlatformVersion();

}  // extern "C"
