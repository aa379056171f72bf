// The job operations of the persist manager; they report as the manager's own file.
#define VX_FILE_TAG "Persistence/PersistManager"

#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxApi/TimeService.h>
#include <VxCommon/Persistence/PersistManager.h>
#include <VxCommon/Persistence/PersistUtils.h>

namespace VxCommon
{
namespace
{

std::string JobFile(const std::string& name)
{
    return NodeStorage::AppendExtension(name, Persist::Job::JOB_FILE_EXT);
}

void RequireName(const Vx::Location& location, const std::string& name)
{
    if (name.empty()) {
        VX_THROW_AT(location, ERROR_PARAMETER, "The job name is empty.");
    }
    // As files they would do, but no client could name them: URL paths give these two segments another meaning.
    if (name == "." || name == "..") {
        VX_THROW_AT(location, ERROR_PARAMETER, "The job name '%s' cannot be used: '.' and '..' are no names.", name);
    }
}

// A failure that users must see: the private log gets all of it, the public one the text.
void LogJobFailure(const Vx::Location& location, const std::string& text, const std::exception& exception)
{
    Vx::Logging::Debug(Vx::Logging::Level::Error, location, text);
    Vx::LogException(location, exception);
    Vx::Logging::Public(Vx::Logging::Level::Error, "Jobs", text);
}

template <class... Args>
std::string Text(const char* format, const Args&... args)
{
    return Nucleo::Print(format, Nucleo::MakeFormatArgs(args...));
}

}  // namespace

std::vector<std::string> PersistManager::ListJobs() const
{
    const Vx::Locker locker(lock_);
    std::vector<std::string> names;
    for (const std::string& file : storage_.ListFiles(Persist::Job::JOB_FILE_EXT)) {
        std::string name = NodeStorage::StripExtension(file);
        if (name.empty()) {
            Vx_Debug_Log(Warning, "Empty job file detected '%s'!", file);
        } else {
            names.push_back(std::move(name));
        }
    }
    return names;
}

bool PersistManager::JobExists(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    return storage_.IsThere(VX_HERE, JobFile(name));
}

std::vector<unsigned char> PersistManager::JobData(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    if (!JobExists(name)) {
        VX_THROW(ERROR_NOT_FOUND, "Job '%s' does not exist.", name);
    }
    return storage_.ReadFile(JobFile(name));
}

unsigned long long PersistManager::JobSize(const std::string& name) const
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    return storage_.FileSize(JobFile(name));
}

void PersistManager::CreateJob(const std::string& name, const std::vector<unsigned char>& data)
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    WriteFile(JobFile(name), data);
    jobChangedEvent_.Raise(JobChange::JobCreated, name);
}

void PersistManager::WriteJob(const std::string& name, const std::vector<unsigned char>& data)
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    WriteFile(JobFile(name), data);
    jobChangedEvent_.Raise(JobChange::JobUpdated, name);
    if (name == loadedJob_) {
        DetachLoadedJob();
    }
}

void PersistManager::CopyJob(const std::string& source, const std::string& dest)
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, source);
    RequireName(VX_HERE, dest);
    storage_.CopyFile(JobFile(source), JobFile(dest));
    jobChangedEvent_.Raise(JobChange::JobCreated, dest);
}

void PersistManager::RenameJob(const std::string& oldName, const std::string& newName)
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, oldName);
    RequireName(VX_HERE, newName);
    const bool wasDefault = defaultJob_ == oldName;
    if (wasDefault) {
        static_cast<void>(RecordText(newName));  // Throws before anything is changed.
    }
    CopyJob(oldName, newName);
    const bool wasLoaded = loadedJob_ == oldName;
    if (wasLoaded) {
        loadedJob_ = newName;
    }
    if (wasDefault) {
        defaultJob_ = newName;
        SavePersistRecord();
    }
    if (wasLoaded) {
        jobChangedEvent_.Raise(JobChange::JobLoaded, newName);
    }
    if (wasDefault) {
        jobChangedEvent_.Raise(JobChange::DefaultJobChanged, newName);
    }
    storage_.DeleteFile(JobFile(oldName));
    jobChangedEvent_.Raise(JobChange::JobDeleted, oldName);
}

void PersistManager::DeleteJob(const std::string& name)
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    storage_.DeleteFile(JobFile(name));
    jobChangedEvent_.Raise(JobChange::JobDeleted, name);
    if (name == loadedJob_) {
        DetachLoadedJob();
    }
    if (name == defaultJob_) {
        defaultJob_.clear();
        SavePersistRecord();
        jobChangedEvent_.Raise(JobChange::DefaultJobChanged, "");
    }
}

void PersistManager::ClearJobs()
{
    const Vx::Locker locker(lock_);
    for (const std::string& file : storage_.ListFiles(Persist::Job::JOB_FILE_EXT)) {
        storage_.DeleteFile(file);
    }
    defaultJob_.clear();
    jobChangedEvent_.Raise(JobChange::JobsCleared, "");
}

void PersistManager::SaveJob(const std::string& name)
{
    const Vx::Locker locker(lock_);
    RequireName(VX_HERE, name);
    const Bytes image = TakeJobImage();
    const bool existed = storage_.IsThere(VX_HERE, JobFile(name));
    WriteFile(JobFile(name), image);
    jobChangedEvent_.Raise(existed ? JobChange::JobUpdated : JobChange::JobCreated, name);
    loadedJob_ = name;
    jobModified_ =
        !controller_.ChangedNames(PersistDomain::JOB).empty();  // What could not be saved is not in the file.
    jobChangedEvent_.Raise(JobChange::LoadedJobStateChanged, name);
    domainPersistedEvent_.Raise(PersistDomain::JOB);
    RetryRecord();
}

void PersistManager::SetDefaultJob(const std::string& name)
{
    const Vx::Locker locker(lock_);
    if (!NodeStorage::IsFileNameValid(name)) {
        VX_THROW(ERROR_PARAMETER, "The job name %s contains an invalid character.", name);
    }
    if (!name.empty() && !storage_.IsThere(VX_HERE, JobFile(name))) {
        VX_THROW(ERROR_NOT_FOUND, "Job '%s' does not exist.", name);
    }
    static_cast<void>(RecordText(name));
    defaultJob_ = name;
    SavePersistRecord();
    jobChangedEvent_.Raise(JobChange::DefaultJobChanged, name);
}

std::string PersistManager::DefaultJob() const
{
    const Vx::Locker locker(lock_);
    return defaultJob_;
}

std::string PersistManager::LoadedJob() const
{
    const Vx::Locker locker(lock_);
    return loadedJob_;
}

bool PersistManager::IsJobModified() const
{
    const Vx::Locker locker(lock_);
    return jobModified_;
}

std::vector<unsigned char> PersistManager::LiveJob()
{
    const Vx::Locker locker(lock_);
    return TakeJobImage();
}

PersistManager::Bytes PersistManager::TakeJobImage()
{
    SavePendingNames(PersistDomain::JOB);
    controller_.SaveDomain(PersistDomain::JOB, job_.GetStore(), "", true);
    const std::size_t unkept = UnkeptItems(PersistDomain::JOB).size();
    Bytes image = TakeImage(PersistDomain::JOB);
    if (unkept != 0 && unkept == job_.GetStore().List("", true).size()) {
        VX_THROW(ERROR_CONTENT, "The job has no item that can be kept: none of its %llu paths fits into an image.",
                 unkept);
    }
    return image;
}

void PersistManager::LoadJob(const std::string& name)
{
    const Vx::Locker locker(lock_);
    if (name.empty()) {
        VX_THROW(ERROR_PARAMETER, "Attempt to load job failed: `jobName` argument is empty.");
    }
    if (!storage_.IsThere(VX_HERE, JobFile(name))) {
        VX_THROW(ERROR_NOT_FOUND, "Attempt to load job failed: Job does not exist.");
    }
    LoadJob(name, [this, &name] { return storage_.ReadFile(JobFile(name)); });
}

void PersistManager::LoadJob(const std::string& name, const std::function<Bytes()>& read)
{
    const std::string previous = loadedJob_;
    Vx_Debug_Log(Info, "Load job '%s'...", name);
    Status status = OK;
    try {
        LoadJobImage(read());
        loadedJob_ = name;
        Vx_Debug_Log(Info, "Load job '%s' succeeded.", name);
        jobChangedEvent_.Raise(JobChange::JobLoaded, name);
        return;
    } catch (const std::exception& exception) {
        LogJobFailure(VX_HERE, Text("Load job '%s' failed (%s).", name, exception.what()), exception);
        status = Vx::StatusOf(exception);
    }
    if (previous.empty() || !FallBackToPreviousJob(previous)) {
        FallBackToFactoryJob();
    }
    if (loadedJob_ == name) {  // A listener refused it, and the factory job failed as well.
        loadedJob_ = previous;
    }
    VX_THROW(status, "Failed to load job '%s'. (%d)", name, status);
}

void PersistManager::LoadJobImage(const Bytes& image)
{
    job_.Load(image.data(), image.size());
    jobModified_ = false;
    controller_.LoadDomain(PersistDomain::JOB, job_.GetStore(), "", true);
}

bool PersistManager::FallBackToPreviousJob(const std::string& previous)
{
    Vx_Debug_Log(Warning, "Falling back to previous job '%s'...", previous);
    try {
        LoadJobImage(storage_.ReadFile(JobFile(previous)));
        loadedJob_ = previous;
        Vx_Debug_Log(Warning, "Fallback to job '%s' succeeded.", previous);
        jobChangedEvent_.Raise(JobChange::JobLoaded, previous);
        return true;
    } catch (const std::exception& exception) {
        LogJobFailure(VX_HERE, Text("Fallback to previous job '%s' failed (%s).", previous, exception.what()),
                      exception);
        return false;
    }
}

void PersistManager::FallBackToFactoryJob()
{
    Vx_Debug_Log(Warning, "Attempting to fallback to re-initialize job...");
    try {
        LoadJobFromFactory();
        Vx_Debug_Log(Warning, "Fallback to re-initialize job succeeded.");
    } catch (const std::exception& exception) {
        LogJobFailure(VX_HERE, Text("Fallback to re-initialize job failed (%s).", exception.what()), exception);
    }
}

void PersistManager::LoadDefaultJob()
{
    for (int attempt = 1;; ++attempt) {
        {
            const Vx::Locker locker(lock_);
            if (attempt == 1) {
                LoadJobFromFactory();
            }
            if (defaultJob_.empty()) {
                Vx_Debug_Log(Info, "No default job specified, using factory job.");
                return;
            }
            const std::string name = defaultJob_;  // A copy: a listener may choose another default meanwhile.
            const Reading reading = Read(JobFile(name));
            if (!reading.image && !reading.failure) {
                Vx_Debug_Log(Info, "Default job '%s' not found, using factory job.", name);
                return;
            }
            if (!reading.mayPass || attempt == ReadAttempts) {
                LoadJob(name, [&reading] { return reading.Image(); });
                return;
            }
        }
        Vx::TimeService::Current().Sleep(ReadPause);
    }
}

void PersistManager::LoadJobFromFactory()
{
    const Vx::Locker locker(lock_);
    const bool hadJob = !loadedJob_.empty() || jobModified_;
    Vx_Debug_Log(Info, "Initializing factory job...");
    job_.Clear();
    controller_.InitDomain(PersistDomain::JOB, job_.GetStore(), "");
    loadedJob_.clear();
    jobModified_ = false;
    if (hadJob) {
        jobChangedEvent_.Raise(JobChange::JobLoaded, "");
    }
}

void PersistManager::LoadLiveJob(const std::vector<unsigned char>& data)
{
    const Vx::Locker locker(lock_);
    if (data.empty()) {
        VX_THROW(ERROR_PARAMETER, "Attempt to load live job failed: live job data is empty.");
    }
    Vx_Debug_Log(Info, "Loading live job ...");
    try {
        job_.Load(data.data(), data.size());
        jobModified_ = true;
        controller_.LoadDomain(PersistDomain::JOB, job_.GetStore(), "", true);
        Vx_Debug_Log(Info, "Loaded live job succeeded.");
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "Loading live job failed (%s).", exception.what());
        Vx::LogException(VX_HERE, exception);
        const Status status = Vx::StatusOf(exception);
        VX_THROW(status, "Failed to load job %d", status);
    }
}

void PersistManager::FactoryRestoreJobs()
{
    const Vx::Locker locker(lock_);
    LoadJobFromFactory();
    ClearJobs();
}

void PersistManager::ValidateConfigFile(const std::vector<unsigned char>& job, const std::string& entry,
                                        std::uint64_t newestVersion)
{
    const PersistStore store = PersistUtils::DearchiveStore(job.data(), job.size());
    if (!store.Exists(entry)) {
        VX_THROW(ERROR_NOT_FOUND, "The job has no entry '%s'.", entry);
    }
    const std::vector<std::uint8_t> text = store.Read(entry);
    const nlohmann::json document = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    const auto version = document.is_object() ? document.find("version") : document.end();
    if (version == document.end() || !version->is_number_unsigned()) {
        VX_THROW(ERROR_FORMAT, "Entry '%s' is no JSON object with a whole-number \"version\".", entry);
    }
    const auto found = version->get<std::uint64_t>();
    if (found > newestVersion) {
        VX_THROW(ERROR_UNSUPPORTED, "Entry '%s' is of version %llu, which is newer than %llu.", entry, found,
                 newestVersion);
    }
}

void PersistManager::DetachLoadedJob()
{
    loadedJob_.clear();
    jobModified_ = true;
    jobChangedEvent_.Raise(JobChange::LoadedJobStateChanged, "");
}

}  // namespace VxCommon
