// The object, its handlers, the GLOBAL and the WORKSPACE domain, and the persist record. The job operations are in
// PersistManagerJobs.cpp.

#include <functional>
#include <utility>

#include <Nucleo/XmlDocument.h>
#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistManager.h>

namespace VxCommon
{

const char* const PersistManager::PERSIST_RECORD_FILE = "PersistRecord.xml";

// What tells the two domains that live in a file of their own apart.
struct PersistManager::FileDomain
{
    PersistDomain domain;
    IPersistStore& store;
    std::function<std::vector<unsigned char>()> image;
    std::function<void(const std::vector<unsigned char>&)> replace;
    const char* file;
    bool& changed;
    std::unique_ptr<Vx::AsyncTimer>& timer;
    bool& armed;
    const char* loadFailed;
    const char* fallback;
    const char* fallbackSucceeded;
};

PersistManager::FileDomain PersistManager::GlobalDomain()
{
    return {PersistDomain::GLOBAL,
            global_.GetStore(),
            [this] { return global_.Save(); },
            [this](const std::vector<unsigned char>& bytes) { global_.Load(bytes.data(), bytes.size()); },
            Persist::Global::GLOBAL_FILE,
            globalChanged_,
            saveGlobalTimer_,
            globalArmed_,
            "Load GLOBAL failed (%s).",
            "Attempting to fallback to re-initailize GLOBAL...",
            "Fallback to re-initialize GLOBAL succeeded."};
}

PersistManager::FileDomain PersistManager::WorkspaceDomain()
{
    return {PersistDomain::WORKSPACE,
            workspace_.GetStore(),
            [this] { return workspace_.Save(); },
            [this](const std::vector<unsigned char>& bytes) { workspace_.Load(bytes.data(), bytes.size()); },
            Persist::Workspace::WORKSPACE_FILE,
            workspaceChanged_,
            saveWorkspaceTimer_,
            workspaceArmed_,
            "Load workspace failed (%s).",
            "Attempting to fallback to re-initailize workspace ...",
            "Fallback to re-initialize workspace succeeded."};
}

PersistManager::PersistManager(TesselSystem& system, IUpdatableSystem& updatable)
    : system_(system), storage_(system_), controller_(updatable)
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
        globalArmed_ = false;
        workspaceArmed_ = false;
        globalTimer = std::move(saveGlobalTimer_);
        workspaceTimer = std::move(saveWorkspaceTimer_);
    }
    // Here the timers wait for their callbacks, which may just be waiting for the lock.
}

void PersistManager::Init()
{
    const Vx::Locker locker(lock_);
    loadedJob_.clear();
    defaultJob_.clear();
    jobModified_ = false;
    LoadPersistRecord();
    if (saveGlobalTimer_) {
        return;  // Followed already: a second Init only reads the record anew.
    }
    // Assigned at the end, so that an Init that fails here can be called again.
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
    saveGlobalTimer_ = std::move(globalTimer);
    saveWorkspaceTimer_ = std::move(workspaceTimer);
}

void PersistManager::Shutdown()
{
    const Vx::Locker locker(lock_);
    Disarm(GlobalDomain());
    Disarm(WorkspaceDomain());
    // One domain that cannot be saved must not cost the other one's changes; the first failure is thrown at the end.
    std::exception_ptr failure;
    for (const FileDomain& parts : {GlobalDomain(), WorkspaceDomain()}) {
        try {
            if (parts.changed) {
                Vx_Debug_Log(Info, "Saving %s as part of shutdown...", PersistDomain_Name(parts.domain));
                Save(parts);
            }
        } catch (const std::exception&) {
            failure = failure ? failure : std::current_exception();
        }
    }
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
            Arm(GlobalDomain());
            globalChanged_ = true;
            break;
        case PersistDomain::WORKSPACE:
            Vx_Debug_Log(Warning, "Saving WORKSPACE domain in %lu us...", SaveDelay.count());
            Arm(WorkspaceDomain());
            workspaceChanged_ = true;
            break;
        case PersistDomain::JOB:
            if (!jobModified_) {
                jobModified_ = true;
                jobChangedEvent_.Raise(JobChange::JobModified, "");
            }
            break;
    }
}

void PersistManager::OnDomainLoad(IPersistHandler& /*handler*/, PersistDomain domain, const std::string& name)
{
    const Vx::Locker locker(lock_);
    if (domain != PersistDomain::GLOBAL && domain != PersistDomain::WORKSPACE && domain != PersistDomain::JOB) {
        return;
    }
    Vx_Debug_Log(Info, "%s domain load (scope = %s)!", PersistDomain_Name(domain), name);
    ScopedPersistStore view = View(domain, name);
    controller_.LoadDomain(domain, view, name, false);
}

void PersistManager::OnSaveTimer(PersistDomain domain)
{
    const Vx::Locker locker(lock_);
    const FileDomain parts = domain == PersistDomain::GLOBAL ? GlobalDomain() : WorkspaceDomain();
    // While this callback waited for the lock the timer may have been stopped, or started anew and so fires later.
    if (!parts.armed || parts.timer->IsRunning()) {
        return;
    }
    parts.armed = false;
    Vx_Debug_Log(Warning, "Automatically saving %s domain...", PersistDomain_Name(domain));
    Save(parts);
    Disarm(parts);
    if (parts.changed) {  // A handler notified from inside its own Save: it is still promised one.
        Arm(parts);
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

void PersistManager::Arm(const FileDomain& parts)
{
    if (parts.timer) {
        parts.timer->Start(SaveDelay);
        parts.armed = true;
    }
}

void PersistManager::Disarm(const FileDomain& parts)
{
    if (parts.timer) {
        parts.timer->Stop();
        parts.armed = false;
    }
}

std::vector<unsigned char> PersistManager::CurrentWorkspace() const
{
    const Vx::Locker locker(lock_);
    return workspace_.Save();
}

void PersistManager::WriteGlobal(const std::string& name, const std::vector<unsigned char>& bytes)
{
    WriteFile(name, bytes);
}

void PersistManager::WriteWorkspace(const std::string& name, const std::vector<unsigned char>& bytes)
{
    WriteFile(name, bytes);
}

void PersistManager::InitGlobal()
{
    const Vx::Locker locker(lock_);
    InitDomain(GlobalDomain());
}

void PersistManager::InitWorkspace()
{
    const Vx::Locker locker(lock_);
    InitDomain(WorkspaceDomain());
}

void PersistManager::LoadGlobal(const std::vector<unsigned char>* data)
{
    const Vx::Locker locker(lock_);
    LoadDomain(GlobalDomain(), data);
}

void PersistManager::LoadWorkspace(const std::vector<unsigned char>* data)
{
    const Vx::Locker locker(lock_);
    LoadDomain(WorkspaceDomain(), data);
}

void PersistManager::SaveGlobal()
{
    const Vx::Locker locker(lock_);
    Save(GlobalDomain());
}

void PersistManager::SaveWorkspace()
{
    const Vx::Locker locker(lock_);
    Save(WorkspaceDomain());
}

void PersistManager::FlushGlobal()
{
    const Vx::Locker locker(lock_);
    Flush(GlobalDomain());
}

void PersistManager::FlushWorkspace()
{
    const Vx::Locker locker(lock_);
    Flush(WorkspaceDomain());
}

bool PersistManager::HasUnsavedChanges(PersistDomain domain) const
{
    const Vx::Locker locker(lock_);
    switch (domain) {
        case PersistDomain::GLOBAL:
            return globalChanged_;
        case PersistDomain::WORKSPACE:
            return workspaceChanged_;
        case PersistDomain::JOB:
            return jobModified_;
    }
    return false;
}

void PersistManager::InitDomain(const FileDomain& parts)
{
    controller_.InitDomain(parts.domain, parts.store, "");
    WriteFile(parts.file, parts.image());
}

void PersistManager::LoadDomain(const FileDomain& parts, const std::vector<unsigned char>* data)
{
    const auto load = [&](const std::vector<unsigned char>& bytes) {
        parts.replace(bytes);
        controller_.LoadDomain(parts.domain, parts.store, "", true);
    };
    if (data != nullptr) {
        load(*data);
        return;
    }
    if (!storage_.FileExists(parts.file)) {
        InitDomain(parts);
        return;
    }
    try {
        load(storage_.ReadFile(parts.file));
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, parts.loadFailed, exception.what());
        Vx::LogException(VX_HERE, exception);
        KeepForDiagnosis(parts.file);
        Vx_Debug_Log(Warning, parts.fallback);
        InitDomain(parts);
        Vx_Debug_Log(Warning, parts.fallbackSucceeded);
    }
}

void PersistManager::KeepForDiagnosis(const char* file)
{
    try {
        storage_.CopyForDiagnosis(file, MaxDiagnosisCopies);
    } catch (const std::exception& exception) {  // A copy that cannot be kept must not stop the fallback.
        Vx_Debug_Log(Error, "File '%s' could not be saved for diagnosis (%s).", file, exception.what());
        Vx::LogException(VX_HERE, exception);
    }
}

void PersistManager::Save(const FileDomain& parts)
{
    parts.changed = false;
    controller_.SaveDomain(parts.domain, parts.store, "", true);
    WriteFile(parts.file, parts.image());
    domainPersistedEvent_.Raise(parts.domain);
}

void PersistManager::Flush(const FileDomain& parts)
{
    Disarm(parts);
    Save(parts);
    Arm(parts);
}

void PersistManager::FactoryRestore()
{
    const Vx::Locker locker(lock_);
    InitGlobal();
    InitWorkspace();
    FactoryRestoreJobs();
}

void PersistManager::LoadPersistRecord()
{
    const Vx::Locker locker(lock_);
    if (!storage_.FileExists(PERSIST_RECORD_FILE)) {
        Vx_Debug_Log(Warning, "No %s exists, creating...", PERSIST_RECORD_FILE);
        defaultJob_.clear();
        SavePersistRecord();
        return;
    }
    const std::vector<unsigned char> bytes = storage_.ReadFile(PERSIST_RECORD_FILE);
    Nucleo::XmlDocument document;
    VX_CHECK(document.Parse(std::string(bytes.begin(), bytes.end())));
    const Nucleo::XmlNode defaultJob = document.Child(document.Root(), "DefaultJob");
    if (!defaultJob) {
        VX_THROW(ERROR_NOT_FOUND, "%s has no element \"DefaultJob\".", PERSIST_RECORD_FILE);
    }
    defaultJob_ = document.Text(defaultJob);
}

void PersistManager::SavePersistRecord()
{
    const Vx::Locker locker(lock_);
    const std::string text = RecordText(defaultJob_);
    WriteFile(PERSIST_RECORD_FILE, {text.begin(), text.end()});
}

std::string PersistManager::RecordText(const std::string& defaultJob)
{
    Nucleo::XmlDocument document;
    const Nucleo::XmlNode root = document.CreateRoot("PersistRecord");
    const Nucleo::XmlNode element = document.AddChild(root, "DefaultJob");
    VX_CHECK(document.SetText(element, defaultJob));
    if (document.Text(element) != defaultJob) {
        VX_THROW(ERROR_PARAMETER, "Job '%s' cannot be the default job: the persist record cannot keep its name.",
                 defaultJob);
    }
    return document.ToText();
}

std::vector<unsigned char> PersistManager::FileData(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    return storage_.ReadFile(name);
}

void PersistManager::WriteFile(const std::string& name, const std::vector<unsigned char>& data)
{
    const Vx::Locker locker(lock_);
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
