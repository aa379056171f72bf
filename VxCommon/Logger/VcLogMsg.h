#pragma once
// One entry of a log ring.
//
// Rules of the C-style layer: functions answer a status unless they only read a field. An out argument is null after a
// failure. Texts are NUL-ended UTF-8 and copied; pointers may not be null unless a function says so. Objects end with
// Nucleo::Destroy. A message is not locked: whoever holds its ring's lock may use it.

#include <cstdint>

#include <Nucleo/Assembly.h>
#include <Nucleo/Log.h>
#include <Nucleo/Object.h>
#include <VxCommon/VcLib/Export.h>

/// Severity. The values travel to clients.
enum VcLogMsgType : std::int32_t
{
    VcLogMsgType_Info = 0,
    VcLogMsgType_Warning = 1,
    VcLogMsgType_Error = 2,
};

/// A separately stored argument of a message, already formatted.
struct VcLogMsgArg
{
    const Nucleo::Type* type;  ///< One of the eight argument types, see Nucleo/ValueTypes.h.
    char* text;
    VcLogMsgArg* next;  ///< Null for the last one.
};
static_assert(sizeof(VcLogMsgArg) == 24);

/// Everything that a message owns is in memory of the allocator it was made with. Immutable but for its arguments,
/// which are only appended.
struct VcLogMsg final : Nucleo::Object
{
    VcLogMsg() noexcept {}  // NOLINT(modernize-use-equals-default): a defaulted one would be zeroed as a whole first.
    static const Nucleo::Type& StaticType() noexcept;

    std::uint64_t timestamp = 0;  ///< Microseconds since the logger's time origin, or a record's up time.
    std::uint32_t sourceId = 0;   ///< The module that logged.
    std::uint32_t id = 0;         ///< Sequence number in the ring.
    std::uint32_t length = 0;     ///< Of `text` in bytes, without the NUL.
    VcLogMsgType type = VcLogMsgType_Info;
    std::uint64_t dateTime = 0;  ///< Wall-clock time, see Nucleo::DateTime_Now().
    std::uint64_t options = 0;   ///< Option word of a platform record (Nucleo::LogOption); 0 for a plain text.
    char* text = nullptr;
    char* sourceName = nullptr;  ///< Of a platform record; null for a plain text.
    VcLogMsgArg* firstArg = nullptr;
    VcLogMsgArg* lastArg = nullptr;
};

extern "C" {

/// A message from a plain text. The wall-clock time is now. ERROR_PARAMETER when the allocator cannot hold objects,
/// before anything is allocated; otherwise the allocator's status. A null allocator is the default one.
VXCOMMON_API Nucleo::Status VcLogMsg_Construct(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id,
                                               std::uint64_t timestamp, VcLogMsgType type, const char* text,
                                               Nucleo::Allocator* allocator);

/// A message from a platform log record: its up time, wall-clock time, source name, text, and severity from bits 0-1 of
/// its option word (3 counts as information).
VXCOMMON_API Nucleo::Status VcLogMsg_ConstructLogArgs(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id,
                                                      const Nucleo::LogArgs* logArgs, Nucleo::Allocator* allocator);

/// Appends an argument with a copy of `text`, which must not lie in a ring that the message is in. On failure the list
/// is unchanged. In a ring it may drop the oldest messages; when the message itself had to go for it, ERROR_MEMORY, and
/// the message is gone.
VXCOMMON_API Nucleo::Status VcLogMsg_AddArgument(VcLogMsg* msg, const char* text, const Nucleo::Type* argType);

VXCOMMON_API std::uint32_t VcLogMsg_Id(const VcLogMsg* msg);
VXCOMMON_API std::uint32_t VcLogMsg_SourceId(const VcLogMsg* msg);
VXCOMMON_API const char* VcLogMsg_SourceName(const VcLogMsg* msg);  ///< May be null.
VXCOMMON_API const char* VcLogMsg_Text(const VcLogMsg* msg);
VXCOMMON_API std::uint32_t VcLogMsg_Length(const VcLogMsg* msg);
VXCOMMON_API VcLogMsgType VcLogMsg_Type(const VcLogMsg* msg);
VXCOMMON_API std::uint64_t VcLogMsg_Timestamp(const VcLogMsg* msg);
VXCOMMON_API std::uint64_t VcLogMsg_DateTime(const VcLogMsg* msg);
VXCOMMON_API const VcLogMsgArg* VcLogMsg_FirstArg(const VcLogMsg* msg);  ///< Null when there are none.
VXCOMMON_API const VcLogMsgArg* VcLogMsg_NextArg(const VcLogMsg* msg, const VcLogMsgArg* arg);  ///< Null at the end.
VXCOMMON_API const Nucleo::Type* VcLogMsg_ArgType(const VcLogMsg* msg, const VcLogMsgArg* arg);
VXCOMMON_API const char* VcLogMsg_ArgText(const VcLogMsg* msg, const VcLogMsgArg* arg);

/// Registers the class "VcLogMsg".
VXCOMMON_API Nucleo::Status xxVcLogMsg_Register(Nucleo::Assembly* assembly);

}  // extern "C"
