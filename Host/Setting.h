#pragma once
// One setting of the host: a group of parameters that clients read and change and that persistence keeps.
//
// A setting is a persistence handler with a name: it is saved when it notifies its change, and loaded when it asks. Who
// asks when its domain was loaded is DomainHandler.
//
// Any thread may call. The manager's lock makes an update one step, from the new values to handing them over, which no
// load comes between. The own lock guards the group, so that it can be read meanwhile, and is never held while the
// manager is called.

#include <cstdint>
#include <memory>
#include <string>

#include <Nucleo/Lock.h>
#include <VxApi/Event.h>
#include <VxCommon/Persistence/PersistManager.h>

#include "SettingGroup.h"

namespace VxHost
{

class Setting final : public VxCommon::IPersistHandler
{
public:
    /// The item of the setting's view: {"version": 1, "values": {...}}.
    static constexpr const char* Item = "/settings.json";

    /// The newest version of the item that can be read.
    static constexpr std::uint64_t ItemVersion = 1;

    /// Registers under `name`; starts with the defaults of `factory`. `manager` must outlive the setting.
    Setting(std::string name, VxCommon::PersistDomain domain, SettingFactory factory,
            VxCommon::PersistManager& manager);
    ~Setting() override;
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    const std::string& Name() const noexcept { return name_; }
    VxCommon::PersistDomain Domain() const noexcept { return domain_; }

    nlohmann::json Document() const;
    nlohmann::json Schema() const;

    /// Sets the members of `document`, all or nothing, and hands the change to persistence; the same values again are
    /// no change. Throws ERROR_PARAMETER when something in it is refused. When persistence throws the new values stand,
    /// and the next update hands them over again.
    void Update(const nlohmann::json& document);

    /// Loads the setting from its view in the domain's store.
    void Reload() { manager_.NotifyLoad(*this, domain_); }

    /// Raised after every change of the values, under the manager's lock.
    Vx::Event<>& ChangedEvent() noexcept { return changed_; }

    /// Who ends a subscription to the event, and then destroys what its listener uses, ends it under this lock.
    Nucleo::Lock& ManagerLock() const noexcept VX_RETURN_CAPABILITY(manager_.GetLock()) { return manager_.GetLock(); }

    std::string DisplayName() const override { return name_; }
    void Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override;

    /// Takes the defaults, and writes them into `store`, when it holds none of this setting. Values that it does not
    /// know or take are passed over. Throws, and changes nothing, when the item cannot be used at all.
    void Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override;
    void Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override;

private:
    std::unique_ptr<SettingGroup> Read(const VxCommon::IPersistStore& store) const;
    void Replace(std::unique_ptr<SettingGroup> group);

    // Constant after construction.
    const std::string name_;
    const VxCommon::PersistDomain domain_;
    const SettingFactory factory_;
    VxCommon::PersistManager& manager_;
    void* registration_;

    Vx::Event<> changed_;
    mutable Nucleo::Mutex mutex_;
    std::unique_ptr<SettingGroup> group_ VX_GUARDED_BY(mutex_);
    std::uint64_t revision_ VX_GUARDED_BY(mutex_) = 0;       // Counts the updates by clients.
    std::uint64_t savedRevision_ VX_GUARDED_BY(mutex_) = 0;  // The one that the store holds.
};

}  // namespace VxHost
