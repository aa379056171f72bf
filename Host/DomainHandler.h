#pragma once
// The host's handler of whole domains: it is driven when a domain is initialised, loaded and saved, and passes that on
// to the settings, which as named handlers are not driven by it.

#include <vector>

#include <VxCommon/Persistence/IPersistController.h>

#include "DomainInfo.h"
#include "Setting.h"

namespace VxHost
{

/// Because the settings are loaded inside the domain's own pass, a setting that cannot be loaded makes the load fail,
/// and what then is done (the previous job, the defaults) reaches the settings too. Runs under the manager's lock.
class DomainHandler final : public VxCommon::IPersistHandler
{
public:
    /// Registers without a name. All arguments must outlive the handler.
    DomainHandler(std::vector<Setting*> settings, DomainInfo& info, VxCommon::IPersistController& controller);
    ~DomainHandler() override;
    DomainHandler(const DomainHandler&) = delete;
    DomainHandler& operator=(const DomainHandler&) = delete;

    std::string DisplayName() const override { return "Host"; }

    /// The settings of the domain lose what the store holds of them, and so take their defaults and write them into it.
    /// Items of others are left alone.
    void Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override;

    /// The settings of the domain are loaded; those that the store does not know take their defaults and write them
    /// into it, so that a job saved later holds them.
    void Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override;

    void Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override { info_.Save(domain, store); }

private:
    void ReloadSettings(VxCommon::PersistDomain domain);

    const std::vector<Setting*> settings_;
    DomainInfo& info_;
    VxCommon::IPersistController& controller_;
    void* registration_;
};

}  // namespace VxHost
