#pragma once
// The registry of persistence handlers, and the passes that initialise, load and save them.
//
// The controller does not lock: its owner, the persist manager, calls it under the manager's lock. While a pass runs,
// handlers may register, unregister and notify from inside it: the pass goes on over the handlers that were registered
// when it began and leaves out those that have gone.

#include <functional>

#include <VxApi/Location.h>
#include <VxCommon/Persistence/IPersistController.h>
#include <VxCommon/Persistence/PersistHandlerList.h>
#include <VxCommon/System/IUpdatableSystem.h>

namespace VxCommon
{

class VXCOMMON_API PersistController final : public IPersistController, public PersistHandlerList
{
public:
    /// Told of a notification: the handler, the domain, and the handler's registration name (empty when unregistered).
    using Listener = std::function<void(IPersistHandler&, PersistDomain, const std::string& name)>;

    /// `system` is held in update mode during every pass, and must outlive the controller.
    explicit PersistController(IUpdatableSystem& system) : system_(system) {}

    void* RegisterHandler(IPersistHandler& handler, const std::string& name) override { return Add(handler, name); }
    void UnregisterHandler(void* handle) override;

    /// Flags the change (the load), then tells the listeners in the order in which they were added. What a listener
    /// throws passes through; one without a callable raises std::bad_function_call.
    void NotifyChange(IPersistHandler& handler, PersistDomain domain) override;
    void NotifyLoad(IPersistHandler& handler, PersistDomain domain) override;

    void AddChangeListener(Listener listener) { changeListeners_.push_back(std::move(listener)); }
    void AddLoadListener(Listener listener) { loadListeners_.push_back(std::move(listener)); }

    // The passes. Each acts on the handlers that are registered under exactly `name`, in registration order, with
    // `store`. A failing handler is logged (and under "<Verb> domain" in the public log), keeps its pending flag and
    // does not stop the others; at the end one Vx::Exception tells of all: the first failure's status, the first
    // failing handler, the count. An exception that is no std::exception ends the pass at once.

    /// Init of every handler; its change of the domain counts as saved then.
    void InitDomain(PersistDomain domain, IPersistStore& store, const std::string& name);

    /// Load of the handlers that asked for it, or with `force` of all.
    void LoadDomain(PersistDomain domain, IPersistStore& store, const std::string& name, bool force);

    /// Save of the handlers with a pending change, or with `force` of all.
    void SaveDomain(PersistDomain domain, IPersistStore& store, const std::string& name, bool force);

private:
    struct Pass;
    void Run(const Pass& pass, PersistDomain domain, const std::string& name);

    IUpdatableSystem& system_;
    std::vector<Listener> changeListeners_;
    std::vector<Listener> loadListeners_;
};

}  // namespace VxCommon
