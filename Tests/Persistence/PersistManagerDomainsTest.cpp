#include <Nucleo/Status.h>
#include <Tests/Persistence/ManagerFixture.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace VxCommon
{
namespace
{

class DomainTest : public TimedManagerFixture, public testing::WithParamInterface<const char*>
{
protected:
    DomainTest() { Start(); }

    std::string Call(const char* verb) const { return std::string(verb) + " " + name_; }
    void Init() { global_ ? manager_->InitGlobal() : manager_->InitWorkspace(); }
    void Save() { global_ ? manager_->SaveGlobal() : manager_->SaveWorkspace(); }
    void Flush() { global_ ? manager_->FlushGlobal() : manager_->FlushWorkspace(); }
    void Load(const Bytes* data = nullptr) { global_ ? manager_->LoadGlobal(data) : manager_->LoadWorkspace(data); }
    void Change(FakeHandler& handler, const std::string& value)
    {
        handler.values[domain_] = value;
        manager_->NotifyChange(handler, domain_);
    }
    std::size_t Writes() const { return files_.Writes(file_); }
    Map File() const { return Items(*files_.Get(file_)); }

    const std::string name_ = GetParam();
    const bool global_ = name_ == "GLOBAL";
    const PersistDomain domain_ = global_ ? PersistDomain::GLOBAL : PersistDomain::WORKSPACE;
    const std::string file_ = global_ ? "Global.tar" : "Workspace.vpws";
};
INSTANTIATE_TEST_SUITE_P(Domains, DomainTest, testing::Values("GLOBAL", "WORKSPACE"),
                         [](const auto& domain) { return std::string(domain.param); });

TEST_P(DomainTest, ABurstOfChangesIsWrittenOnceTheDelayAfterTheLast)
{
    const VxTestSupport::ScopedLogCapture log;
    for (const char* value : {"1", "2", "3"}) {
        time_.Advance(100ms);
        Change(a_, value);
        EXPECT_TRUE(manager_->HasUnsavedChanges(domain_));
    }
    time_.Advance(249'999us);
    EXPECT_EQ(Writes(), 0U);
    time_.Advance(1us);
    EXPECT_EQ(Writes(), 1U);
    EXPECT_EQ(File(), (Map{{"/A", "3"}}));
    EXPECT_FALSE(manager_->HasUnsavedChanges(domain_));
    // A flush writes at once, and once more after the delay.
    manager_->NotifyChange(a_, domain_);
    Flush();
    EXPECT_EQ(Writes(), 2U);
    time_.Advance(1h);
    EXPECT_EQ(Writes(), 3U);
    EXPECT_EQ(files_.Writes(), 4U);  // With the record's.
    EXPECT_EQ(time_.Pending(), 0U);
    const std::string changed = Call("changed");
    const std::string save = "A: " + Call("Save");
    const std::string persisted = Call("persisted");
    EXPECT_THAT(journal_,
                ElementsAre(changed, changed, changed, save, persisted, changed, save, persisted, save, persisted));
    const std::string promise = "W Saving " + name_ + " domain in 250000 us...";
    const std::string automatic = "W Automatically saving " + name_ + " domain...";
    EXPECT_EQ(LogOf(log, managerTag), Journal({promise, promise, promise, automatic, promise, automatic}));
}

TEST_P(DomainTest, ANamedHandlerLivesOnItsOwnNotifications)
{
    VxTestSupport::ScopedLogCapture log;
    Change(n_, "first");
    Persist::Record& record =
        global_ ? static_cast<Persist::Record&>(manager_->GetGlobalInstance()) : manager_->GetWorkspaceInstance();
    EXPECT_EQ(Items(record.GetStore()), (Map{{"/Laser/N", "first"}}));  // At once.
    EXPECT_THAT(journal_, ElementsAre(Call("changed"), "N: " + Call("Save")));
    EXPECT_EQ(LogOf(log, managerTag).front(), "I " + name_ + " domain changed (scope = Laser)!");
    time_.Advance(250ms);
    EXPECT_EQ(File(), (Map{{"/A", ""}, {"/Laser/N", "first"}}));

    // After a restart it gets its state when it asks for it.
    n_.values.clear();
    Start();
    Load();
    EXPECT_THAT(journal_, ElementsAre("A: " + Call("Load")));
    log.Clear();
    manager_->NotifyLoad(n_, domain_);
    EXPECT_EQ(n_.values[domain_], "first");
    EXPECT_EQ(LogOf(log, managerTag), Journal({"I " + name_ + " domain load (scope = Laser)!"}));
    EXPECT_FALSE(manager_->ListRegistered()[1].load.contains(domain_));

    // A save that fails reaches the notifier and promises nothing; the change stays pending.
    n_.on[Call("Save")] = Fails(-990, "full");
    EXPECT_EQ(MessageThrown([&] { Change(n_, "second"); }),
              "-990 " + Call("Save") + " for N failed -- 1 total failures.");
    EXPECT_EQ(time_.Pending(), 0U);
    EXPECT_FALSE(manager_->HasUnsavedChanges(domain_));
    EXPECT_TRUE(manager_->ListRegistered()[1].changed.contains(domain_));

    // The next automatic save tries it again, once. It holds up neither others nor the file.
    Change(a_, "other");
    log.Clear();
    journal_.clear();
    time_.Advance(1h);
    EXPECT_EQ(log.Count("Save " + name_ + " for N failed (full)"), 2);  // In both logs.
    EXPECT_THAT(journal_, ElementsAre("N: " + Call("Save"), "A: " + Call("Save"), Call("persisted")));
    EXPECT_EQ(File(), (Map{{"/A", "other"}, {"/Laser/N", "first"}}));
    n_.on.clear();
    manager_->Shutdown();  // Nothing else has changed.
    EXPECT_EQ(File(), (Map{{"/A", "other"}, {"/Laser/N", "second"}}));
}

TEST_P(DomainTest, AChangeThatANamedHandlerNotifiesFromItsOwnSaveIsWritten)
{
    for (const bool shutdown : {false, true}) {
        n_.on[Call("Save")] = [&] {
            n_.on.clear();
            journal_.clear();
            n_.values[domain_] = "second";
            manager_->NotifyChange(n_, domain_);
            n_.values[domain_] = "first";  // What this save writes.
        };
        Change(n_, "first");
        n_.values[domain_] = "second";
        shutdown ? manager_->Shutdown() : time_.Advance(250ms);
        EXPECT_EQ(File().at("/Laser/N"), "second");
        EXPECT_EQ(time_.Pending(), 0U);
        journal_.clear();
        shutdown ? manager_->Shutdown() : time_.Advance(1h);
        EXPECT_THAT(journal_, IsEmpty());
    }
    // One that does so in every save is saved each time after the delay.
    n_.on[Call("Save")] = [&] { manager_->NotifyChange(n_, domain_); };
    manager_->NotifyChange(n_, domain_);
    const std::size_t writes = Writes();
    time_.Advance(1s);
    EXPECT_EQ(Writes() - writes, 4U);
    n_.on.clear();  // The manager that ends saves once more.
}

TEST_P(DomainTest, ASaveThatFailsLeavesTheFileAndTheNextChangeIsSaved)
{
    Init();
    EXPECT_THAT(journal_, ElementsAre("A: " + Call("Init")));
    Journal failures;
    const auto listener = manager_->AutoSaveFailedEvent().Subscribe([&](PersistDomain domain, const auto& failure) {
        failures.push_back(PersistDomain_Name(domain) + " " + std::to_string(Vx::StatusOf(failure)));
    });
    a_.on[Call("Save")] = Fails(-990, "busy");
    EXPECT_EQ(MessageThrown([&] { Save(); }), "-990 " + Call("Save") + " for A failed -- 1 total failures.");
    Change(a_, "1");
    time_.Advance(250ms);
    a_.on.clear();
    files_.FailNext(FileOp::Upload, file_, 1, Nucleo::ERROR_DISK_FULL);
    Change(a_, "2");
    time_.Advance(250ms);
    EXPECT_EQ(File(), (Map{{"/A", "factory"}}));
    EXPECT_THAT(journal_, testing::Not(testing::Contains(Call("persisted"))));
    a_.on[Call("Save")] = [] { throw 7; };
    Change(a_, "2");
    time_.Advance(250ms);
    a_.on.clear();
    // A listener that fails after the file was written is no failed save.
    const auto failing = manager_->DomainPersistedEvent().Subscribe([](auto) { throw std::runtime_error("late"); });
    Change(a_, "3");
    time_.Advance(250ms);
    EXPECT_EQ(File(), (Map{{"/A", "3"}}));
    EXPECT_THAT(failures, ElementsAre(name_ + " -990", name_ + " -992", name_ + " -1000"));
}

TEST_P(DomainTest, LoadFallsBackToDefaultsWhateverFails)
{
    const std::string copy = file_ + ".d01";
    const std::string text = global_ ? "GLOBAL" : "workspace";
    const std::string io = " cannot be written: " + std::string(Nucleo::StatusText(Nucleo::ERROR_IO)) + ".";
    const std::string unsupported(Nucleo::StatusText(Nucleo::ERROR_UNSUPPORTED));
    const Bytes stored = Image({{"/A", "stored"}});
    struct Case
    {
        std::function<void()> arrange;
        Journal lines = {};  // Between the failure and the fallback.
        std::string thrown = "nothing";
        bool kept = true;
    };
    const Case cases[] = {
        {[] {}},
        // A storage without a rename: what is damaged and cannot be copied gives way.
        {[&] {
             files_.FailNext(FileOp::Upload, copy, 1, Nucleo::ERROR_IO);
             files_.FailNext(FileOp::Move, file_, 1, Nucleo::ERROR_UNSUPPORTED);
         },
         {"W File '" + file_ + "' could not be copied for diagnosis (File '" + copy + "'" + io + ").",
          "E File '" + file_ + "' could not be saved for diagnosis (File '" + file_ +
              "' cannot be kept for diagnosis: " + unsupported + ".)."},
         "nothing",
         false},
        {[&] { a_.on[Call("Init")] = Fails(-991, "no defaults"); },
         {},
         "-991 " + Call("Init") + " for A failed -- 1 total failures."},
        {[&] { files_.FailNext(FileOp::Upload, file_, 1, Nucleo::ERROR_IO); }, {}, "-993 File '" + file_ + "'" + io},
    };
    for (const auto& c : cases) {
        files_.Remove(copy);
        files_.Put(file_, stored);
        Start();
        a_.on = {{Call("Load"), Fails(-990, "100%s")}};
        c.arrange();
        const VxTestSupport::ScopedLogCapture log;
        EXPECT_EQ(MessageThrown([&] { Load(); }), c.thrown);
        files_.ClearFaults();
        EXPECT_EQ(files_.Get(copy).has_value(), c.kept);
        EXPECT_EQ(files_.Get(copy).value_or(stored), stored);
        const auto troubles = manager_->FileTroubles();
        EXPECT_EQ(troubles.at(0).keptAs, c.kept ? copy : "");
        EXPECT_FALSE(troubles.at(0).unread || troubles.at(0).held);
        Journal lines{"E Load " + text + " failed (" + Call("Load") + " for A failed -- 1 total failures.)."};
        lines.insert(lines.end(), c.lines.begin(), c.lines.end());
        lines.push_back("W Attempting to fallback to re-initailize " + text + (global_ ? "..." : " ..."));
        if (c.thrown == "nothing") {
            lines.push_back("W Fallback to re-initialize " + text + " succeeded.");
            EXPECT_EQ(File(), (Map{{"/A", "factory"}}));
            EXPECT_EQ(a_.values[domain_], "factory");
        }
        Journal found = LogOf(log, managerTag);
        std::erase_if(found, [](const std::string& line) { return line.starts_with("!"); });  // The controller's.
        EXPECT_EQ(found, lines);
        EXPECT_THAT(journal_, testing::Not(testing::Contains(Call("persisted"))));
    }
}

TEST_P(DomainTest, AFileThatCannotBeReadIsTriedAgainThenSetAsideOrHeld)
{
    const Bytes good = Image({{"/A", "stored"}});
    const std::string copy = file_ + ".d01";
    const auto failReads = [&](FileOp op, int count, Nucleo::Status status) {
        for (int nth = 1; nth <= count; ++nth) {
            files_.FailNext(op, file_, nth, status);
        }
    };
    const auto begin = [&] {
        RemoveFiles();
        Start();
        files_.Put(file_, good);
        files_.Mark();
    };
    // A failure that passes leaves no trace but in the log.
    for (const FileOp op : {FileOp::Download, FileOp::Size}) {
        begin();
        const auto before = time_.Now();
        failReads(op, 3, Nucleo::ERROR_IO);
        Load();
        EXPECT_EQ(a_.values[domain_], "stored");
        EXPECT_EQ(time_.Now() - before, 750ms);
        EXPECT_TRUE(files_.Unchanged());
        EXPECT_THAT(manager_->FileTroubles(), IsEmpty());
    }
    // One that stays: the file is moved, which needs neither room nor reading. Access is denied for good at once.
    for (const auto& [status, attempts] : {std::pair{Nucleo::ERROR_TOO_MANY_FILES, 4}, {Nucleo::ERROR_ACCESS, 1}}) {
        begin();
        failReads(FileOp::Download, 4, status);
        const std::size_t reads = files_.Calls(FileOp::Download, file_);
        Load();
        EXPECT_EQ(files_.Calls(FileOp::Download, file_) - reads, static_cast<std::size_t>(attempts));
        EXPECT_EQ(files_.Get(copy), good);
        EXPECT_EQ(File(), (Map{{"/A", "factory"}}));
        const auto trouble = manager_->FileTroubles().at(0);
        EXPECT_EQ(trouble.file + " " + trouble.keptAs, file_ + " " + copy);
        EXPECT_TRUE(trouble.unread && !trouble.held);
        EXPECT_THAT(trouble.reason, testing::HasSubstr(Nucleo::StatusText(status)));
    }
    // One that cannot be moved either stays, whatever is saved, until it can. Then a save is due, changed or not.
    for (const auto& [status, changed] : {std::pair{Nucleo::ERROR_IO, true}, {Nucleo::ERROR_UNSUPPORTED, false}}) {
        begin();
        failReads(FileOp::Download, 100, Nucleo::ERROR_IO);
        failReads(FileOp::Move, 100, status);
        Load();
        EXPECT_EQ(a_.values[domain_], "factory");
        EXPECT_TRUE(manager_->FileTroubles().at(0).held);
        if (changed) {
            Change(a_, "changed");
            time_.Advance(250ms);
            EXPECT_THROW(manager_->Shutdown(), Vx::Exception);
        }
        EXPECT_THROW(Save(), Vx::Exception);
        EXPECT_THROW(Init(), Vx::Exception);
        EXPECT_FALSE(manager_->RetryFiles());
        EXPECT_EQ(manager_->HasUnsavedChanges(domain_), changed);
        EXPECT_TRUE(files_.Unchanged());
        files_.ClearFaults();
        const VxTestSupport::ScopedLogCapture log;
        a_.values[domain_] = "last";
        EXPECT_TRUE(manager_->RetryFiles());
        EXPECT_TRUE(manager_->HasUnsavedChanges(domain_));
        EXPECT_THAT(LogOf(log), testing::Contains(testing::StartsWith("!Start: W The file " + file_)));
        EXPECT_EQ(files_.Get(copy), good);
        time_.Advance(250ms);
        EXPECT_EQ(File(), (Map{{"/A", "last"}}));
        EXPECT_FALSE(manager_->FileTroubles().at(0).held);
        EXPECT_TRUE(manager_->RetryFiles());
        Load();
        EXPECT_THAT(manager_->FileTroubles(), IsEmpty());
    }
    // Somebody takes the file away.
    begin();
    failReads(FileOp::Download, 4, Nucleo::ERROR_IO);
    failReads(FileOp::Move, 1, Nucleo::ERROR_READ_ONLY);
    Load();
    files_.Remove(file_);
    Save();
    EXPECT_THAT(manager_->FileTroubles(), IsEmpty());
}

TEST_P(DomainTest, ItemsThatNoImageCanKeepAreLeftOutAndToldOfOnce)
{
    IPersistStore& store =
        global_ ? manager_->GetGlobalInstance().GetStore() : manager_->GetWorkspaceInstance().GetStore();
    const std::string longPath = "/" + std::string(512, 'k');
    const std::string nulPath("/a\0b", 4);
    for (const std::string& path : {std::string("/a/"), longPath, nulPath}) {
        store.Write(path, nullptr, 0);
    }
    VxTestSupport::ScopedLogCapture log;
    const auto told = [&] {
        Save();
        Journal lines = log.Texts("Save domain");
        log.Clear();
        return lines;
    };
    const std::string after = "' of " + name_ + " is not saved: no image can keep its path.";
    EXPECT_THAT(told(), ElementsAre("E The item '/a\\x00b" + after, "E The item '/a/" + after,
                                    testing::StartsWith("E The item '/kkk")));
    EXPECT_EQ(File(), (Map{{"/A", ""}}));
    EXPECT_THAT(manager_->UnkeptItems(domain_), ElementsAre(nulPath, "/a/", longPath));
    EXPECT_THAT(told(), IsEmpty());
    store.Delete("/a/");
    EXPECT_THAT(told(), IsEmpty());
    store.Write("/a/", nullptr, 0);
    EXPECT_THAT(told(), ElementsAre("E The item '/a/" + after));
}

TEST_P(DomainTest, LoadWithoutAFileInitialisesAndLoadOfGivenDataHasNoFallback)
{
    Load();
    EXPECT_THAT(journal_, ElementsAre("A: " + Call("Init")));
    EXPECT_EQ(File(), (Map{{"/A", "factory"}}));

    files_.Mark();
    const Bytes given = Image({{"/A", "given"}});
    Load(&given);
    EXPECT_EQ(a_.values[domain_], "given");
    const Bytes cut(given.begin(), given.begin() + 512);
    const VxTestSupport::ScopedLogCapture log;
    EXPECT_EQ(Thrown([&] { Load(&cut); }), "-989 PersistUtils::DearchiveStore");
    Save();  // The store has kept what it held.
    EXPECT_EQ(File(), (Map{{"/A", "given"}}));
    a_.on[Call("Load")] = Fails(-990, "no");
    EXPECT_EQ(Thrown([&] { Load(&given); }), "-990 PersistController::LoadDomain");
    EXPECT_THAT(log.Texts(managerTag), IsEmpty());
}

class ManagerTest : public TimedManagerFixture
{};

TEST_F(ManagerTest, ShutdownWritesWhatIsPendingAndNothingElse)
{
    Start();
    manager_->Shutdown();
    EXPECT_EQ(files_.Names(), Journal({recordFile}));
    const auto change = [&] {
        manager_->NotifyChange(a_, PersistDomain::WORKSPACE);
        time_.Advance(100ms);
        manager_->NotifyChange(a_, PersistDomain::GLOBAL);
    };
    change();
    const VxTestSupport::ScopedLogCapture log;
    manager_->Shutdown();
    EXPECT_EQ(LogOf(log, managerTag),
              Journal({"I Saving GLOBAL as part of shutdown...", "I Saving WORKSPACE as part of shutdown..."}));
    EXPECT_EQ(time_.Pending(), 0U);
    manager_->Shutdown();
    EXPECT_EQ(files_.Writes(), 3U);

    // Each domain has a timer of its own.
    change();
    time_.Advance(150ms);
    EXPECT_EQ(files_.Writes("Workspace.vpws"), 2U);
    EXPECT_EQ(files_.Writes("Global.tar"), 1U);
    EXPECT_EQ(Items(manager_->CurrentWorkspace()), (Map{{"/A", ""}}));

    // The first failure, of whatever type, comes after the other domain's save.
    change();
    a_.on["Save GLOBAL"] = [] { throw 7; };
    EXPECT_THROW(manager_->Shutdown(), int);
    EXPECT_EQ(files_.Writes("Workspace.vpws"), 3U);
    a_.on.clear();
}

TEST_F(ManagerTest, DestructionWritesWhatIsPendingAndSwallowsItsFailure)
{
    VxTestSupport::ScopedLogCapture log;
    manager_->NotifyChange(a_, PersistDomain::GLOBAL);  // Nobody listens before Init.
    manager_->NotifyChange(n_, PersistDomain::GLOBAL);
    manager_.reset();
    EXPECT_THAT(files_.Names(), IsEmpty()) << "a domain that was not begun is not written";
    PersistManager(system_, updatable_).SaveGlobal();
    EXPECT_EQ(LogOf(log, managerTag), Journal({"I Destroying PersistManager.", "I Constructing PersistManager.",
                                               "I Destroying PersistManager."}));
    Start();
    manager_->NotifyChange(a_, PersistDomain::GLOBAL);
    manager_->NotifyChange(a_, PersistDomain::WORKSPACE);
    files_.FailNext(FileOp::Upload, "Global.tar", 1, Nucleo::ERROR_IO);
    log.Clear();
    manager_.reset();
    EXPECT_EQ(LogOf(log, managerTag),
              Journal({"I Destroying PersistManager.", "I Saving GLOBAL as part of shutdown...",
                       "I Saving WORKSPACE as part of shutdown...", "E Exception thrown in destructor"}));
    EXPECT_THAT(log.Texts(managerTag), testing::Contains(testing::HasSubstr("VxCommon::NodeStorage::WriteFile")));
    EXPECT_EQ(Items(*files_.Get("Workspace.vpws")), (Map{{"/A", ""}}));
    EXPECT_EQ(time_.Pending(), 0U);
}

TEST_F(ManagerTest, InitReadsOrCreatesTheRecordAndMayBeTriedAgain)
{
    const VxTestSupport::ScopedLogCapture log;
    manager_->Init();
    EXPECT_EQ(LogOf(log, managerTag), Journal({"W No PersistRecord.xml exists, creating...",
                                               "I Create saveGlobalTimer...", "I Create saveWorkspaceTimer..."}));
    const std::string name = "a&' \xc3\xa4 ";  // With characters that XML escapes.
    files_.Put(name + ".vpjob", "");
    files_.Put("b.vpjob", "");
    manager_->SetDefaultJob(name);
    const Bytes good = *files_.Get(recordFile);
    Start();
    EXPECT_EQ(manager_->DefaultJob(), name);

    const struct
    {
        const char* text;
        const char* thrown;
        const char* defaultJob;
    } cases[] = {
        {"<PersistRecord><DefaultJob>b</DefaultJob></PersistRecord>", "nothing", "b"},
        {"<?xml version=\"1.0\"?><PersistRecord><Other/><DefaultJob/></PersistRecord>", "nothing", ""},
        {"<PersistRecord/>", "-999 PersistManager::LoadPersistRecord", ""},
        {"<PersistRecord>", "-988 PersistManager::LoadPersistRecord", ""},
    };
    for (const auto& c : cases) {
        files_.Put(recordFile, std::string_view(c.text));
        EXPECT_EQ(Thrown([&] { manager_->Init(); }), c.thrown) << c.text;
        EXPECT_EQ(manager_->DefaultJob(), c.defaultJob);
    }
    files_.Put(recordFile, good);
    manager_->Init();
    EXPECT_EQ(manager_->DefaultJob(), name);
    manager_->NotifyChange(a_, PersistDomain::GLOBAL);
    EXPECT_THAT(journal_, ElementsAre("changed GLOBAL"));  // Once, after all these calls.
}

TEST_F(ManagerTest, ARecordWithoutRoomIsWrittenWithALaterSaveOrWhenAsked)
{
    const std::function<void()> later[] = {[&] { manager_->SaveGlobal(); }, [&] { manager_->SaveJob("a"); },
                                           [&] { EXPECT_TRUE(manager_->RetryFiles()); }};
    for (const auto& act : later) {
        RemoveFiles();
        files_.FailNext(FileOp::Upload, recordFile, 1, Nucleo::ERROR_DISK_FULL);
        files_.FailNext(FileOp::Upload, recordFile, 2, Nucleo::ERROR_DISK_FULL);
        Start();
        EXPECT_EQ(manager_->DefaultJob(), "");
        EXPECT_FALSE(manager_->RetryFiles());
        EXPECT_TRUE(manager_->IsRecordUnwritten());
        act();
        EXPECT_TRUE(files_.Get(recordFile));
        EXPECT_FALSE(manager_->IsRecordUnwritten());
    }
    // There, and not to be used: set aside, or held when that fails.
    const std::string copy = std::string(recordFile) + ".d01";
    const Vx::Exception failure(VX_HERE, Nucleo::ERROR_ACCESS);
    for (const bool held : {false, true}) {
        RemoveFiles();
        files_.Put(recordFile, "junk");
        files_.Put("a.vpjob", "");
        Restart();
        if (held) {
            files_.FailNext(FileOp::Move, recordFile, 1, Nucleo::ERROR_READ_ONLY);
            files_.FailNext(FileOp::Move, recordFile, 2, Nucleo::ERROR_READ_ONLY);
            files_.FailNext(FileOp::Move, recordFile, 3, Nucleo::ERROR_READ_ONLY);
        }
        manager_->InitWithoutRecord(failure);
        EXPECT_TRUE(manager_->FileTroubles().at(0).unread);
        EXPECT_EQ(manager_->FileTroubles().at(0).held, held);
        EXPECT_EQ(Text(copy), held ? "(missing)" : "junk");
        manager_->NotifyChange(a_, PersistDomain::GLOBAL);
        time_.Advance(250ms);
        EXPECT_TRUE(files_.Get("Global.tar"));  // It is followed.
        if (held) {
            EXPECT_EQ(Thrown([&] { manager_->SetDefaultJob("a"); }), "-991 NodeStorage::MoveForDiagnosis");
            EXPECT_EQ(Text(recordFile), "junk");
            files_.FailNext(FileOp::Upload, recordFile, 1, Nucleo::ERROR_DISK_FULL);
            EXPECT_FALSE(manager_->RetryFiles());
            EXPECT_TRUE(manager_->RetryFiles());
            EXPECT_EQ(Text(copy), "junk");
        }
        manager_->SetDefaultJob("a");
        Start();
        EXPECT_EQ(manager_->DefaultJob(), "a");
        EXPECT_THAT(manager_->FileTroubles(), IsEmpty());
    }
}

TEST_F(ManagerTest, ViewsStayValidThroughEveryLoad)
{
    Start();
    EXPECT_EQ(Thrown([&] { manager_->GetScopedStore("unknown"); }), "-999 PersistManager::GetScopedStore");
    void* handle = manager_->RegisterHandler(n_, "Late");
    PersistManager::ScopedStore& views = manager_->GetScopedStore("Late");
    const Bytes image = Image({{"/Late/x", "1"}, {"/A", ""}});
    manager_->LoadGlobal(&image);
    manager_->LoadWorkspace(&image);
    manager_->LoadLiveJob(image);
    for (const ScopedPersistStore& view : {views.global, views.workspace, views.job}) {
        EXPECT_EQ(view.Read("/x"), ToBytes("1"));
    }
    manager_->LoadJobFromFactory();
    EXPECT_FALSE(views.job.Exists("/x"));
    manager_->UnregisterHandler(handle);
    manager_->RegisterHandler(n_, "Late");
    EXPECT_EQ(&manager_->GetScopedStore("Late"), &views);
    manager_->UnregisterHandler(&n_);  // An unknown handle is ignored.
    EXPECT_EQ(manager_->ListRegistered().size(), 3U);
    views.name = "kept";  // An entry is made once.
    manager_->UnregisterHandler(manager_->RegisterHandler(n_, "Late"));
    EXPECT_EQ(views.name, "kept");
    const VxTestSupport::ScopedLogCapture log;
    journal_.clear();
    manager_->NotifyChange(a_, static_cast<PersistDomain>(7));
    manager_->NotifyLoad(a_, static_cast<PersistDomain>(7));
    EXPECT_THAT(journal_, ElementsAre("changed UNKNOWN"));
    EXPECT_THAT(LogOf(log), IsEmpty());
}

TEST_F(ManagerTest, ALoadIsForTheHandlerThatAsksAndFromItsOwnView)
{
    Start();
    FakeHandler namesake("M", journal_);
    FakeHandler unnamed("B", journal_);
    FakeHandler unknown("U", journal_);
    manager_->RegisterHandler(namesake, "Laser");
    manager_->RegisterHandler(unnamed, "");
    const Bytes image = Image({{"/A", "whole"}, {"/B", ""}, {"/Laser/N", "view"}});
    for (const PersistDomain domain : {PersistDomain::GLOBAL, PersistDomain::WORKSPACE, PersistDomain::JOB}) {
        manager_->LoadGlobal(&image);
        manager_->LoadWorkspace(&image);
        manager_->LoadLiveJob(image);
        const std::string name = PersistDomain_Name(domain);
        a_.values[domain].clear();
        journal_.clear();
        manager_->NotifyLoad(a_, domain);
        manager_->NotifyLoad(n_, domain);
        manager_->NotifyLoad(unknown, domain);
        EXPECT_THAT(journal_, ElementsAre("A: Load " + name, "N: Load " + name));
        EXPECT_EQ(a_.values[domain] + n_.values[domain], "wholeview");
        journal_.clear();
        manager_->NotifyChange(n_, domain);  // Its namesake has not changed.
        EXPECT_THAT(journal_, testing::Not(testing::Contains("M: Save " + name)));
    }
    manager_.reset();  // Before the handlers.
}

TEST_F(ManagerTest, FilesOfTheHostAndImagesUnderOtherNames)
{
    manager_->WriteFile("note.txt", ToBytes("text"));
    EXPECT_EQ(manager_->FileData("note.txt"), ToBytes("text"));
    EXPECT_EQ(manager_->FileSize("note.txt"), 4U);
    manager_->WriteGlobal("g.tar", ToBytes("g"));
    manager_->WriteWorkspace("w.tar", ToBytes("w"));
    EXPECT_EQ(Text("g.tar") + Text("w.tar"), "gw");
    manager_->DeleteFile("note.txt");
    EXPECT_FALSE(manager_->FileExists("note.txt"));
    EXPECT_THAT(manager_->ListFiles("tar"), ElementsAre("g.tar", "w.tar"));
}

}  // namespace
}  // namespace VxCommon
