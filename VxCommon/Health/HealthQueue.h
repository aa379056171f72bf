#pragma once
// The messages that wait for the health worker.

#include <cstddef>
#include <cstdint>

#include <Nucleo/Lock.h>
#include <Nucleo/RingList.h>
#include <TesselLib/Health.h>
#include <VxApi/Object.h>

namespace VxCommon
{

/// First in, first out. Takes memory in its constructor only. Safe on any thread; its lock is a leaf.
class HealthQueue
{
public:
    static constexpr std::size_t MaxMessages = 1024;

    /// Records of all messages together: 20 MiB of statistics. One message always fits into an empty queue.
    static constexpr std::size_t MaxRecords = 4 * TesselLib::HealthMessage::MaxItems;

    /// Throws ERROR_MEMORY.
    HealthQueue();

    /// Drops what waits.
    ~HealthQueue() { Clear(); }
    HealthQueue(const HealthQueue&) = delete;
    HealthQueue& operator=(const HealthQueue&) = delete;

    /// Adds the message, with a reference of its own; false when there is no room, which counts as dropped.
    bool Push(TesselLib::HealthMessage& message);

    /// Takes the first message; null when none waits.
    Vx::Object<TesselLib::HealthMessage*> Pop();

    /// Drops what waits. How many that were.
    std::size_t Clear();

    /// How many wait.
    std::size_t Count() const;

    /// How many were dropped so far, for want of room or by Clear().
    std::uint64_t Dropped() const;

private:
    mutable Nucleo::Mutex mutex_;
    Nucleo::RingList<TesselLib::HealthMessage*> messages_ VX_GUARDED_BY(mutex_);
    std::size_t records_ VX_GUARDED_BY(mutex_) = 0;
    std::uint64_t dropped_ VX_GUARDED_BY(mutex_) = 0;
};

}  // namespace VxCommon
