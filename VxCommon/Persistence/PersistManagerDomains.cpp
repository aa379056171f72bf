// The GLOBAL and the WORKSPACE domain: loading, saving, and files that cannot be used. They report as the manager's own
// file.
#define VX_FILE_TAG "Persistence/PersistManager"

#include <algorithm>

#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxApi/TimeService.h>
#include <VxCommon/Persistence/PersistManager.h>
#include <VxCommon/Persistence/PersistUtils.h>

namespace VxCommon
{
using Vx::Logging::Level;

bool PersistManager::MayPass(const std::exception& failure) noexcept
{
    const Status status = Vx::StatusOf(failure);
    return status == ERROR_TOO_MANY_FILES || status == ERROR_IO || status == ERROR_MEMORY;
}

PersistManager::FileDomain& PersistManager::DomainOf(PersistDomain domain)
{
    return domain == PersistDomain::GLOBAL ? globalDomain_ : workspaceDomain_;
}

void PersistManager::OnSaveTimer(PersistDomain domain)
{
    const Vx::Locker locker(lock_);
    FileDomain& parts = DomainOf(domain);
    // While this callback waited for the lock the timer may have been stopped, or started again and so fires later.
    if (!parts.armed || parts.timer->IsRunning()) {
        return;
    }
    parts.armed = false;
    if (parts.reading) {
        Arm(parts);
        return;
    }
    Vx_Debug_Log(Warning, "Automatically saving %s domain...", PersistDomain_Name(domain));
    const std::uint64_t writes = parts.writes;
    const auto tell = [&](const std::exception& exception) {
        if (parts.writes == writes) {  // Else a listener failed after the file was written.
            autoSaveFailedEvent_.Raise(domain, exception);
        }
    };
    try {
        AutoSave(parts);
    } catch (const std::exception& exception) {
        tell(exception);
        throw;
    } catch (...) {
        tell(Vx::Exception(VX_HERE, ERROR_STATE, "an unknown exception"));
        throw;
    }
}

void PersistManager::AutoSave(FileDomain& parts)
{
    ReleaseHeld(parts.trouble);
    parts.changed = false;
    SavePendingNames(parts.domain);
    Save(parts, parts.changed);  // A named handler may have notified from inside its Save.
    Disarm(parts);
    if (parts.changed) {  // It is still promised a save.
        Arm(parts);
    }
}

void PersistManager::Arm(FileDomain& parts)
{
    if (parts.timer) {
        parts.timer->Start(SaveDelay);
        parts.armed = true;
    }
}

void PersistManager::Disarm(FileDomain& parts)
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
    InitDomain(globalDomain_);
}

void PersistManager::InitWorkspace()
{
    const Vx::Locker locker(lock_);
    InitDomain(workspaceDomain_);
}

void PersistManager::LoadGlobal(const std::vector<unsigned char>* data)
{
    LoadDomain(PersistDomain::GLOBAL, data);
}

void PersistManager::LoadWorkspace(const std::vector<unsigned char>* data)
{
    LoadDomain(PersistDomain::WORKSPACE, data);
}

void PersistManager::SaveGlobal()
{
    const Vx::Locker locker(lock_);
    Save(globalDomain_);
}

void PersistManager::SaveWorkspace()
{
    const Vx::Locker locker(lock_);
    Save(workspaceDomain_);
}

void PersistManager::FlushGlobal()
{
    const Vx::Locker locker(lock_);
    Flush(globalDomain_);
}

void PersistManager::FlushWorkspace()
{
    const Vx::Locker locker(lock_);
    Flush(workspaceDomain_);
}

void PersistManager::Save(FileDomain& parts, bool changedAgain)
{
    if (parts.reading) {
        VX_THROW(ERROR_STATE, "%s cannot be saved while it is being loaded.", PersistDomain_Name(parts.domain));
    }
    ReleaseHeld(parts.trouble);
    parts.changed = false;
    controller_.SaveDomain(parts.domain, parts.record.GetStore(), "", true);
    WriteFile(parts.file, TakeImage(parts.domain));
    ++parts.writes;
    parts.begun = true;
    parts.changed = parts.changed || changedAgain;
    RetryRecord();
    domainPersistedEvent_.Raise(parts.domain);
}

void PersistManager::Flush(FileDomain& parts)
{
    Disarm(parts);
    Save(parts);
    Arm(parts);
}

void PersistManager::InitDomain(FileDomain& parts)
{
    controller_.InitDomain(parts.domain, parts.record.GetStore(), "");
    parts.begun = true;
    WriteFile(parts.file, TakeImage(parts.domain));
}

void PersistManager::LoadDomainImage(FileDomain& parts, const Bytes& image)
{
    parts.record.Load(image.data(), image.size());
    parts.begun = true;
    controller_.LoadDomain(parts.domain, parts.record.GetStore(), "", true);
}

void PersistManager::LoadDomain(PersistDomain domain, const Bytes* data)
{
    if (data != nullptr) {
        const Vx::Locker locker(lock_);
        LoadDomainImage(DomainOf(domain), *data);
        return;
    }
    for (int attempt = 1;; ++attempt) {
        {
            const Vx::Locker locker(lock_);
            FileDomain& parts = DomainOf(domain);
            const Reading reading = Read(parts.file);
            parts.reading = reading.mayPass && attempt < ReadAttempts;
            if (!parts.reading) {
                LoadDomainFile(parts, reading);
                return;
            }
        }
        Vx::TimeService::Current().Sleep(ReadPause);
    }
}

void PersistManager::LoadDomainFile(FileDomain& parts, const Reading& reading)
{
    parts.trouble.reset();
    if (!reading.image && !reading.failure) {
        InitDomain(parts);
        return;
    }
    try {
        LoadDomainImage(parts, reading.Image());
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, parts.loadFailed, exception.what());
        Vx::LogException(VX_HERE, exception);
        // Without memory an image cannot be taken apart, which says nothing about it.
        const bool unread = reading.failure != nullptr || Vx::StatusOf(exception) == ERROR_MEMORY;
        parts.trouble = KeepForDiagnosis(parts.file, exception.what(), unread);
        Vx_Debug_Log(Warning, parts.fallback);
        if (parts.trouble->held) {
            controller_.InitDomain(parts.domain, parts.record.GetStore(), "");
            parts.begun = true;
        } else {
            InitDomain(parts);
        }
        Vx_Debug_Log(Warning, parts.fallbackSucceeded);
    }
}

const PersistManager::Bytes& PersistManager::Reading::Image() const
{
    if (failure) {
        std::rethrow_exception(failure);
    }
    return *image;
}

PersistManager::Reading PersistManager::Read(const std::string& file) const
{
    Reading reading;
    try {
        if (storage_.IsThere(VX_HERE, file)) {
            reading.image = storage_.ReadFile(file);
        }
    } catch (const std::exception& exception) {
        if (Vx::StatusOf(exception) == ERROR_NOT_FOUND) {  // It has gone away meanwhile.
            return reading;
        }
        reading.failure = std::current_exception();
        reading.mayPass = MayPass(exception);
        Vx_Debug_Log(Warning, "File '%s' cannot be read now (%s).", file, exception.what());
    }
    return reading;
}

PersistManager::FileTrouble PersistManager::KeepForDiagnosis(const char* file, const std::string& reason, bool unread)
{
    FileTrouble trouble{file, reason, unread, false, ""};
    if (!unread) {
        try {
            trouble.keptAs = storage_.CopyForDiagnosis(file, MaxDiagnosisCopies);
            return trouble;
        } catch (const std::exception& exception) {
            Vx_Debug_Log(Warning, "File '%s' could not be copied for diagnosis (%s).", file, exception.what());
        }
    }
    try {
        trouble.keptAs = unread ? SetAside(file) : storage_.MoveForDiagnosis(file, MaxDiagnosisCopies);
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "File '%s' could not be saved for diagnosis (%s).", file, exception.what());
        Vx::LogException(VX_HERE, exception);
        // What was read and is damaged gives way where the storage offers no renaming; what could not be read never
        // does.
        const Status status = Vx::StatusOf(exception);
        trouble.held = unread || (status != ERROR_UNSUPPORTED && status != ERROR_NOT_FOUND);
    }
    return trouble;
}

std::string PersistManager::SetAside(const std::string& file)
{
    try {
        return storage_.MoveForDiagnosis(file, MaxUnreadCopies);
    } catch (const Vx::Exception& exception) {
        if (exception.Status() != ERROR_UNSUPPORTED) {
            throw;
        }
    }
    return storage_.CopyForDiagnosis(file, MaxUnreadCopies);
}

void PersistManager::ReleaseHeld(std::optional<FileTrouble>& trouble)
{
    if (!trouble || !trouble->held) {
        return;
    }
    if (!storage_.FileExists(trouble->file)) {  // Somebody has taken it away.
        trouble.reset();
        return;
    }
    trouble->keptAs = SetAside(trouble->file);
    trouble->held = false;
    Vx::Logging::Public(Level::Warning, "Start", "The file %s, which could not be used, is kept as %s now.",
                        trouble->file, trouble->keptAs);
}

bool PersistManager::RetryFiles() noexcept
{
    const Vx::Locker locker(lock_);
    const bool globalSettled = RetryHeld(globalDomain_);
    const bool workspaceSettled = RetryHeld(workspaceDomain_);
    return RetryRecord() && globalSettled && workspaceSettled;
}

bool PersistManager::RetryHeld(FileDomain& parts) noexcept
{
    if (!parts.trouble || !parts.trouble->held) {
        return true;
    }
    try {
        ReleaseHeld(parts.trouble);
        parts.changed = true;
        Arm(parts);
        return true;
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Info, "File '%s' still cannot be set aside (%s).", parts.file, exception.what());
    } catch (...) {
        Vx_Debug_Log(Info, "File '%s' still cannot be set aside (unknown exception).", parts.file);
    }
    return false;
}

std::vector<PersistManager::FileTrouble> PersistManager::FileTroubles() const
{
    const Vx::Locker locker(lock_);
    std::vector<FileTrouble> troubles;
    for (const auto* trouble : {&recordTrouble_, &globalDomain_.trouble, &workspaceDomain_.trouble}) {
        if (*trouble) {
            troubles.push_back(**trouble);
        }
    }
    return troubles;
}

PersistManager::Bytes PersistManager::TakeImage(PersistDomain domain)
{
    const std::vector<std::string> unkept = UnkeptItems(domain);
    std::set<std::string>& told = toldItems_[domain];
    for (const std::string& path : unkept) {
        if (!told.contains(path)) {
            Vx::Logging::Public(Level::Error, "Save domain",
                                "The item '%s' of %s is not saved: no image can keep its path.",
                                PersistUtils::PrintablePath(path), PersistDomain_Name(domain));
        }
    }
    told = {unkept.begin(), unkept.end()};
    return RecordOf(domain).Save();
}

std::vector<std::string> PersistManager::UnkeptItems(PersistDomain domain) const
{
    const Vx::Locker locker(lock_);
    switch (domain) {
        case PersistDomain::GLOBAL:
            return global_.UnkeptPaths();
        case PersistDomain::WORKSPACE:
            return workspace_.UnkeptPaths();
        case PersistDomain::JOB:
            return job_.UnkeptPaths();
    }
    return {};
}

void PersistManager::FactoryRestore()
{
    const Vx::Locker locker(lock_);
    InitGlobal();
    InitWorkspace();
    FactoryRestoreJobs();
}

}  // namespace VxCommon
