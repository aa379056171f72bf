#pragma once
// What vxhost notes in every domain image that it writes, so that an image that lost items is noticed.

#include <array>
#include <cstdint>
#include <set>
#include <string>

#include <Nucleo/Lock.h>
#include <VxCommon/Persistence/PersistManager.h>

namespace VxHost
{

/// Keeps one item of the whole store of a domain, {"program", "version", "items", "saves", "savedAt"} and, if there are
/// any, "unread": the diagnosis copies that were set aside without being read. Archives do not tell a damaged end from
/// a true one: what was lost shows only in the number of items. Safe on any thread.
class DomainInfo
{
public:
    static constexpr const char* Item = "/Host/info.json";

    /// `manager` must outlive the object.
    explicit DomainInfo(const VxCommon::PersistManager& manager) : manager_(manager) {}

    /// Writes the item for a store that begins anew: no saves so far.
    void Begin(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store);

    /// Writes the item for a store that is being saved. Everything else must be in the store.
    void Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store);

    /// Reads the item, before anything is added to the store. Throws ERROR_FORMAT when the item cannot be used, or the
    /// store has fewer items than were saved. Without the item a job is taken as it is, since other programs of the
    /// family make jobs too; the domains, which only vxhost writes, are refused.
    void Load(VxCommon::PersistDomain domain, const VxCommon::IPersistStore& store);

    /// What Load refuses, of a store that is not going to be loaded. Returns how often its content was saved.
    static std::uint64_t Check(VxCommon::PersistDomain domain, const VxCommon::IPersistStore& store);

    /// The copies that the loaded content names as unread. GLOBAL's are also those of the persist record.
    std::set<std::string> Unread(VxCommon::PersistDomain domain) const;

    /// Those that go on being named.
    void SetUnread(VxCommon::PersistDomain domain, std::set<std::string> copies);

    /// How often the domain's present content has been saved.
    std::uint64_t Saves(VxCommon::PersistDomain domain) const;

private:
    void Write(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store, std::uint64_t saves) const;
    std::set<std::string> AllUnread(VxCommon::PersistDomain domain) const;

    const VxCommon::PersistManager& manager_;

    mutable Nucleo::Mutex mutex_;
    std::array<std::uint64_t, 3> saves_ VX_GUARDED_BY(mutex_){};
    std::array<std::set<std::string>, 3> unread_ VX_GUARDED_BY(mutex_);
};

}  // namespace VxHost
