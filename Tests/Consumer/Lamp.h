#pragma once

#include <array>
#include <atomic>

#include <VxApi/Locker.h>
#include <VxCommon/Persistence/PersistManager.h>
#include <VxRest/Resource.h>

#include "DomainDriver.h"

/// A module with state: a brightness of the device (GLOBAL), of the workspace and of the job, in percent. Clients see
/// that of the job. Any thread may call.
class Lamp final : public VxCommon::IPersistHandler, public VxRest::DocumentResourceBase
{
public:
    static constexpr double Default = 50;
    static constexpr const char* Path = "/lamp";

    /// `manager` must outlive the lamp.
    explicit Lamp(VxCommon::PersistManager& manager) : manager_(manager) {}
    ~Lamp() override { manager_.UnregisterHandler(registration_); }

    double Brightness(VxCommon::PersistDomain domain) const { return values_.at(static_cast<std::size_t>(domain)); }

    /// Sets a brightness and has it saved. Throws ERROR_PARAMETER, and changes nothing, outside 0 to 100.
    void SetBrightness(VxCommon::PersistDomain domain, double percent)
    {
        const Vx::Locker locker(manager_.GetLock());  // No load comes between the new value and its notification.
        Take(domain, percent);
        manager_.NotifyChange(*this, domain);
    }

    // As a persistence handler.

    std::string DisplayName() const override { return "Lamp"; }

    void Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        Take(domain, Default);
        Save(domain, store);
    }

    void Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        if (!store.Exists(Item)) {  // Saved before there was a lamp.
            return Init(domain, store);
        }
        Take(domain, nlohmann::json::parse(store.Read(Item)).get<double>());
    }

    void Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        const std::string text = nlohmann::json(Brightness(domain)).dump();
        store.Write(Item, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }

    // As a resource: the job's brightness as {"brightness": 50}.

    nlohmann::json Document(const VxRest::RequestInfo& /*request*/, VxRest::ResponseInfo& /*response*/) override
    {
        return {{"brightness", Brightness(VxCommon::PersistDomain::JOB)}};
    }

    bool TakesUpdates(const VxRest::RequestInfo::KeyMap& /*keys*/) const override { return true; }

    void UpdateDocument(const VxRest::RequestInfo& /*request*/, const nlohmann::json& document) override
    {
        SetBrightness(VxCommon::PersistDomain::JOB, document.at("brightness").get<double>());
    }

private:
    static constexpr const char* Item = "/brightness.json";

    void Take(VxCommon::PersistDomain domain, double percent)
    {
        if (!(percent >= 0 && percent <= 100)) {
            VX_THROW(Nucleo::ERROR_PARAMETER, "The brightness is %g %%, and must be from 0 to 100 %%.", percent);
        }
        values_.at(static_cast<std::size_t>(domain)) = percent;
        NotificationEvent().Raise(VxRest::EventType::Updated, Path);
    }

    VxCommon::PersistManager& manager_;
    std::array<std::atomic<double>, 3> values_{Default, Default, Default};  // By domain.
    void* const registration_ = manager_.RegisterHandler(*this, "Lamp");
    DomainDriver driver_{manager_, *this, "Lamp"};
};
