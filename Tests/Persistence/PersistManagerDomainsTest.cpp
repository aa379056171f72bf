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
}

TEST_P(DomainTest, ASaveThatFailsLeavesTheFileAndTheNextChangeIsSaved)
{
    Init();
    EXPECT_THAT(journal_, ElementsAre("A: " + Call("Init")));
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
    Change(a_, "3");
    time_.Advance(250ms);
    EXPECT_EQ(File(), (Map{{"/A", "3"}}));
}

TEST_P(DomainTest, LoadFallsBackToDefaultsWhateverFails)
{
    const std::string& file = file_;
    const std::string copy = file + ".d01";
    const std::string text = global_ ? "GLOBAL" : "workspace";
    const std::string ioText(Nucleo::StatusText(Nucleo::ERROR_IO));
    const std::string handlerFailed = Call("Load") + " for A failed -- 1 total failures.";
    const Bytes good = Image({{"/A", "stored"}});
    const Bytes cut(good.begin(), good.begin() + 512);
    const auto cannot = [&](const std::string& what) { return "cannot be " + what + ": " + ioText + "."; };
    struct Case
    {
        Bytes stored;
        std::string reason;  // Empty: it loads.
        std::function<void()> arrange = [] {};
        std::string withoutCopy = {};  // Why no copy is kept, if so.
        std::string thrown = "nothing";
    };
    const Case cases[] = {
        {good, ""},
        {{}, handlerFailed},
        {cut, std::string(Nucleo::StatusText(Nucleo::ERROR_END)) + " (ERROR_END, -989)"},
        {good, handlerFailed, [&] { a_.on[Call("Load")] = Fails(-990, "100%s"); }},
        {good, "File '" + file + "' " + cannot("read"),
         [&] { files_.FailNext(FileOp::Download, file, 1, Nucleo::ERROR_IO); }},
        {{},
         handlerFailed,
         [&] { files_.FailNext(FileOp::Upload, copy, 1, Nucleo::ERROR_IO); },
         "File '" + copy + "' " + cannot("written")},
        {{},
         handlerFailed,
         [&] { files_.BeforeNext(FileOp::Exists, file, 4, [&] { files_.Remove(file); }); },
         "File '" + file + "' does not exist."},
        {{},
         handlerFailed,
         [&] { a_.on[Call("Init")] = Fails(-991, "no defaults"); },
         "",
         "-991 " + Call("Init") + " for A failed -- 1 total failures."},
        {{},
         handlerFailed,
         [&] { files_.FailNext(FileOp::Upload, file, 1, Nucleo::ERROR_IO); },
         "",
         "-993 File '" + file + "' " + cannot("written")},
    };
    for (const auto& c : cases) {
        a_.on.clear();
        files_.Remove(copy);
        files_.Put(file, c.stored);
        Start();
        c.arrange();
        const VxTestSupport::ScopedLogCapture log;
        EXPECT_EQ(MessageThrown([&] { Load(); }), c.thrown);
        files_.ClearFaults();
        if (c.reason.empty()) {
            EXPECT_THAT(LogOf(log, managerTag), IsEmpty());
            EXPECT_EQ(a_.values[domain_], "stored");
            EXPECT_FALSE(files_.Get(copy));
            continue;
        }
        Journal lines{"E Load " + text + " failed (" + c.reason + ")."};
        if (c.withoutCopy.empty()) {
            EXPECT_EQ(files_.Get(copy), c.stored);
        } else {
            lines.push_back("E File '" + file + "' could not be saved for diagnosis (" + c.withoutCopy + ").");
        }
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

TEST_P(DomainTest, NoDamageToTheFileBlocksTheStart)
{
    const Bytes good = Image({{"/A", "stored"}, {"/Laser/N", "named"}});
    ForEachDamage(good, 0xff, [&](const Bytes& bytes, const std::string& what) {
        files_.Put(file_, bytes);
        ASSERT_EQ(MessageThrown([&] { Load(); }), "nothing") << what;
        ASSERT_TRUE(files_.Get(file_)) << what;
    });
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
}

TEST_F(ManagerTest, DestructionWritesWhatIsPendingAndSwallowsItsFailure)
{
    VxTestSupport::ScopedLogCapture log;
    manager_->NotifyChange(a_, PersistDomain::GLOBAL);  // Nobody listens before Init.
    manager_.reset();
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
        {"", "-988 PersistManager::LoadPersistRecord", ""},
    };
    for (const auto& c : cases) {
        files_.Put(recordFile, std::string_view(c.text));
        EXPECT_EQ(Thrown([&] { manager_->Init(); }), c.thrown) << c.text;
        EXPECT_EQ(manager_->DefaultJob(), c.defaultJob);
    }
    ForEachDamage(good, 0x15, [&](const Bytes& bytes, const std::string&) {
        files_.Put(recordFile, bytes);
        PlaceThrown([&] { manager_->Init(); });  // Any other exception ends the test.
    });
    files_.Put(recordFile, good);
    files_.FailNext(FileOp::Download, recordFile, 1, Nucleo::ERROR_IO);
    EXPECT_EQ(Thrown([&] { manager_->Init(); }), "-993 NodeStorage::ReadFile");
    manager_->Init();
    EXPECT_EQ(manager_->DefaultJob(), name);
    manager_->NotifyChange(a_, PersistDomain::GLOBAL);
    EXPECT_THAT(journal_, ElementsAre("changed GLOBAL"));  // Once, after all these calls.

    files_.Remove(recordFile);
    files_.FailNext(FileOp::Upload, recordFile, 1, Nucleo::ERROR_DISK_FULL);
    Restart();
    EXPECT_THROW(manager_->Init(), Vx::Exception);
    manager_->Init();
    EXPECT_TRUE(files_.Get(recordFile));
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
    const VxTestSupport::ScopedLogCapture log;
    journal_.clear();
    manager_->NotifyChange(a_, static_cast<PersistDomain>(7));
    manager_->NotifyLoad(a_, static_cast<PersistDomain>(7));
    EXPECT_THAT(journal_, ElementsAre("changed UNKNOWN"));
    EXPECT_THAT(LogOf(log), IsEmpty());
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
