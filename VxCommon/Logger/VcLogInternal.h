#pragma once
// What the logger's parts share with each other and with nobody else.

#include <cstdint>
#include <string_view>

#include <VxCommon/Logger/VcLog.h>

namespace VxCommon::Internal
{

/// A message in one block of `heap`, its texts behind it. The text is taken by its length; it holds no NUL.
Nucleo::Status VcLogMsg_MakeOneBlock(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id, std::uint64_t timestamp,
                                     std::uint64_t dateTime, VcLogMsgType type, std::string_view text,
                                     Nucleo::HeapAllocator& heap);
Nucleo::Status VcLogMsg_MakeOneBlock(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id,
                                     const Nucleo::LogArgs& logArgs, Nucleo::HeapAllocator& heap);

/// Nucleo::Destroy of a message of a ring with the heap `heap`.
Nucleo::Status VcLogMsg_Drop(VcLogMsg& msg, Nucleo::HeapAllocator& heap);

/// A new argument that belongs to no message yet; null on failure.
Nucleo::Status VcLogMsgArg_Make(VcLogMsgArg** arg, const char* text, const Nucleo::Type* type,
                                Nucleo::Allocator& allocator);
Nucleo::Status VcLogMsgArg_Free(VcLogMsgArg* arg, Nucleo::Allocator& allocator);
void VcLogMsg_Append(VcLogMsg& msg, VcLogMsgArg* arg);

/// VcLog_Insert for a caller that has read the clock.
Nucleo::Status VcLog_InsertAt(VcLog& log, std::uint32_t sourceId, std::uint64_t timestamp, std::uint64_t dateTime,
                              VcLogMsgType type, std::string_view text);

}  // namespace VxCommon::Internal
