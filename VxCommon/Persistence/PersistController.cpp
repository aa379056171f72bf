#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistController.h>
#include <VxCommon/System/SystemUpdater.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

void Notify(const std::vector<PersistController::Listener>& listeners, IPersistHandler& handler, PersistDomain domain,
            const std::string& name)
{
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        const PersistController::Listener listener = listeners[i];  // A listener may add another and so move the list.
        listener(handler, domain, name);
    }
}

}  // namespace

// What tells the three passes apart.
struct PersistController::Pass
{
    const char* verb;      // "Init"
    const char* category;  // "Init domain"
    Vx::Location location;
    std::function<bool(const Handler&)> takes;
    std::function<void(Handler&)> call;  // Calls the handler and settles its flags; throws when the handler fails.
    const char* complete = nullptr;      // Logged after a success, unless null.
};

void PersistController::UnregisterHandler(void* handle)
{
    if (!Remove(handle)) {
        Vx_Debug_Log(Warning, "An unknown persistence handler was to be unregistered; ignored.");
    }
}

void PersistController::NotifyChange(IPersistHandler& handler, PersistDomain domain)
{
    std::string name;
    if (Handler* record = Find(handler)) {
        SetDomainChanged(*record, domain, true);
        if (record->saving.contains(domain)) {
            record->renotified.insert(domain);
        }
        name = record->name;
    }
    Notify(changeListeners_, handler, domain, name);
}

void PersistController::NotifyLoad(IPersistHandler& handler, PersistDomain domain)
{
    std::string name;
    if (Handler* record = Find(handler)) {
        SetDomainLoad(*record, domain, true);
        name = record->name;
    }
    Notify(loadListeners_, handler, domain, name);
}

void PersistController::InitDomain(PersistDomain domain, IPersistStore& store, const std::string& name)
{
    const Pass pass{"Init", "Init domain", VX_HERE, [](const Handler&) { return true; },
                    [&](Handler& record) {
                        record.handler->Init(domain, store);
                        SetDomainChanged(record, domain, false);
                    }};
    Run(pass, domain, name);
}

void PersistController::LoadDomain(PersistDomain domain, IPersistStore& store, const std::string& name, bool force)
{
    const Pass pass{"Load", "Load domain", VX_HERE,
                    [&](const Handler& record) { return force || IsDomainLoad(record, domain); },
                    [&](Handler& record) {
                        record.handler->Load(domain, store);
                        SetDomainLoad(record, domain, false);
                    }};
    Run(pass, domain, name);
}

void PersistController::SaveDomain(PersistDomain domain, IPersistStore& store, const std::string& name, bool force)
{
    const Pass pass{
        "Save", "Save domain", VX_HERE,
        // A handler that notifies from inside its own Save would be saved into endlessly: its change stays pending.
        [&](const Handler& record) {
            return !record.saving.contains(domain) && (force || IsDomainChanged(record, domain));
        },
        [&](Handler& record) {
            struct Saving
            {
                Handler& record;
                PersistDomain domain;
                ~Saving() { record.saving.erase(domain); }
            };
            record.renotified.erase(domain);
            record.saving.insert(domain);
            {
                const Saving saving{record, domain};
                record.handler->Save(domain, store);
            }
            SetDomainChanged(record, domain, record.renotified.contains(domain));
        },
        "%s %s for %s complete."};
    Run(pass, domain, name);
}

void PersistController::Run(const Pass& pass, PersistDomain domain, const std::string& name)
{
    const SystemUpdater updater(system_, true);
    unsigned long long failures = 0;
    Status firstStatus = OK;
    std::string firstFailed;
    const std::string domainName = PersistDomain_Name(domain);

    for (const auto& record : Snapshot()) {
        if (!record->registered || record->name != name || !pass.takes(*record)) {
            continue;
        }
        std::string displayName;
        try {
            displayName = record->handler->DisplayName();
            Vx::Logging::Debug(Vx::Logging::Level::Info, pass.location, "%s %s for %s...", pass.verb, domainName,
                               displayName);
            pass.call(*record);
            if (pass.complete != nullptr) {
                Vx::Logging::Debug(Vx::Logging::Level::Info, pass.location, pass.complete, pass.verb, domainName,
                                   displayName);
            }
        } catch (const std::exception& exception) {
            Vx::Logging::Debug(Vx::Logging::Level::Error, pass.location, "%s %s for %s failed (%s)", pass.verb,
                               domainName, displayName, exception.what());
            Vx::LogException(pass.location, exception);
            Vx::Logging::Public(Vx::Logging::Level::Error, pass.category, "%s %s for %s failed (%s)", pass.verb,
                                domainName, displayName, exception.what());
            if (firstStatus == OK) {
                firstStatus = Vx::CarriedStatus(exception);
            }
            if (firstFailed.empty()) {
                firstFailed = displayName;
            }
            ++failures;
        }
    }
    if (failures != 0) {
        VX_THROW_AT(pass.location, firstStatus, "%s %s for %s failed -- %llu total failures.", pass.verb, domainName,
                    firstFailed, failures);
    }
}

}  // namespace VxCommon
