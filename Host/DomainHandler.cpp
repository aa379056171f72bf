#include "DomainHandler.h"

#include <exception>
#include <utility>

#include <VxCommon/Persistence/ScopedPersistStore.h>

namespace VxHost
{

DomainHandler::DomainHandler(std::vector<Setting*> settings, DomainInfo& info, VxCommon::IPersistController& controller)
    : settings_(std::move(settings)), info_(info), controller_(controller)
{
    registration_ = controller_.RegisterHandler(*this, "");
}

DomainHandler::~DomainHandler()
{
    controller_.UnregisterHandler(registration_);
}

void DomainHandler::Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store)
{
    for (const Setting* setting : settings_) {
        if (setting->Domain() == domain) {
            VxCommon::ScopedPersistStore(store, setting->Name()).Clear();
        }
    }
    ReloadSettings(domain);
    info_.Begin(domain, store);
}

void DomainHandler::Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store)
{
    info_.Load(domain, store);
    ReloadSettings(domain);
}

void DomainHandler::ReloadSettings(VxCommon::PersistDomain domain)
{
    // One setting that fails does not keep the others from being loaded; the first failure is thrown at the end.
    std::exception_ptr failure;
    for (Setting* setting : settings_) {
        try {
            if (setting->Domain() == domain) {
                setting->Reload();
            }
        } catch (const std::exception&) {
            failure = failure ? failure : std::current_exception();
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

}  // namespace VxHost
