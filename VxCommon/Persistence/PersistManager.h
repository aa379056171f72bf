#pragma once
// The persistence service of the host: domains that are saved by themselves, and jobs that are saved on request.
//
// Threads. Every public operation and both timer callbacks run under one re-entrant lock, so they may be called from
// any thread; handlers and event listeners are called under it too. It is the outermost lock: a listener may call down
// (into the logs, the problems, a notice queue), never wait for a thread that may be calling the manager. The events
// themselves may be subscribed to at any time.

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
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

    /// What befell one of the manager's own files (GLOBAL, WORKSPACE, persist record) when it was read at start.
    struct FileTrouble
    {
        std::string file;
        std::string reason;   ///< What reading or loading it met.
        bool unread = false;  ///< It could not be read, so what it holds may be whole.
        bool held = false;    ///< It is still in its place. Nothing is written there until it could be set aside.
        std::string keptAs;   ///< Its diagnosis copy; empty when it is held or could not be kept.
    };

    /// From the last change of a domain to its automatic save.
    static constexpr std::chrono::microseconds SaveDelay{250000};

    /// A failed read that may pass is tried this often, with a pause between, so that all attempts end within a second.
    static constexpr int ReadAttempts = 4;
    static constexpr std::chrono::milliseconds ReadPause{250};

    /// Whether what a read met may pass by itself: ERROR_IO, ERROR_TOO_MANY_FILES or ERROR_MEMORY.
    static bool MayPass(const std::exception& failure) noexcept;

    /// How many diagnosis copies of a domain file are kept.
    static constexpr unsigned long long MaxDiagnosisCopies = 5;

    /// How many files that could not be read are kept; they are no copies of something that is known to be damaged.
    static constexpr unsigned long long MaxUnreadCopies = 99;

    /// The file that keeps the default job's name.
    static const char* const PERSIST_RECORD_FILE;

    /// Touches no file. Both arguments must outlive the manager.
    PersistManager(TesselSystem& system, IUpdatableSystem& updatable);

    /// Shuts down; what that throws is logged. Waits for an automatic save that is under way.
    ~PersistManager() override;
    PersistManager(const PersistManager&) = delete;
    PersistManager& operator=(const PersistManager&) = delete;

    /// Reads the persist record and starts to follow the handlers' notifications. A missing record is written; when
    /// that fails, the default job is empty and writing is tried again with every later save and by RetryFiles. Throws
    /// when the record cannot be read or is damaged; it may be called again then.
    void Init();

    /// For a host that must start although Init threw `reason`: sets the record aside as a diagnosis copy and goes on
    /// as Init does for a missing one. A record that cannot be set aside is held (see FileTrouble).
    void InitWithoutRecord(const std::exception& reason);

    /// Stops the automatic saves and writes the domains that have changes waiting, those of named handlers included
    /// whose last save failed. One domain's failure does not cost the other's changes; the first one is thrown at the
    /// end.
    void Shutdown();

    /// What befell the manager's own files at start and is not settled by a later load, in the order of loading.
    std::vector<FileTrouble> FileTroubles() const;

    /// Whether the persist record is missing because it could not be written yet.
    bool IsRecordUnwritten() const;

    /// Tries again what could not be done at start: sets held files aside, after which their domains are saved, and
    /// writes the persist record. Never throws. True when nothing of that kind is left. For a host to call every few
    /// seconds while something is.
    bool RetryFiles() noexcept;

    // Handlers.

    void* RegisterHandler(IPersistHandler& handler, const std::string& name) override;
    void UnregisterHandler(void* handle) override;

    /// Saves a named handler into the domain's in-memory store at once and promises a write of the file after
    /// SaveDelay. Throws when that in-memory save fails; nothing is promised then.
    void NotifyChange(IPersistHandler& handler, PersistDomain domain) override;

    /// Loads a named handler from its view of the domain's in-memory store, one without a name from the whole store.
    void NotifyLoad(IPersistHandler& handler, PersistDomain domain) override;

    std::vector<PersistController::HandlerInfo> ListRegistered() const;

    /// The views of a registered name; they stay valid through every load. Throws ERROR_NOT_FOUND for a name that never
    /// was registered. The caller holds GetLock() from the call to its last use of the views.
    ScopedStore& GetScopedStore(const std::string& name);

    /// Adds views for the controller's handler names that have none yet. Names that are no longer registered keep
    /// theirs.
    void UpdateScopedStores(PersistController& controller);

    // Domains.

    /// The records themselves. The caller holds GetLock() from the call to its last use of what they hand out.
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
    /// none; when it cannot be loaded it is kept for diagnosis and the domain initialised again. A file that cannot be
    /// read is tried again for less than a second if that may pass, waiting by the time service, so the caller holds no
    /// lock; then it is set aside unread. When it cannot be set aside either it is held (see FileTrouble), and the
    /// domain starts with defaults in memory.
    void LoadGlobal(const std::vector<unsigned char>* data = nullptr);
    void LoadWorkspace(const std::vector<unsigned char>* data = nullptr);

    /// Saves the unnamed handlers and writes the domain's file now. Throws, and saves nothing, while the file is held.
    void SaveGlobal();
    void SaveWorkspace();

    /// Saves now, and once more after SaveDelay.
    void FlushGlobal();
    void FlushWorkspace();

    /// True while the GLOBAL or WORKSPACE domain has changes that no save was begun for, or the loaded job is modified.
    bool HasUnsavedChanges(PersistDomain domain) const;

    /// The paths of the domain's items that no image can keep (see IPersistStore), in byte order.
    std::vector<std::string> UnkeptItems(PersistDomain domain) const;

    /// Everything back to factory state: both domains, the factory job, no stored jobs.
    void FactoryRestore();

    void LoadPersistRecord();
    void SavePersistRecord();

    // Jobs. A job is the file "<name>.vpjob"; names follow the rules of NodeStorage and have at most 144 characters.

    std::vector<std::string> ListJobs() const;
    /// Throws the storage's status when it cannot tell.
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
    /// job. Throws ERROR_CONTENT when the store has items and none of them can be kept.
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

    /// The factory job, then the default job if there is one. A job file that cannot be read is tried again as a
    /// domain's file is, so the caller holds no lock; it stays in its place whatever happens.
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

    /// Raised when an automatic save has not written the domain's file, with what it met.
    Vx::Event<PersistDomain, const std::exception&>& AutoSaveFailedEvent() noexcept { return autoSaveFailedEvent_; }

private:
    using Bytes = std::vector<unsigned char>;

    /// What reading a file gave: its content, nothing when it is missing, or a failure.
    struct Reading
    {
        const Bytes& Image() const;  ///< Throws the failure.

        std::optional<Bytes> image;
        std::exception_ptr failure;
        bool mayPass = false;  ///< Trying again may help.
    };

    /// A domain that lives in a file of its own.
    struct FileDomain
    {
        // Constant after construction.
        PersistDomain domain;
        Persist::Record& record;
        const char* file;
        const char* loadFailed;
        const char* fallback;
        const char* fallbackSucceeded;

        // Guarded by lock_.
        bool begun = false;    // It was initialised, loaded or saved: its file may be written at the end.
        bool reading = false;  // A load waits to read the file again: nothing may take its place meanwhile.
        bool changed = false;
        std::uint64_t writes = 0;  // Of the file.
        // Made once by Init; never destroyed or waited for with the lock held, which its callback takes.
        std::unique_ptr<Vx::AsyncTimer> timer = nullptr;
        // Whether an automatic save is due: a callback that waited for the lock meanwhile finds out here.
        bool armed = false;
        std::optional<FileTrouble> trouble = std::nullopt;
    };

    void OnDomainChanged(IPersistHandler& handler, PersistDomain domain, const std::string& name);
    void OnDomainLoad(IPersistHandler& handler, PersistDomain domain, const std::string& name);
    void OnSaveTimer(PersistDomain domain);

    // The persist record.
    void Follow() VX_REQUIRES(lock_);
    bool RetryRecord() noexcept VX_REQUIRES(lock_);
    /// Its text for this default job. Throws ERROR_PARAMETER when XML cannot carry the name.
    static std::string RecordText(const std::string& defaultJob);

    ScopedPersistStore& View(PersistDomain domain, const std::string& name) VX_REQUIRES(lock_);
    Persist::Record& RecordOf(PersistDomain domain) VX_REQUIRES(lock_);
    FileDomain& DomainOf(PersistDomain domain) VX_REQUIRES(lock_);

    /// Saves each named handler whose change of the domain is still pending, by its own view. What fails is logged.
    void SavePendingNames(PersistDomain domain) VX_REQUIRES(lock_);

    /// The image of the domain's store; items that it cannot keep are told of, once each.
    Bytes TakeImage(PersistDomain domain) VX_REQUIRES(lock_);
    Bytes TakeJobImage() VX_REQUIRES(lock_);

    // The operations that the GLOBAL and the WORKSPACE domain share.
    void Arm(FileDomain& parts) VX_REQUIRES(lock_);
    void Disarm(FileDomain& parts) VX_REQUIRES(lock_);
    void AutoSave(FileDomain& parts) VX_REQUIRES(lock_);
    /// `changedAgain`: what is saved has been changed since, so the domain stays changed.
    void Save(FileDomain& parts, bool changedAgain = false) VX_REQUIRES(lock_);
    void Flush(FileDomain& parts) VX_REQUIRES(lock_);
    void InitDomain(FileDomain& parts) VX_REQUIRES(lock_);
    void LoadDomain(PersistDomain domain, const Bytes* data) VX_EXCLUDES(lock_);
    void LoadDomainFile(FileDomain& parts, const Reading& reading) VX_REQUIRES(lock_);
    void LoadDomainImage(FileDomain& parts, const Bytes& image) VX_REQUIRES(lock_);

    // Files that cannot be used.
    FileTrouble KeepForDiagnosis(const char* file, const std::string& reason, bool unread) VX_REQUIRES(lock_);
    /// Gives the file its diagnosis name, and answers it.
    std::string SetAside(const std::string& file) VX_REQUIRES(lock_);
    /// Before anything takes the place of a file that is held. Throws when it cannot be set aside.
    void ReleaseHeld(std::optional<FileTrouble>& trouble) VX_REQUIRES(lock_);
    bool RetryHeld(FileDomain& parts) noexcept VX_REQUIRES(lock_);

    /// Reads a file once; what fails is in the answer.
    Reading Read(const std::string& file) const VX_REQUIRES(lock_);

    void LoadJob(const std::string& name, const std::function<Bytes()>& read) VX_REQUIRES(lock_);
    void LoadJobImage(const Bytes& image) VX_REQUIRES(lock_);
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
    Vx::Event<PersistDomain, const std::exception&> autoSaveFailedEvent_;
    std::string defaultJob_ VX_GUARDED_BY(lock_);
    std::string loadedJob_ VX_GUARDED_BY(lock_);
    bool jobModified_ VX_GUARDED_BY(lock_) = false;
    Persist::Job liveJob_;
    Persist::Job job_;
    Persist::Global global_;
    Persist::Workspace workspace_;
    FileDomain globalDomain_ VX_GUARDED_BY(lock_);
    FileDomain workspaceDomain_ VX_GUARDED_BY(lock_);
    std::optional<FileTrouble> recordTrouble_ VX_GUARDED_BY(lock_);
    bool recordUnwritten_ VX_GUARDED_BY(lock_) = false;
    bool following_ VX_GUARDED_BY(lock_) = false;
    std::map<PersistDomain, std::set<std::string>> toldItems_ VX_GUARDED_BY(lock_);
    std::map<std::string, ScopedStore> scopedStores_ VX_GUARDED_BY(lock_);
};

}  // namespace VxCommon
