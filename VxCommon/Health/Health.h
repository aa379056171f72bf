#pragma once
// The process's collector of health indicators: it takes the reports of the system's nodes, keeps the latest of each,
// sums chosen counters over all nodes, and publishes sets of indicators.
//
// Reports arrive on the platform's health thread, which only queues them; a worker digests them one after the other,
// and Stop() those that are left. Everything may be called from any thread; one re-entrant lock guards nodes, sets,
// caches and probes. Failures are thrown as Vx::Exception; lookups answer false or null.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <Nucleo/HealthProbe.h>
#include <Nucleo/Lock.h>
#include <TesselLib/System.h>
#include <VxApi/AsyncRunner.h>
#include <VxApi/Event.h>
#include <VxApi/Object.h>
#include <VxCommon/Health/HealthNode.h>
#include <VxCommon/Health/HealthQueue.h>
#include <VxCommon/Health/VcIndicatorSet.h>
#include <VxCommon/VcLib/Export.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{

/// A process has one at most, see GlobalHealth(). Made, stopped and destroyed by one thread, not by a listener (which
/// may stop it).
///
/// Sets number nodes by sources: 0 is the local node, 100 the main node, 101 and up are the others in the order of
/// their ids. A node that is both has both numbers.
class VXCOMMON_API Health
{
public:
    static constexpr std::int32_t LocalSource = 0;
    static constexpr std::int32_t MainSource = 100;
    static constexpr std::int32_t FirstOtherSource = 101;

    /// The set that every Health has: the platform's and the application's indicators and the aggregates.
    static constexpr std::int32_t DefaultSet = 0;

    /// As the instance of an aggregate's filter: every instance of the id.
    static constexpr std::uint32_t AllInstances = 0xFFFFFFFF;

    /// `content` is the message's Nucleo::AnyArrayList: HealthStatistic or, for input events, InputEvent records.
    using ContentEvent = Vx::Event<Health&, void*>;
    using NodeContentEvent = Vx::Event<Health&, std::uint32_t, void*>;

    /// Called with the node's id and the content of one of its reports.
    using NodeIndicatorsCallback = std::function<void(Health&, std::uint32_t, void*)>;

    /// Listens to the nodes `localId`, on which this process runs, and `mainId`, which owns the system (it may be the
    /// same); one that `system`, a TesselLib::System, does not find is left out. Who wants the reports of all nodes
    /// opens the system's health stream afterwards. Adds both nodes and the default set with its filters and
    /// aggregates, and becomes the vision library's probe constructor. Throws ERROR_ALREADY_EXISTS when there is an
    /// instance, or whatever a step failed with, as "Error %d initializing health object for local id %u, main id %u".
    /// Once its handler was set, that is cleared then and every health stream of the system closed.
    Health(void* system, std::uint32_t localId, std::uint32_t mainId);

    /// Stops; releases caches, sets and probes. The caller holds no lock that listeners or vision code take.
    ~Health();
    Health(const Health&) = delete;
    Health& operator=(const Health&) = delete;

    /// Has the worker say in the log that it runs.
    void Start();

    /// Ends listening: closes the system's health stream and all nodes', and ends the worker once the message that is
    /// being digested is finished. The messages that wait then are digested on this thread, so that what was reported
    /// counts: no listener may wait for a thread or a lock of the caller. Called by a listener it waits for nothing,
    /// and drops what waits; what is left of the message's digest still happens, except after a node's callback. The
    /// caller does not hold the lock, unless it is a listener. Later calls do nothing; one that comes while another
    /// thread stops does not wait for what that still digests. A listener may stop the object, not destroy it.
    void Stop();

    /// Enter and leave the lock, for callers that read sets or caches over several calls: these change with the next
    /// report.
    void Lock() VX_ACQUIRE(lock_) { lock_.Enter(); }
    void Unlock() VX_RELEASE(lock_) { lock_.Leave(); }

    /// The same for Vx::Locker.
    Nucleo::Lock& GetLock() const noexcept VX_RETURN_CAPABILITY(lock_) { return lock_; }

    /// Takes reports of the node from now on. `flags` is only kept. Throws ERROR_ALREADY_EXISTS.
    void AddNode(std::uint32_t nodeId, std::int32_t flags);

    /// Forgets the node, if it is known, and what it reported. Sets show that with the next report of any other node,
    /// aggregates with the next one that they do not leave out.
    void RemoveNode(std::uint32_t nodeId);

    /// The latest report of the node, with a reference for the caller; null when the node is not known. It is read
    /// under the lock.
    VcIndicatorCache* Cache(std::uint32_t nodeId) const;

    /// 0 for the local node, 100 for the main node, 101 for every other id.
    std::int32_t HealthSourceFromNodeId(std::uint32_t nodeId) const noexcept;

    /// Makes an empty set, unless there is one of that id, and hands it out in `*set` (may be null). The set stays the
    /// health's. Its filters and overwrites are changed under the lock; overwrites are called under the lock.
    void AddHealthSet(std::int32_t setId, VcIndicatorSet** set);

    /// The set, null when there is none; it is read under the lock.
    VcIndicatorSet* GetPublicIndicators(std::int32_t setId) const;

    /// The value, or a copy of the name, of an indicator of a set. False, and the out argument is left alone, when the
    /// set, which is logged, or the indicator is missing.
    bool GetPublicValue(std::int32_t setId, std::uint32_t id, std::uint32_t instance, std::int64_t* value) const;
    bool GetPublicName(std::int32_t setId, std::uint32_t id, std::uint32_t instance, std::string* name) const;

    /// A value of the default set.
    bool GetAppValue(std::uint32_t id, std::uint32_t instance, std::int64_t* value) const;

    /// A value of the main node's latest report.
    bool GetMainValue(std::uint32_t id, std::uint32_t instance, std::int64_t* value) const;

    /// A value of a node's latest report: false, and `*value` is left alone, when the node or the indicator is missing.
    /// Throws (-996) for a source other than the local and the main node's.
    bool GetPlatformValue(std::int32_t source, std::uint32_t id, std::uint32_t instance, std::int64_t* value) const;
    bool GetPlatformValueByNodeId(std::uint32_t nodeId, std::uint32_t id, std::uint32_t instance,
                                  std::int64_t* value) const;

    /// Adds an indicator of the default set: the sum, modulo 2^64, of chosen counters over all nodes, 0 before reports
    /// came. Its handle, in `*probe` (may be null), lives as long as the health. Names are cut to 63 bytes; throws
    /// ERROR_PARAMETER for one of more than 64.
    void AddAggregateProbe(const std::string& name, std::uint32_t id, std::uint32_t instance,
                           HealthAggregateProbe** probe);

    /// Adds counters to the sum: one instance (or AllInstances) of an id, or all instances of each of `count` ids. They
    /// count from the next report of each node on.
    void AddAggregateProbeFilter(HealthAggregateProbe& probe, std::uint32_t id, std::uint32_t instance);
    void AddAggregateProbeIdFilters(HealthAggregateProbe& probe, const std::uint32_t* ids, std::size_t count);

    /// Sets the aggregates to 0 and leaves the next `skipCount` reports of each node out of them.
    void ResetAggregateProbes(std::size_t skipCount);

    /// Calls back with every report of the node, known or not, before it is digested, where it is digested and without
    /// the lock. The first callback of a node opens its health stream. Gives the id by which the callback is removed.
    /// Throws when the system does not find the node or its stream cannot be opened.
    std::uint64_t AddNodeIndicatorsHandler(std::uint32_t nodeId, NodeIndicatorsCallback callback);

    /// Ends the callbacks; a call that runs on the worker is not waited for. An unknown id is passed over.
    void RemoveNodeIndicatorsHandler(std::uint32_t nodeId, std::uint64_t callbackId);

    /// Raised where messages are digested, without the lock, with each message of input events.
    ContentEvent& InputEvent() noexcept { return inputEvent_; }

    /// Raised by ClearStats() after it succeeded and has left the lock.
    Vx::Event<Health&>& ClearStatsEvent() noexcept { return clearStatsEvent_; }

    /// Raised where messages are digested, under the lock, with the node's id and VcIndicatorCache when a report has
    /// been digested: aggregates and sets are up to date. A listener takes none of the locks that stand above this one.
    NodeContentEvent& NodeCacheUpdatedEvent() noexcept { return nodeCacheUpdatedEvent_; }

    /// Resets every runtime probe to 0, in the order of their names; throws at the first that fails.
    void ClearStats();

    /// Keeps a runtime probe alive under its name, with a reference of its own. When there is one of that name, that
    /// one is kept.
    void RegisterRuntimeProbe(Nucleo::HealthProbe& probe);

    /// The runtime probe of that name in `*probe`; false, and `*probe` is left alone, when there is none.
    bool FindRuntimeProbe(const std::string& name, Vx::Object<Nucleo::HealthProbe*>* probe) const;

    /// Forgets all runtime probes.
    void ClearRuntimeProbes();

    /// How many messages were not digested so far, because too much waited for the worker or a listener stopped it.
    std::uint64_t DroppedMessages() const;

private:
    struct NodeHandlers;

    // In Health.cpp: life, messages, nodes, runtime probes.
    void Init();
    void OpenHealth();
    void OpenNodeHealth(std::uint32_t nodeId) VX_REQUIRES(streamsMutex_);
    void CloseHealth() noexcept;
    void DigestFirst();
    void DigestRest() noexcept;
    bool IsListening() const;
    static void OnSystemHealth(void* receiver, TesselLib::HealthMessage& message);
    void QueueMessage(TesselLib::HealthMessage& message);
    void OnSystemHealthHandler(TesselLib::HealthMessage& message);
    void DigestMessage(TesselLib::HealthMessage& message);
    std::shared_ptr<NodeHandlers> FindNodeHandlers(std::uint32_t nodeId);
    HealthNode* FindNode(std::uint32_t nodeId) const VX_REQUIRES(lock_);
    HealthNode* FindNodeBySource(std::int32_t source) const VX_REQUIRES(lock_);
    VcIndicatorSet* FindSet(std::int32_t setId) const VX_REQUIRES(lock_);
    VcIndicatorSet* FindSetFor(std::int32_t setId, std::uint32_t id, std::uint32_t instance) const VX_REQUIRES(lock_);
    void ListOtherNodes() VX_REQUIRES(lock_);
    static Nucleo::Status VvConstructProbeFx(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id,
                                             std::uint32_t instance, std::int64_t initial);
    Nucleo::Status ConstructProbe(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id,
                                  std::uint32_t instance, std::int64_t initial);

    // In HealthSets.cpp: aggregates and sets.
    void InitDefaultIndicators();
    void AddAggregateProbes();
    void AggregateNodeIndicators(HealthNode& node) VX_REQUIRES(lock_);
    void UpdateAggregateProbes() VX_REQUIRES(lock_);
    void UpdateSets(std::uint32_t nodeId) VX_REQUIRES(lock_);
    void RegisterSources(VcIndicatorSet& set) VX_REQUIRES(lock_);
    const VcIndicatorCache* CacheOfSource(std::int32_t source) const VX_REQUIRES(lock_);
    void PostUpdateSet(std::int32_t setId, VcIndicatorSet& set) VX_REQUIRES(lock_);
    void UpdateSetWithCastStartIndicator(VcIndicatorSet& set) VX_REQUIRES(lock_);
    void UpdateSetWithAggregates(VcIndicatorSet& set) VX_REQUIRES(lock_);

    // Constant after construction.
    const Vx::Object<void*> system_;
    const std::uint32_t localId_;
    const std::uint32_t mainId_;

    mutable Nucleo::Lock lock_;
    ContentEvent inputEvent_;
    Vx::Event<Health&> clearStatsEvent_;
    NodeContentEvent nodeCacheUpdatedEvent_;
    std::map<std::uint32_t, std::unique_ptr<HealthNode>> nodes_ VX_GUARDED_BY(lock_);
    std::vector<HealthNode*> otherNodes_ VX_GUARDED_BY(lock_);  // Neither local nor main, by id: sources from 101 on.
    std::map<std::int32_t, Nucleo::Handle<VcIndicatorSet>> sets_ VX_GUARDED_BY(lock_);
    std::map<std::string, Vx::Object<Nucleo::HealthProbe*>> runtimeProbes_ VX_GUARDED_BY(lock_);
    std::deque<HealthAggregateProbe> aggregateProbes_ VX_GUARDED_BY(lock_);
    std::uint32_t nextAggregateIndex_ VX_GUARDED_BY(lock_) = 0;

    HealthQueue queue_;
    Vx::AsyncRunner worker_{"health", HealthQueue::MaxMessages + 1};  // A job for each message, and that of Start.
    std::atomic<std::thread::id> digesting_;                          // The thread that digests a message just now.
    std::atomic<bool> stoppedInside_ = false;                         // Whether a listener has stopped it.
    std::uint64_t droppedInARow_ = 0;  // Used by the platform's health thread, and by who has ended its calls.

    mutable Nucleo::Mutex streamsMutex_;  // Held while streams are opened and closed, so that none opens after Stop.
    bool listening_ VX_GUARDED_BY(streamsMutex_) = false;  // Whether the platform's handler is this object's.

    Nucleo::Mutex handlersMutex_;  // A leaf: no handler is called or destroyed under it.
    std::map<std::uint32_t, std::shared_ptr<NodeHandlers>> nodeHandlers_ VX_GUARDED_BY(handlersMutex_);
    std::uint64_t lastCallbackId_ VX_GUARDED_BY(handlersMutex_) = 0;
};

/// The process's instance; null before one is constructed and after it was destroyed. Any thread may call; who uses the
/// result sees to it that it is not destroyed meanwhile.
VXCOMMON_API Health* GlobalHealth() noexcept;

}  // namespace VxCommon
