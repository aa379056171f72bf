#pragma once
// A log ring: a bounded list of messages in one fixed region of memory. A message that does not fit drops the oldest
// ones. Ids grow by one a message and are never used again, so a reader can ask for what came after an id and sees from
// the first id what was lost.
//
// Not locked: the caller holds the lock that guards the ring (for the logger's rings, the logger's lock). See
// VcLogMsg.h for the rules of the C-style layer.

#include <cstddef>
#include <cstdint>

#include <Nucleo/ArrayList.h>
#include <Nucleo/Event.h>
#include <Nucleo/HealthProbe.h>
#include <Nucleo/HeapAllocator.h>
#include <Nucleo/RingList.h>
#include <Nucleo/Stream.h>
#include <Nucleo/String.h>
#include <VxCommon/Logger/VcLogMsg.h>

/// What the change event tells: the ids after the change.
struct VcLogChangeArgs
{
    std::uint32_t cleared;  ///< 1 when the ring was cleared, 0 when a message was added.
    std::uint32_t firstId;
    std::uint32_t lastId;
};
static_assert(sizeof(VcLogChangeArgs) == 12);

/// The entries hold the ids nextId - count to nextId - 1 without gaps. Read through the functions below.
struct VcLog final : Nucleo::Object
{
    explicit VcLog(Nucleo::Allocator& allocator) noexcept : changeEvent(allocator) {}
    static const Nucleo::Type& StaticType() noexcept;

    Nucleo::HeapAllocator msgHeap;
    std::uint64_t capacity = 0;  ///< Bytes of message memory.
    void* msgMemory = nullptr;
    Nucleo::RingList<VcLogMsg*> entries;  ///< Oldest first.
    Nucleo::HealthProbe* firstProbe = nullptr;
    Nucleo::HealthProbe* lastProbe = nullptr;
    std::uint32_t nextId = 1;
    Nucleo::Event changeEvent;
    std::uint32_t notifying = 0;
};

extern "C" {

/// A ring with `capacity` bytes for messages. All memory is taken here, from `allocator` (null: the default one); no
/// call below takes any but from the ring's own region. ERROR_PARAMETER when the allocator cannot hold objects or the
/// capacity is too small for a message or larger than Nucleo::HeapAllocator::LargestRegion.
VXCOMMON_API Nucleo::Status VcLog_Construct(VcLog** log, std::uint64_t capacity, Nucleo::Allocator* allocator);

/// Publishes the first and the last id as the health probes "Veloxa/Log First" (21301) and "Veloxa/Log Last" (21300).
/// ERROR_STATE when the ring has probes; on failure it has none.
VXCOMMON_API Nucleo::Status VcLog_InitHealthProbe(VcLog* log, std::uint32_t instance, Nucleo::Allocator* allocator);

// Texts that are put in must not lie in the ring itself: making room for them may free them.

/// Appends a message with id VcLog_NextId() and the wall-clock time of now; raises the change event. May drop the
/// oldest messages to make room. When the message cannot be built nothing is appended and the next id keeps its value;
/// dropped messages stay dropped.
VXCOMMON_API Nucleo::Status VcLog_Insert(VcLog* log, std::uint32_t sourceId, std::uint64_t timestamp, VcLogMsgType type,
                                         const char* text);

/// The same from a platform log record.
VXCOMMON_API Nucleo::Status VcLog_InsertLogArgs(VcLog* log, std::uint32_t sourceId, const Nucleo::LogArgs* logArgs);

/// Appends an argument to the newest message; may drop older ones, without an event. ERROR_STATE when the ring is
/// empty, ERROR_MEMORY when the newest message itself had to go. When a listener inserts from inside an insert's event,
/// the newest message is the listener's.
VXCOMMON_API Nucleo::Status VcLog_AddArgument(VcLog* log, const char* text, const Nucleo::Type* argType);

/// The entry at `index` (0: the oldest), which is below VcLog_Count(). It lives until the ring changes.
VXCOMMON_API VcLogMsg* VcLog_At(const VcLog* log, std::size_t index);

VXCOMMON_API std::size_t VcLog_Count(const VcLog* log);
VXCOMMON_API std::uint64_t VcLog_Capacity(const VcLog* log);  ///< Bytes of message memory.
VXCOMMON_API std::uint32_t VcLog_FirstId(const VcLog* log);   ///< One above the last id when the ring is empty.
VXCOMMON_API std::uint32_t VcLog_LastId(const VcLog* log);
VXCOMMON_API std::uint32_t VcLog_NextId(const VcLog* log);

/// Bytes of message memory in use, the heap's own headers included.
VXCOMMON_API std::int64_t VcLog_Used(const VcLog* log);

/// A new list, in memory of the default allocator, of the entries from index `start` on; empty when there are none. The
/// entries are the ring's own and live until it changes.
VXCOMMON_API Nucleo::Status VcLog_CopyEntries(const VcLog* log, Nucleo::ArrayList<VcLogMsg*>** list, std::size_t start);

/// Drops all entries in constant time and raises the change event. Ids go on from where they were.
VXCOMMON_API Nucleo::Status VcLog_Clear(VcLog* log);

/// Raised after each change, with the ring as sender and VcLogChangeArgs, under the lock that guards the ring. A change
/// from inside a handler raises nothing.
VXCOMMON_API Nucleo::Event* VcLog_ChangeEvent(VcLog* log);

/// Appends a message's display line of at most 255 bytes and CR LF to `*string`, which is made first (in memory of the
/// default allocator) when it is null. On failure a string that was there is unchanged.
VXCOMMON_API Nucleo::Status VcLog_FormatLog(Nucleo::String** string, const VcLogMsg* msg);

/// Writes every entry, oldest first: its display line of at most 255 bytes, then a line of four blanks and the text for
/// each argument; lines end with CR LF. Flushes the stream at the end. The first failure ends it.
VXCOMMON_API Nucleo::Status VcLog_Render(const VcLog* log, Nucleo::Stream* stream);

/// Registers the class "VcLog".
VXCOMMON_API Nucleo::Status xxVcLog_Register(Nucleo::Assembly* assembly);

}  // extern "C"
