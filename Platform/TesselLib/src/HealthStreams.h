#pragma once
// The virtual system's health streams: which are open, who listens, and the health thread that delivers.
// Safe on any thread. The lock is a leaf: nothing is called out to under it.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <set>
#include <thread>

#include <Nucleo/Lock.h>
#include <Nucleo/RingList.h>
#include <TesselLib/Health.h>

namespace TesselLib
{

class HealthStreams
{
public:
    HealthStreams() = default;
    HealthStreams(const HealthStreams&) = delete;
    HealthStreams& operator=(const HealthStreams&) = delete;

    /// Drops what waits and joins the thread.
    ~HealthStreams();

    // As System, Node and VirtualSystem_InjectHealth, VirtualSystem_FlushHealth say.
    Nucleo::Status SetHandler(HealthHandlerFx handler, void* receiver);
    void OpenSystem();
    Nucleo::Status OpenNode(std::uint32_t id);
    void CloseAll();
    Nucleo::Status Inject(HealthMessage& message);
    Nucleo::Status Flush(std::chrono::milliseconds bound);

private:
    void Run();
    void DeliverFirst() VX_REQUIRES(mutex_);
    bool IsHeard(const HealthMessage& message) const VX_REQUIRES(mutex_);
    Nucleo::Status StartThread() VX_REQUIRES(mutex_);
    void DropAll() VX_REQUIRES(mutex_);

    Nucleo::Mutex mutex_;
    std::condition_variable_any changed_;
    HealthHandlerFx handler_ VX_GUARDED_BY(mutex_) = nullptr;
    void* receiver_ VX_GUARDED_BY(mutex_) = nullptr;
    bool systemOpen_ VX_GUARDED_BY(mutex_) = false;
    std::set<std::uint32_t> openNodes_ VX_GUARDED_BY(mutex_);
    Nucleo::RingList<HealthMessage*> queue_ VX_GUARDED_BY(mutex_);  // Holds a reference to each.
    std::uint64_t dropped_ VX_GUARDED_BY(mutex_) = 0;               // Since the queue last had room.
    bool delivering_ VX_GUARDED_BY(mutex_) = false;                 // The thread is in the handler.
    bool stopping_ VX_GUARDED_BY(mutex_) = false;
    std::thread thread_ VX_GUARDED_BY(mutex_);  // From the first handler on.
};

}  // namespace TesselLib
