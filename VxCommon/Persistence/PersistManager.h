#pragma once
// The persistence service of the host: domains that are saved by themselves, and jobs that are saved on request.
//
// Threads. Every public operation and both timer callbacks run under one re-entrant lock, so they may be called from
// any thread; handlers and event listeners are called under it too. It is the outermost lock: a listener may call down
// (into the logs, the problems, a notice queue), never wait for a thread that may be calling the manager. The events
// themselves may be subscribed to at any time.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>
#include <VxApi/Event.h>
#include <VxCommon/Persistence/Global.h>
#include <VxCommon/Persistence/Job.h>
#include <VxCommon/Persistence/NodeStorage.h>
#include <VxCommon/Persistence/PersistController.h>
#include <VxCommon/Persistence/ScopedPersistStore.h>
#include <VxCommon/Persistence/Workspace.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{

/// Life: constructed; handlers register; Init; LoadGlobal, LoadWorkspace, LoadDefaultJob; running; Shutdown; destroyed.
/// Failures are thrown as Vx::Exception; job names must not be empty (ERROR_PARAMETER).
class VXCOMMON_API PersistManager final : public IPersistController
{
public:
    /// What happened to the job system; the first argument of JobChangedEvent. The values travel to other layers.
    enum class JobChange : std::int32_t
    {
        JobCreated = 0,
        JobDeleted = 1,
        JobUpdated = 2,
        JobsCleared = 3,            ///< All jobs were deleted; empty name.
        JobLoaded = 4,              ///< The named job is loaded now; empty: the factory job.
        JobModified = 5,            ///< The first change after a load; empty name.
        LoadedJobStateChanged = 6,  ///< The loaded job was saved, or its file no longer holds what is loaded.
        DefaultJobChanged = 7,
    };

    /// The three views of one handler name.
    struct ScopedStore
    {
        std::string name;
        ScopedPersistStore global;
        ScopedPersistStore workspace;
        ScopedPersistStore job;
    };

    /// From the last change of a domain to its automatic save.
    static constexpr std::chrono::microseconds SaveDelay{250000};

    /// How many diagnosis copies of a domain file are kept.
    static constexpr unsigned long long MaxDiagnosisCopies = 5;

    /// The file that keeps the default job's name.
    static const char* const PERSIST_RECORD_FILE;

    /// Touches no file. Both arguments must outlive the manager.
    PersistManager(TesselSystem& system, IUpdatableSystem& updatable);

    /// Shuts down; what that throws is logged. Waits for an automatic save that is under way.
    ~PersistManager() override;
    PersistManager(const PersistManager&) = delete;
    PersistManager& operator=(const PersistManager&) = delete;

    /// Reads the persist record and starts to follow the handlers' notifications. After a failure it may be called
    /// again.
    void Init();

    /// Stops the automatic saves and writes the domains that have changes waiting.
    void Shutdown();

    // Handlers.

    void* RegisterHandler(IPersistHandler& handler, const std::string& name) override;
    void UnregisterHandler(void* handle) override;

    /// Saves a named handler into the domain's in-memory store at once and promises a write of the file after
    /// SaveDelay. Throws when that in-memory save fails; nothing is promised then.
    void NotifyChange(IPersistHandler& handler, PersistDomain domain) override;

    /// Loads a named handler from the domain's in-memory store.
    void NotifyLoad(IPersistHandler& handler, PersistDomain domain) override;

    std::vector<PersistController::HandlerInfo> ListRegistered() const;

    /// The views of a registered name; they stay valid through every load. Throws ERROR_NOT_FOUND for a name that never
    /// was registered.
    ScopedStore& GetScopedStore(const std::string& name);

    /// Adds views for the controller's handler names that have none yet. Names that are no longer registered keep
    /// theirs.
    void UpdateScopedStores(PersistController& controller);

    // Domains.

    Persist::Global& GetGlobalInstance() noexcept { return global_; }
    Persist::Workspace& GetWorkspaceInstance() noexcept { return workspace_; }

    /// The image of the WORKSPACE as it is in memory; no handler is saved first.
    std::vector<unsigned char> CurrentWorkspace() const;

    /// Writes an image to a file.
    void WriteGlobal(const std::string& name, const std::vector<unsigned char>& bytes);
    void WriteWorkspace(const std::string& name, const std::vector<unsigned char>& bytes);

    /// Resets the unnamed handlers to defaults and writes the domain's file.
    void InitGlobal();
    void InitWorkspace();

    /// Loads from `data` when given (what fails is thrown), else from the domain's file: initialised when there is
    /// none, kept for diagnosis and initialised anew when it cannot be loaded.
    void LoadGlobal(const std::vector<unsigned char>* data = nullptr);
    void LoadWorkspace(const std::vector<unsigned char>* data = nullptr);

    /// Saves the unnamed handlers and writes the domain's file now.
    void SaveGlobal();
    void SaveWorkspace();

    /// Saves now, and once more after SaveDelay.
    void FlushGlobal();
    void FlushWorkspace();

    /// True while the GLOBAL or WORKSPACE domain has changes that no save was begun for, or the loaded job is modified.
    bool HasUnsavedChanges(PersistDomain domain) const;

    /// Everything back to factory state: both domains, the factory job, no stored jobs.
    void FactoryRestore();

    void LoadPersistRecord();
    void SavePersistRecord();

    // Jobs. A job is the file "<name>.vpjob"; names follow the rules of NodeStorage and have at most 144 characters.

    std::vector<std::string> ListJobs() const;
    bool JobExists(const std::string& name) const;
    std::vector<unsigned char> JobData(const std::string& name) const;
    unsigned long long JobSize(const std::string& name) const;

    /// Writes the job's file; an existing one is replaced.
    void CreateJob(const std::string& name, const std::vector<unsigned char>& data);

    /// Writes the job's file. When it is the loaded job's, the handlers' content no longer matches any file: the loaded
    /// job becomes "" and modified.
    void WriteJob(const std::string& name, const std::vector<unsigned char>& data);

    void CopyJob(const std::string& source, const std::string& dest);

    /// Copies, moves the loaded and the default job along, then deletes. A failure after the copy leaves both files.
    void RenameJob(const std::string& oldName, const std::string& newName);

    void DeleteJob(const std::string& name);

    /// Deletes all jobs and forgets the default job; the persist record keeps its text until it is next written.
    void ClearJobs();

    /// Saves all unnamed handlers into the job store and writes it as job `name`, which is then the loaded, unmodified
    /// job.
    void SaveJob(const std::string& name);

    /// Chooses the job that is loaded at start; an empty name chooses none. A name with control characters is refused
    /// (ERROR_PARAMETER): the persist record could not keep it.
    void SetDefaultJob(const std::string& name);

    std::string DefaultJob() const;
    std::string LoadedJob() const;
    bool IsJobModified() const;

    /// The present JOB state as a job image, after saving all unnamed handlers; no file is touched.
    std::vector<unsigned char> LiveJob();

    /// Loads a job into the handlers. When that fails the previous job is loaded again, or else the factory job, and
    /// the first failure's status is thrown all the same.
    void LoadJob(const std::string& name);

    /// The factory job, then the default job if there is one.
    void LoadDefaultJob();

    /// Resets all unnamed handlers' JOB state to factory defaults.
    void LoadJobFromFactory();

    /// Loads a job image that belongs to no file; the loaded job counts as modified.
    void LoadLiveJob(const std::vector<unsigned char>& data);

    void FactoryRestoreJobs();

    /// Checks a configuration inside a job image: entry `entry` must be there (ERROR_NOT_FOUND) and be a JSON object
    /// with a whole-number "version" (ERROR_FORMAT) of at most `newestVersion` (ERROR_UNSUPPORTED).
    static void ValidateConfigFile(const std::vector<unsigned char>& job, const std::string& entry,
                                   std::uint64_t newestVersion);

    /// Whether the stored job files and their data fit together: always so, since each job is one file.
    Status ValidateJobFilesAndData() const noexcept { return OK; }

    // Files of the host that are no jobs, in the same storage area; see NodeStorage.

    std::vector<unsigned char> FileData(const std::string& name) const;
    void WriteFile(const std::string& name, const std::vector<unsigned char>& data);
    void DeleteFile(const std::string& name);
    bool FileExists(const std::string& name) const;
    unsigned long long FileSize(const std::string& name) const;
    std::vector<std::string> ListFiles(const std::string& extension) const;

    /// The manager's lock. Who ends a subscription to one of the events while other threads may be raising it, and then
    /// destroys what the listener uses, ends it under this lock: no listener is running on another thread then.
    Nucleo::Lock& GetLock() const noexcept VX_RETURN_CAPABILITY(lock_) { return lock_; }

    // Events. Raised synchronously under the manager's lock. A listener that throws makes the operation fail.

    Vx::Event<JobChange, const std::string&>& JobChangedEvent() noexcept { return jobChangedEvent_; }

    /// Raised when a handler reports a change.
    Vx::Event<PersistDomain>& DomainChangedEvent() noexcept { return domainChangedEvent_; }

    /// Raised when a domain has been written.
    Vx::Event<PersistDomain>& DomainPersistedEvent() noexcept { return domainPersistedEvent_; }

private:
    struct FileDomain;
    FileDomain GlobalDomain() VX_REQUIRES(lock_);
    FileDomain WorkspaceDomain() VX_REQUIRES(lock_);

    void OnDomainChanged(IPersistHandler& handler, PersistDomain domain, const std::string& name);
    void OnDomainLoad(IPersistHandler& handler, PersistDomain domain, const std::string& name);
    void OnSaveTimer(PersistDomain domain);

    /// The persist record's text for this default job. Throws ERROR_PARAMETER when XML cannot carry the name.
    static std::string RecordText(const std::string& defaultJob);
    ScopedPersistStore& View(PersistDomain domain, const std::string& name) VX_REQUIRES(lock_);

    // The operations that the GLOBAL and the WORKSPACE domain share.
    void Arm(const FileDomain& parts) VX_REQUIRES(lock_);
    void Disarm(const FileDomain& parts) VX_REQUIRES(lock_);
    void Save(const FileDomain& parts) VX_REQUIRES(lock_);
    void Flush(const FileDomain& parts) VX_REQUIRES(lock_);
    void InitDomain(const FileDomain& parts) VX_REQUIRES(lock_);
    void LoadDomain(const FileDomain& parts, const std::vector<unsigned char>* data) VX_REQUIRES(lock_);
    void KeepForDiagnosis(const char* file) VX_REQUIRES(lock_);

    void LoadJobFile(const std::string& name) VX_REQUIRES(lock_);
    bool FallBackToPreviousJob(const std::string& previous) VX_REQUIRES(lock_);
    void FallBackToFactoryJob() VX_REQUIRES(lock_);

    /// The handlers hold what no file holds any more: no job is loaded, and it is modified.
    void DetachLoadedJob() VX_REQUIRES(lock_);

    mutable Nucleo::Lock lock_;

    // Constant after construction.
    TesselSystem& system_;

    // Guarded by lock_; handlers and views reach the stores from inside the passes.
    NodeStorage storage_;
    PersistController controller_;
    Vx::Event<JobChange, const std::string&> jobChangedEvent_;
    Vx::Event<PersistDomain> domainChangedEvent_;
    Vx::Event<PersistDomain> domainPersistedEvent_;
    bool globalChanged_ VX_GUARDED_BY(lock_) = false;
    bool workspaceChanged_ VX_GUARDED_BY(lock_) = false;
    // Made once by Init; never destroyed or waited for with the lock held, which their callbacks take.
    std::unique_ptr<Vx::AsyncTimer> saveGlobalTimer_ VX_GUARDED_BY(lock_);
    std::unique_ptr<Vx::AsyncTimer> saveWorkspaceTimer_ VX_GUARDED_BY(lock_);
    // Whether an automatic save is due: a callback that waited for the lock meanwhile finds out here.
    bool globalArmed_ VX_GUARDED_BY(lock_) = false;
    bool workspaceArmed_ VX_GUARDED_BY(lock_) = false;
    std::string defaultJob_ VX_GUARDED_BY(lock_);
    std::string loadedJob_ VX_GUARDED_BY(lock_);
    bool jobModified_ VX_GUARDED_BY(lock_) = false;
    Persist::Job liveJob_;
    Persist::Job job_;
    Persist::Global global_;
    Persist::Workspace workspace_;
    std::map<std::string, ScopedStore> scopedStores_ VX_GUARDED_BY(lock_);
};

}  // namespace VxCommon
