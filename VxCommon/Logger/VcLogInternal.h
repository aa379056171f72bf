#pragma once
// What the logger's parts share with each other and with nobody else.

#include <cstdint>
#include <string_view>

#include <VxCommon/Logger/VcLog.h>

namespace VxCommon::Internal
{

/// What a message is made from, but for its id. The texts are taken by their lengths; they hold no NUL.
struct VcLogMsgContent
{
    std::uint32_t sourceId;
    VcLogMsgType type;
    std::uint64_t timestamp;
    std::uint64_t dateTime;
    std::uint64_t options = 0;
    std::string_view text;
    std::string_view sourceName = {};  ///< Without data for none.
};

/// A message in one block of `heap`, its texts behind it.
Nucleo::Status VcLogMsg_MakeOneBlock(VcLogMsg** msg, std::uint32_t id, const VcLogMsgContent& content,
                                     Nucleo::HeapAllocator& heap);

VcLogMsgContent VcLogMsg_ContentOf(std::uint32_t sourceId, const Nucleo::LogArgs& logArgs);

/// Nucleo::Destroy of a message of a ring with the heap `heap`.
Nucleo::Status VcLogMsg_Drop(VcLogMsg& msg, Nucleo::HeapAllocator& heap);

/// VcLog_Insert for a caller that has read the clock.
Nucleo::Status VcLog_InsertContent(VcLog& log, const VcLogMsgContent& content);

}  // namespace VxCommon::Internal
