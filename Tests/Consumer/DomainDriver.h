#pragma once

#include <string>
#include <utility>

#include <VxCommon/Persistence/IPersistController.h>
#include <VxCommon/Persistence/ScopedPersistStore.h>

/// Passes on to one named handler what happens to whole domains. It has no name itself, so every Init and every Load of
/// a domain reaches it, and fails when the handler throws.
class DomainDriver final : public VxCommon::IPersistHandler
{
public:
    /// `handler` is registered under `name`. It and the controller must outlive the driver.
    DomainDriver(VxCommon::IPersistController& controller, VxCommon::IPersistHandler& handler, std::string name)
        : controller_(controller), handler_(handler), name_(std::move(name))
    {}
    ~DomainDriver() override { controller_.UnregisterHandler(registration_); }
    DomainDriver(const DomainDriver&) = delete;

    std::string DisplayName() const override { return "the driver of " + name_; }

    /// A new store: the handler takes its defaults, and writes them into its part of the store.
    void Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        VxCommon::ScopedPersistStore view(store, name_);
        view.Clear();
        handler_.Init(domain, view);
    }

    /// A store that was read from its file: the handler reads its part of it.
    void Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& /*store*/) override
    {
        controller_.NotifyLoad(handler_, domain);
    }

    /// The handler's part is up to date: each NotifyChange has saved it.
    void Save(VxCommon::PersistDomain /*domain*/, VxCommon::IPersistStore& /*store*/) override {}

private:
    VxCommon::IPersistController& controller_;
    VxCommon::IPersistHandler& handler_;
    const std::string name_;
    void* const registration_ = controller_.RegisterHandler(*this, "");
};
