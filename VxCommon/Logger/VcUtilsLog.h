#pragma once
// Log lines for files and consoles. Safe on any thread.

#include <cstdint>

#include <Nucleo/Format.h>
#include <Nucleo/String.h>
#include <VxCommon/VcLib/Export.h>

extern "C" {

/// A new string, in memory of the default allocator: date and time to the second, ": ", the text, CR LF. A time that
/// cannot be formatted is left out. On failure `*string` is null.
VXCOMMON_API Nucleo::Status VcUtils_Log(Nucleo::String** string, std::uint64_t dateTime, const char* text);

/// The same with a printed text.
VXCOMMON_API Nucleo::Status VcUtils_Logvf(Nucleo::String** string, std::uint64_t dateTime, const char* format,
                                          const Nucleo::FormatArgs& args);

/// What both call: `textOrFormat` is printed with `args` when `isFormat` is set, and otherwise taken as it is.
VXCOMMON_API Nucleo::Status VcUtils_LogInternal(Nucleo::String** string, std::uint64_t dateTime, std::uint32_t isFormat,
                                                const char* textOrFormat, const Nucleo::FormatArgs& args);

}  // extern "C"
