#pragma once
// What vxhost notes in every domain image that it writes, so that an image that lost items is noticed.

#include <array>
#include <cstdint>
#include <optional>

#include <Nucleo/Lock.h>
#include <VxCommon/Persistence/IPersistStore.h>
#include <VxCommon/Persistence/PersistDomain.h>

namespace VxHost
{

/// Keeps one item of the whole store of a domain, {"program", "version", "items", "saves", "savedAt"}. Archives do not
/// tell a damaged end from a true one: what was lost shows only in the number of items. Safe on any thread.
class DomainInfo
{
public:
    static constexpr const char* Item = "/Host/info.json";

    /// Writes the item for a store that begins anew: no saves so far.
    void Begin(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store);

    /// Writes the item for a store that is being saved. Everything else must be in the store.
    void Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store);

    /// Reads the item, before anything is added to the store. Throws ERROR_FORMAT when the item cannot be used, or the
    /// store has fewer items than were saved. Without the item a job is taken as it is, since other programs of the
    /// family make jobs too; the domains, which only vxhost writes, are refused.
    void Load(VxCommon::PersistDomain domain, const VxCommon::IPersistStore& store);

    /// How often the domain's present content has been saved.
    std::uint64_t Saves(VxCommon::PersistDomain domain) const;

    /// Whether the domain's present content began anew, and was not loaded.
    bool HasBegun(VxCommon::PersistDomain domain) const;

private:
    void Write(VxCommon::IPersistStore& store, std::uint64_t saves) const;

    mutable Nucleo::Mutex mutex_;
    std::array<std::uint64_t, 3> saves_ VX_GUARDED_BY(mutex_){};
    std::array<bool, 3> begun_ VX_GUARDED_BY(mutex_){};
};

}  // namespace VxHost
