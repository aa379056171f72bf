// The object, its handlers and their notifications, and the files of the host. The GLOBAL and the WORKSPACE domain are
// in PersistManagerDomains.cpp, the persist record in PersistManagerRecord.cpp, the jobs in PersistManagerJobs.cpp.

#include <utility>

#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistManager.h>

namespace VxCommon
{

PersistManager::PersistManager(TesselSystem& system, IUpdatableSystem& updatable)
    : system_(system),
      storage_(system_),
      controller_(updatable),
      globalDomain_{PersistDomain::GLOBAL,
                    global_,
                    Persist::Global::GLOBAL_FILE,
                    "Load GLOBAL failed (%s).",
                    "Attempting to fallback to re-initailize GLOBAL...",
                    "Fallback to re-initialize GLOBAL succeeded."},
      workspaceDomain_{PersistDomain::WORKSPACE,
                       workspace_,
                       Persist::Workspace::WORKSPACE_FILE,
                       "Load workspace failed (%s).",
                       "Attempting to fallback to re-initailize workspace ...",
                       "Fallback to re-initialize workspace succeeded."}
{
    Vx_Debug_Log(Info, "Constructing PersistManager.");
}

PersistManager::~PersistManager()
{
    Vx_Debug_Log(Info, "Destroying PersistManager.");
    try {
        Shutdown();
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "Exception thrown in destructor");
        Vx::LogException(VX_HERE, exception);
    } catch (...) {
        Vx_Debug_Log(Error, "Exception thrown in destructor");
    }
    std::unique_ptr<Vx::AsyncTimer> globalTimer;
    std::unique_ptr<Vx::AsyncTimer> workspaceTimer;
    {
        const Vx::Locker locker(lock_);
        globalDomain_.armed = false;
        workspaceDomain_.armed = false;
        globalTimer = std::move(globalDomain_.timer);
        workspaceTimer = std::move(workspaceDomain_.timer);
    }
    // Here the timers wait for their callbacks, which may just be waiting for the lock.
}

void PersistManager::Follow()
{
    if (following_) {
        return;  // A second Init only reads the record again.
    }
    Vx_Debug_Log(Info, "Create saveGlobalTimer...");
    auto globalTimer =
        std::make_unique<Vx::AsyncTimer>("saveGlobalTimer", [this] { OnSaveTimer(PersistDomain::GLOBAL); });
    Vx_Debug_Log(Info, "Create saveWorkspaceTimer...");
    auto workspaceTimer =
        std::make_unique<Vx::AsyncTimer>("saveWorkspaceTimer", [this] { OnSaveTimer(PersistDomain::WORKSPACE); });
    controller_.AddChangeListener([this](IPersistHandler& handler, PersistDomain domain, const std::string& name) {
        OnDomainChanged(handler, domain, name);
    });
    controller_.AddLoadListener([this](IPersistHandler& handler, PersistDomain domain, const std::string& name) {
        OnDomainLoad(handler, domain, name);
    });
    // Assigned at the end, so that an Init that fails here can be called again.
    globalDomain_.timer = std::move(globalTimer);
    workspaceDomain_.timer = std::move(workspaceTimer);
    following_ = true;
}

void PersistManager::Shutdown()
{
    const Vx::Locker locker(lock_);
    Disarm(globalDomain_);
    Disarm(workspaceDomain_);
    std::exception_ptr failure;
    for (FileDomain* parts : {&globalDomain_, &workspaceDomain_}) {
        try {
            if (parts->changed || (parts->begun && !controller_.ChangedNames(parts->domain).empty())) {
                Vx_Debug_Log(Info, "Saving %s as part of shutdown...", PersistDomain_Name(parts->domain));
                SavePendingNames(parts->domain);
                Save(*parts);
            }
        } catch (...) {
            failure = failure ? failure : std::current_exception();
        }
    }
    // A save that was asked for from inside these would come after the end.
    Disarm(globalDomain_);
    Disarm(workspaceDomain_);
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void* PersistManager::RegisterHandler(IPersistHandler& handler, const std::string& name)
{
    const Vx::Locker locker(lock_);
    void* handle = controller_.RegisterHandler(handler, name);
    UpdateScopedStores(controller_);
    return handle;
}

void PersistManager::UnregisterHandler(void* handle)
{
    const Vx::Locker locker(lock_);
    controller_.UnregisterHandler(handle);
    UpdateScopedStores(controller_);
}

void PersistManager::NotifyChange(IPersistHandler& handler, PersistDomain domain)
{
    const Vx::Locker locker(lock_);
    controller_.NotifyChange(handler, domain);
}

void PersistManager::NotifyLoad(IPersistHandler& handler, PersistDomain domain)
{
    const Vx::Locker locker(lock_);
    controller_.NotifyLoad(handler, domain);
}

std::vector<PersistController::HandlerInfo> PersistManager::ListRegistered() const
{
    const Vx::Locker locker(lock_);
    return controller_.ListRegistered();
}

PersistManager::ScopedStore& PersistManager::GetScopedStore(const std::string& name)
{
    const Vx::Locker locker(lock_);
    const auto found = scopedStores_.find(name);
    if (found == scopedStores_.end()) {
        VX_THROW(ERROR_NOT_FOUND, "No persistence handler was registered as '%s'.", name);
    }
    return found->second;
}

void PersistManager::UpdateScopedStores(PersistController& controller)
{
    const Vx::Locker locker(lock_);
    for (const PersistController::HandlerInfo& info : controller.ListRegistered()) {
        if (!scopedStores_.contains(info.name)) {
            scopedStores_.emplace(info.name, ScopedStore{info.name, ScopedPersistStore(global_.GetStore(), info.name),
                                                         ScopedPersistStore(workspace_.GetStore(), info.name),
                                                         ScopedPersistStore(job_.GetStore(), info.name)});
        }
    }
}

void PersistManager::OnDomainChanged(IPersistHandler& /*handler*/, PersistDomain domain, const std::string& name)
{
    const Vx::Locker locker(lock_);
    domainChangedEvent_.Raise(domain);
    if (domain != PersistDomain::GLOBAL && domain != PersistDomain::WORKSPACE && domain != PersistDomain::JOB) {
        return;
    }
    if (!name.empty()) {
        Vx_Debug_Log(Info, "%s domain changed (scope = %s)!", PersistDomain_Name(domain), name);
        ScopedPersistStore view = View(domain, name);
        controller_.SaveDomain(domain, view, name, false);
    }
    switch (domain) {
        case PersistDomain::GLOBAL:
            Vx_Debug_Log(Warning, "Saving GLOBAL domain in %lu us...", SaveDelay.count());
            Arm(globalDomain_);
            globalDomain_.changed = true;
            break;
        case PersistDomain::WORKSPACE:
            Vx_Debug_Log(Warning, "Saving WORKSPACE domain in %lu us...", SaveDelay.count());
            Arm(workspaceDomain_);
            workspaceDomain_.changed = true;
            break;
        case PersistDomain::JOB:
            if (!jobModified_) {
                jobModified_ = true;
                jobChangedEvent_.Raise(JobChange::JobModified, "");
            }
            break;
    }
}

void PersistManager::OnDomainLoad(IPersistHandler& handler, PersistDomain domain, const std::string& name)
{
    const Vx::Locker locker(lock_);
    if (domain != PersistDomain::GLOBAL && domain != PersistDomain::WORKSPACE && domain != PersistDomain::JOB) {
        return;
    }
    Vx_Debug_Log(Info, "%s domain load (scope = %s)!", PersistDomain_Name(domain), name);
    if (!name.empty()) {
        ScopedPersistStore view = View(domain, name);
        controller_.LoadDomain(domain, view, name, false);
    } else if (controller_.IsRegistered(handler)) {
        controller_.LoadDomain(domain, RecordOf(domain).GetStore(), name, false);
    }
}

void PersistManager::SavePendingNames(PersistDomain domain)
{
    for (const std::string& name : controller_.ChangedNames(domain)) {
        try {
            ScopedPersistStore view = View(domain, name);
            controller_.SaveDomain(domain, view, name, false);
        } catch (const std::exception& exception) {  // The pass has told users of what a handler threw.
            Vx_Debug_Log(Error, "A pending change of '%s' could not be saved (%s).", name, exception.what());
        } catch (...) {
            Vx::Logging::Public(Vx::Logging::Level::Error, "Save domain",
                                "Save %s for %s failed with an unknown exception.", PersistDomain_Name(domain), name);
        }
    }
}

ScopedPersistStore& PersistManager::View(PersistDomain domain, const std::string& name)
{
    ScopedStore& views = GetScopedStore(name);
    switch (domain) {
        case PersistDomain::GLOBAL:
            return views.global;
        case PersistDomain::WORKSPACE:
            return views.workspace;
        default:
            return views.job;
    }
}

Persist::Record& PersistManager::RecordOf(PersistDomain domain)
{
    switch (domain) {
        case PersistDomain::GLOBAL:
            return global_;
        case PersistDomain::WORKSPACE:
            return workspace_;
        default:
            return job_;
    }
}

bool PersistManager::HasUnsavedChanges(PersistDomain domain) const
{
    const Vx::Locker locker(lock_);
    switch (domain) {
        case PersistDomain::GLOBAL:
            return globalDomain_.changed;
        case PersistDomain::WORKSPACE:
            return workspaceDomain_.changed;
        case PersistDomain::JOB:
            return jobModified_;
    }
    return false;
}

std::vector<unsigned char> PersistManager::FileData(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    return storage_.ReadFile(name);
}

void PersistManager::WriteFile(const std::string& name, const std::vector<unsigned char>& data)
{
    const Vx::Locker locker(lock_);
    for (auto* trouble : {&globalDomain_.trouble, &workspaceDomain_.trouble, &recordTrouble_}) {
        if (*trouble && (*trouble)->file == name) {
            ReleaseHeld(*trouble);
        }
    }
    storage_.WriteFile(name, data.data(), data.size());
}

void PersistManager::DeleteFile(const std::string& name)
{
    const Vx::Locker locker(lock_);
    storage_.DeleteFile(name);
}

bool PersistManager::FileExists(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    return storage_.FileExists(name);
}

unsigned long long PersistManager::FileSize(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    return storage_.FileSize(name);
}

std::vector<std::string> PersistManager::ListFiles(const std::string& extension) const
{
    const Vx::Locker locker(lock_);
    return storage_.ListFiles(extension);
}

}  // namespace VxCommon
