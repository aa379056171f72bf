#include <VxCommon/Health/Health.h>

#include <atomic>
#include <exception>
#include <utility>

#include <TesselLib/Health.h>
#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxVision/ProbeHook.h>

namespace VxCommon
{
namespace
{

std::atomic<bool> taken{false};  // Whether there is an instance, or one is being made.
std::atomic<Health*> theHealth{nullptr};

Vx::Object<void*> Share(void* system)
{
    if (system == nullptr) {
        VX_THROW(ERROR_PARAMETER, "There is no system to take health messages from.");
    }
    auto* object = static_cast<Nucleo::Object*>(system);
    object->Share();
    return Vx::Object<void*>(object);
}

TesselLib::System& AsSystem(const Vx::Object<void*>& handle)
{
    return static_cast<TesselLib::System&>(*static_cast<Nucleo::Object*>(handle.Get()));
}

void LogFailure(Status status)
{
    if (status != OK) {
        Vx_Debug_Log(Error, "The health stream could not be closed (%d).", status);
    }
}

}  // namespace

/// The callbacks for one node's reports.
struct Health::NodeHandlers
{
    NodeContentEvent event;
    std::map<std::uint64_t, Vx::Subscription> subscriptions;  // By callback id; guarded by handlersMutex_.
};

Health* GlobalHealth() noexcept
{
    return theHealth;
}

Health::Health(void* system, std::uint32_t localId, std::uint32_t mainId)
try : system_(Share(system)), localId_(localId), mainId_(mainId) {
    if (taken.exchange(true)) {
        VX_THROW(ERROR_ALREADY_EXISTS);
    }
    try {
        Init();
        theHealth = this;
        VX_CHECK(VxVision::VvProbe_SetConstructor(&VvConstructProbeFx));
    } catch (...) {
        theHealth = nullptr;
        CloseHealth();
        taken = false;
        throw;
    }
} catch (...) {
    const Status status = Vx::StatusOf(std::current_exception());
    VX_THROW(status, "Error %d initializing health object for local id %u, main id %u", status, localId, mainId);
}

Health::~Health()
{
    Stop();
    VxVision::VvProbe_SetConstructor(nullptr);
    theHealth = nullptr;
    taken = false;
}

void Health::Init()
{
    AddNode(localId_, 0);
    if (mainId_ != localId_) {
        AddNode(mainId_, 0);
    }
    InitDefaultIndicators();
    OpenHealth();
}

void Health::OpenHealth()
{
    VX_CHECK(AsSystem(system_).SetHealthHandler(&OnSystemHealth, this));
    const Nucleo::MutexGuard guard(streamsMutex_);
    listening_ = true;
    OpenNodeHealth(localId_);
    if (mainId_ != localId_) {
        OpenNodeHealth(mainId_);
    }
}

void Health::OpenNodeHealth(std::uint32_t nodeId)
{
    if (TesselLib::Node* node = nullptr; AsSystem(system_).FindNode(nodeId, &node) == OK) {
        Vx::Check(VX_HERE_AS("VxCommon::Health::OpenHealth"), node->OpenHealthStream());
    }
}

void Health::CloseHealth() noexcept
{
    bool wasListening = false;
    {
        const Nucleo::MutexGuard guard(streamsMutex_);
        wasListening = std::exchange(listening_, false);
        if (wasListening) {
            LogFailure(AsSystem(system_).CloseHealthStream());
        }
    }
    if (wasListening) {
        LogFailure(AsSystem(system_).SetHealthHandler(nullptr, nullptr));
    }
    worker_.Stop();
    if (digesting_ == std::this_thread::get_id()) {
        stoppedInside_ = true;
    } else if (wasListening) {
        DigestRest();
    }
    // Another caller, who stops meanwhile, leaves what waits to the first, and its count: it has not waited for the
    // platform's thread.
    std::uint64_t dropped = wasListening || stoppedInside_ ? queue_.Clear() : 0;
    if (wasListening) {
        dropped += std::exchange(droppedInARow_, 0);
    }
    if (dropped != 0) {
        Vx_Debug_Log(Warning, "At the end of Health %llu messages were dropped.", dropped);
    }
}

bool Health::IsListening() const
{
    const Nucleo::MutexGuard guard(streamsMutex_);
    return listening_;
}

void Health::Start()
{
    worker_.Post([] { Vx_Debug_Log(Info, "Health started."); });
}

void Health::Stop()
{
    if (IsListening()) {
        Vx_Debug_Log(Info, "Stopping Health...");
    }
    CloseHealth();
}

void Health::OnSystemHealth(void* receiver, TesselLib::HealthMessage& message)
{
    try {
        static_cast<Health*>(receiver)->QueueMessage(message);
    } catch (const std::exception& exception) {
        Vx::LogException(VX_HERE, exception);
    } catch (...) {
        Vx_Debug_Log(Error, "A health message could not be taken: unknown exception.");
    }
}

void Health::QueueMessage(TesselLib::HealthMessage& message)
{
    if (!queue_.Push(message)) {
        if (droppedInARow_++ == 0) {
            Vx_Debug_Log(Warning, "The health worker is behind: messages are dropped, the first from node %u.",
                         message.SourceNode());
        }
        return;
    }
    // The worker is no longer behind once the queue was empty: a full one would make a line of every other message.
    if (droppedInARow_ != 0 && queue_.Count() <= 1) {
        Vx_Debug_Log(Warning, "The health worker keeps up again; %llu messages were dropped.",
                     std::exchange(droppedInARow_, 0));
    }
    worker_.Post([this] { DigestFirst(); });
}

void Health::DigestFirst()
{
    struct Mark
    {
        std::atomic<std::thread::id>& digesting;
        ~Mark() { digesting = std::thread::id(); }
    };
    if (const auto first = queue_.Pop()) {
        digesting_ = std::this_thread::get_id();
        const Mark mark{digesting_};
        OnSystemHealthHandler(*first.Get());
    }
}

/// Digests what waits when the worker has ended.
void Health::DigestRest() noexcept
{
    while (queue_.Count() != 0 && !stoppedInside_) {
        try {
            DigestFirst();
        } catch (const std::exception& exception) {
            Vx::LogException(VX_HERE, exception);
        } catch (...) {
            Vx_Debug_Log(Error, "A listener of Health failed with an unknown exception.");
        }
    }
}

std::uint64_t Health::DroppedMessages() const
{
    return queue_.Dropped();
}

void Health::OnSystemHealthHandler(TesselLib::HealthMessage& message)
{
    const Nucleo::Type* type = &message.Content().ItemType();
    if (type == &TesselLib::HealthStatistic::StaticType()) {
        DigestMessage(message);
    } else if (type == &TesselLib::InputEvent::StaticType()) {
        inputEvent_.Raise(*this, &message.Content());
    }
}

void Health::DigestMessage(TesselLib::HealthMessage& message)
{
    const std::uint32_t nodeId = message.SourceNode();
    if (const std::shared_ptr<NodeHandlers> handlers = FindNodeHandlers(nodeId)) {
        handlers->event.Raise(*this, nodeId, &message.Content());
        if (stoppedInside_) {
            return;
        }
    }
    const Vx::Locker locker(lock_);
    HealthNode* node = FindNode(nodeId);
    if (node == nullptr) {
        return;
    }
    const Nucleo::Handle<VcIndicatorCache> cache(Cache(nodeId));  // A listener may remove the node.
    VX_CHECK(VcIndicatorCache_Update(cache.Get(), &message.Content()));
    AggregateNodeIndicators(*node);
    UpdateSets(nodeId);
    nodeCacheUpdatedEvent_.Raise(*this, nodeId, cache.Get());
}

HealthNode* Health::FindNode(std::uint32_t nodeId) const
{
    const auto found = nodes_.find(nodeId);
    return found != nodes_.end() ? found->second.get() : nullptr;
}

HealthNode* Health::FindNodeBySource(std::int32_t source) const
{
    if (source != LocalSource && source != MainSource) {
        constexpr Status noSuchSource = -996;
        VX_THROW(noSuchSource, "Health source %d is neither the local node's (0) nor the main node's (100).", source);
    }
    return FindNode(source == LocalSource ? localId_ : mainId_);
}

void Health::AddNode(std::uint32_t nodeId, std::int32_t flags)
{
    Vx_Debug_Log(Info, "Health: adding node %u", nodeId);
    {
        const Vx::Locker locker(lock_);
        if (FindNode(nodeId) != nullptr) {
            VX_THROW(ERROR_ALREADY_EXISTS, "Health has node %u already.", nodeId);
        }
        auto node = std::make_unique<HealthNode>();
        node->nodeId = nodeId;
        node->flags = flags;
        VX_CHECK(VcIndicatorCache_Construct(node->cache.Receive(), nullptr));
        otherNodes_.reserve(nodes_.size() + 1);
        nodes_.emplace(nodeId, std::move(node));
        ListOtherNodes();
    }
    Vx_Debug_Log(Info, "Health: added node %u", nodeId);
}

void Health::RemoveNode(std::uint32_t nodeId)
{
    Vx_Debug_Log(Info, "Health: removing node %u", nodeId);
    {
        const Vx::Locker locker(lock_);
        if (const HealthNode* node = FindNode(nodeId)) {
            for (HealthAggregateProbe& probe : aggregateProbes_) {
                probe.total -= probe.index < node->aggregates.size() ? node->aggregates[probe.index] : 0;
            }
            nodes_.erase(nodeId);
            ListOtherNodes();
        }
    }
    Vx_Debug_Log(Info, "Health: removed node %u", nodeId);
}

/// There is room for all of them.
void Health::ListOtherNodes()
{
    otherNodes_.clear();
    for (const auto& [id, node] : nodes_) {
        if (id != localId_ && id != mainId_) {
            otherNodes_.push_back(node.get());
        }
    }
}

VcIndicatorCache* Health::Cache(std::uint32_t nodeId) const
{
    const Vx::Locker locker(lock_);
    const HealthNode* node = FindNode(nodeId);
    if (node == nullptr) {
        return nullptr;
    }
    node->cache->Share();
    return node->cache.Get();
}

std::int32_t Health::HealthSourceFromNodeId(std::uint32_t nodeId) const noexcept
{
    if (nodeId == localId_) {
        return LocalSource;
    }
    return nodeId == mainId_ ? MainSource : FirstOtherSource;
}

bool Health::GetMainValue(std::uint32_t id, std::uint32_t instance, std::int64_t* value) const
{
    return GetPlatformValue(MainSource, id, instance, value);
}

bool Health::GetPlatformValue(std::int32_t source, std::uint32_t id, std::uint32_t instance, std::int64_t* value) const
{
    const Vx::Locker locker(lock_);
    const HealthNode* node = FindNodeBySource(source);
    return node != nullptr && VcIndicatorCache_Find(node->cache.Get(), id, instance, value) == OK;
}

bool Health::GetPlatformValueByNodeId(std::uint32_t nodeId, std::uint32_t id, std::uint32_t instance,
                                      std::int64_t* value) const
{
    const Vx::Locker locker(lock_);
    const HealthNode* node = FindNode(nodeId);
    return node != nullptr && VcIndicatorCache_Find(node->cache.Get(), id, instance, value) == OK;
}

std::shared_ptr<Health::NodeHandlers> Health::FindNodeHandlers(std::uint32_t nodeId)
{
    const Nucleo::MutexGuard guard(handlersMutex_);
    const auto found = nodeHandlers_.find(nodeId);
    return found != nodeHandlers_.end() ? found->second : nullptr;
}

std::uint64_t Health::AddNodeIndicatorsHandler(std::uint32_t nodeId, NodeIndicatorsCallback callback)
{
    if (!FindNodeHandlers(nodeId)) {
        TesselLib::Node* node = nullptr;
        VX_CHECK(AsSystem(system_).FindNode(nodeId, &node));
        const Nucleo::MutexGuard guard(streamsMutex_);
        if (!listening_) {
            VX_THROW(ERROR_STATE, "Health has been stopped.");
        }
        VX_CHECK(node->OpenHealthStream());
    }
    const Nucleo::MutexGuard guard(handlersMutex_);
    auto& handlers = nodeHandlers_.try_emplace(nodeId, std::make_shared<NodeHandlers>()).first->second;
    const std::uint64_t id = ++lastCallbackId_;
    handlers->subscriptions[id] = handlers->event.Subscribe(std::move(callback));
    return id;
}

void Health::RemoveNodeIndicatorsHandler(std::uint32_t nodeId, std::uint64_t callbackId)
{
    Vx::Subscription ended;  // Outlives the guard: what the callback captured may do anything at its end.
    const Nucleo::MutexGuard guard(handlersMutex_);
    if (const auto handlers = nodeHandlers_.find(nodeId); handlers != nodeHandlers_.end()) {
        if (const auto found = handlers->second->subscriptions.find(callbackId);
            found != handlers->second->subscriptions.end()) {
            ended = std::move(found->second);
            handlers->second->subscriptions.erase(found);
        }
    }
}

void Health::ClearStats()
{
    {
        const Vx::Locker locker(lock_);
        for (const auto& [name, probe] : runtimeProbes_) {
            VX_CHECK(probe.Get()->Reset(0));
        }
    }
    clearStatsEvent_.Raise(*this);
}

void Health::RegisterRuntimeProbe(Nucleo::HealthProbe& probe)
{
    probe.Share();
    Vx::Object<Nucleo::HealthProbe*> held(&probe);
    const Vx::Locker locker(lock_);
    runtimeProbes_.emplace(probe.Name(), std::move(held));
}

bool Health::FindRuntimeProbe(const std::string& name, Vx::Object<Nucleo::HealthProbe*>* probe) const
{
    const Vx::Locker locker(lock_);
    const auto found = runtimeProbes_.find(name);
    if (found == runtimeProbes_.end()) {
        return false;
    }
    *probe = found->second;
    return true;
}

void Health::ClearRuntimeProbes()
{
    const Vx::Locker locker(lock_);
    runtimeProbes_.clear();
}

Status Health::VvConstructProbeFx(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id,
                                  std::uint32_t instance, std::int64_t initial)
{
    try {
        return GlobalHealth()->ConstructProbe(probe, name, id, instance, initial);
    } catch (const std::exception& exception) {
        Vx::LogException(VX_HERE, exception);
        const auto* known = dynamic_cast<const Vx::Exception*>(&exception);
        return known != nullptr ? known->Status() : 0;
    } catch (...) {
        Vx_Debug_Log(Error, "A probe could not be constructed: unknown exception.");
        return 0;
    }
}

Status Health::ConstructProbe(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id, std::uint32_t instance,
                              std::int64_t initial)
{
    const Vx::Locker locker(lock_);
    if (const auto found = runtimeProbes_.find(name); found != runtimeProbes_.end()) {
        *probe = found->second.Get();
        (*probe)->Share();
        return (*probe)->Reset(initial);
    }
    Nucleo::Handle<Nucleo::HealthProbe> made;
    VX_CHECK(Nucleo::HealthProbe::Make(made.Receive(), name, id, instance, initial, 0, 1, nullptr));
    RegisterRuntimeProbe(*made);
    *probe = made.Detach();
    return OK;
}

}  // namespace VxCommon
