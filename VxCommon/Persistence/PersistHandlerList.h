#pragma once
// The registrations of persistence handlers with their pending flags: the base of the two controllers.

#include <functional>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <VxCommon/Persistence/IPersistHandler.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// In registration order. Not locked: the owner serialises. Copies are deep: equal records at other addresses.
class VXCOMMON_API PersistHandlerList
{
public:
    /// One registration; its address is the handle.
    struct Handler
    {
        IPersistHandler* handler = nullptr;
        std::string name;
        std::set<PersistDomain> changed;  ///< Domains with a change that is not yet saved.
        std::set<PersistDomain> load;     ///< Domains that the handler asked to be loaded from.
        bool registered = true;           ///< False once unregistered: a pass that is under way leaves it out.
        /// Domains being saved right now; a change that is notified from inside is not saved into again, but stays
        /// pending in `renotified`.
        std::set<PersistDomain> saving;
        std::set<PersistDomain> renotified;
    };

    /// A registration as ListRegistered shows it.
    struct HandlerInfo
    {
        IPersistHandler* handler = nullptr;
        std::string name;
        std::set<PersistDomain> changed;
        std::set<PersistDomain> load;
    };

    /// The registrations as they are now, in registration order.
    std::vector<HandlerInfo> ListRegistered() const;

    /// True if any registered handler has a change of `domain` pending, or asked to be loaded from it.
    bool IsChanged(PersistDomain domain) const;
    bool IsLoad(PersistDomain domain) const;

    /// Whether `handler` has a registration.
    bool IsRegistered(const IPersistHandler& handler) const;

    /// The registration names with a handler that has a change of `domain` pending, each once, in byte order; without
    /// the empty name.
    std::set<std::string> ChangedNames(PersistDomain domain) const;

    static void SetDomainChanged(Handler& record, PersistDomain domain, bool changed);
    static void SetDomainLoad(Handler& record, PersistDomain domain, bool load);
    static void ClearDomainChanged(Handler& record) { record.changed.clear(); }
    static void ClearDomainLoad(Handler& record) { record.load.clear(); }
    static bool IsDomainChanged(const Handler& record, PersistDomain domain) { return record.changed.contains(domain); }
    static bool IsDomainLoad(const Handler& record, PersistDomain domain) { return record.load.contains(domain); }

protected:
    PersistHandlerList() = default;
    PersistHandlerList(const PersistHandlerList& other);
    PersistHandlerList& operator=(const PersistHandlerList& other);
    ~PersistHandlerList() = default;

    void* Add(IPersistHandler& handler, const std::string& name);

    /// False when no registration has this handle.
    bool Remove(const void* handle);

    /// The first record of `handler`; null when it is not registered.
    Handler* Find(const IPersistHandler& handler);

    /// The records as they are now: a snapshot that stays valid while handlers come and go.
    std::vector<std::shared_ptr<Handler>> Snapshot() const { return {records_.begin(), records_.end()}; }

private:
    std::list<std::shared_ptr<Handler>> records_;
};

}  // namespace VxCommon
