#include <Nucleo/Status.h>
#include <Tests/Persistence/ManagerFixture.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace VxCommon
{
namespace
{

constexpr PersistDomain JOB = PersistDomain::JOB;
using Call = std::function<void()>;

class JobsTest : public TimedManagerFixture
{
protected:
    JobsTest() { StartWithJobs(); }

    static Bytes JobImage(const std::string& value) { return Image({{"/A", value}}); }

    /// Jobs a, b and c are stored; a is loaded and the default job.
    void StartWithJobs()
    {
        a_.on.clear();
        RemoveFiles();
        for (const char* name : {"a", "b", "c"}) {
            files_.Put(std::string(name) + ".vpjob", JobImage(name));
        }
        Start();
        manager_->SetDefaultJob("a");
        manager_->LoadJob("a");
        journal_.clear();
        files_.Mark();
    }

    /// Tries to load the job t, which fails with `status`: the manager's lines, then the events, then the state.
    Journal LoadFails(Status status)
    {
        const std::string number = std::to_string(status);
        journal_.clear();
        const VxTestSupport::ScopedLogCapture log;
        EXPECT_EQ(MessageThrown([&] { manager_->LoadJob("t"); }), number + " Failed to load job 't'. (" + number + ")");
        Journal found = LogOf(log, managerTag);
        found.insert(found.end(), journal_.begin(), journal_.end());
        found.push_back(State());
        std::erase_if(found, [](const std::string& line) {
            return line.find(" domain: ") != line.npos || line.starts_with("A: ");
        });
        return found;
    }
};

TEST_F(JobsTest, EachOperationRaisesItsEventsInOrderWithTheStateOfThatMoment)
{
    const Bytes data = JobImage("new");
    const std::string saved = "A: Save JOB";
    const Journal renamed{"JobCreated(n) a|a", "JobLoaded(n) n|n", "DefaultJobChanged(n) n|n", "JobDeleted(a) n|n"};
    const Journal deleted{"JobDeleted(a) a|a", "LoadedJobStateChanged() *|a", "DefaultJobChanged() *|"};
    const std::string fromFactory = "A: Init JOB";
    const struct
    {
        Call act;
        Journal events;
        const char* state;
        unsigned recordWrites = 0;
    } cases[] = {
        {[&] { manager_->CreateJob("n", data); }, {"JobCreated(n) a|a"}, "a|a"},
        {[&] { manager_->CreateJob("a", data); }, {"JobCreated(a) a|a"}, "a|a"},
        {[&] { manager_->WriteJob("b", data); }, {"JobUpdated(b) a|a"}, "a|a"},
        {[&] { manager_->WriteJob("a", data); }, {"JobUpdated(a) a|a", "LoadedJobStateChanged() *|a"}, "*|a"},
        {[&] { manager_->CopyJob("b", "n"); }, {"JobCreated(n) a|a"}, "a|a"},
        {[&] { manager_->RenameJob("a", "n"); }, renamed, "n|n", 1},
        {[&] { manager_->RenameJob("b", "n"); }, {"JobCreated(n) a|a", "JobDeleted(b) a|a"}, "a|a"},
        {[&] { manager_->DeleteJob("b"); }, {"JobDeleted(b) a|a"}, "a|a"},
        {[&] { manager_->DeleteJob("a"); }, deleted, "*|", 1},
        {[&] { manager_->ClearJobs(); }, {"JobsCleared() a|"}, "a|"},
        {[&] { manager_->SaveJob("n"); },
         {saved, "JobCreated(n) a|a", "LoadedJobStateChanged(n) n|a", "persisted JOB"},
         "n|a"},
        {[&] { manager_->SaveJob("b"); },
         {saved, "JobUpdated(b) a|a", "LoadedJobStateChanged(b) b|a", "persisted JOB"},
         "b|a"},
        {[&] { manager_->SetDefaultJob("b"); }, {"DefaultJobChanged(b) a|b"}, "a|b", 1},
        {[&] { manager_->LoadJob("b"); }, {"A: Load JOB", "JobLoaded(b) b|a"}, "b|a"},
        {[&] { manager_->LoadJobFromFactory(); }, {"A: Init JOB", "JobLoaded() |a"}, "|a"},
        {[&] { manager_->FactoryRestoreJobs(); }, {"A: Init JOB", "JobLoaded() |a", "JobsCleared() |"}, "|"},
        {[&] { manager_->FactoryRestore(); },
         {"A: Init GLOBAL", "A: Init WORKSPACE", "A: Init JOB", "JobLoaded() |a", "JobsCleared() |"},
         "|"},
        {[&] { manager_->LoadLiveJob(data); }, {"A: Load JOB"}, "a*|a"},
        {[&] { manager_->LiveJob(); }, {saved}, "a|a"},
        {[&] { manager_->LoadDefaultJob(); },
         {"A: Init JOB", "JobLoaded() |a", "A: Load JOB", "JobLoaded(a) a|a"},
         "a|a"},
        {[&] { manager_->NotifyChange(a_, JOB); }, {"changed JOB", "JobModified() a*|a"}, "a*|a"},
        {[&] { manager_->NotifyChange(n_, JOB); }, {"changed JOB", "N: Save JOB", "JobModified() a*|a"}, "a*|a"},
    };
    for (const auto& c : cases) {
        StartWithJobs();
        const std::size_t recordWrites = files_.Writes(recordFile);
        c.act();
        EXPECT_EQ(journal_, c.events);
        EXPECT_EQ(State(), c.state) << c.events.front();
        EXPECT_EQ(files_.Writes(recordFile) - recordWrites, c.recordWrites) << c.events.front();
        EXPECT_EQ(time_.Pending(), 0U);  // Jobs are saved on request only.
    }
}

TEST_F(JobsTest, FilesFollowTheOperations)
{
    a_.values[JOB] = "changed";
    manager_->NotifyChange(n_, JOB);
    const Bytes live = manager_->LiveJob();
    EXPECT_EQ(Items(live), (Map{{"/A", "changed"}, {"/Laser/N", ""}}));
    EXPECT_TRUE(files_.Unchanged());
    manager_->SaveJob("n");
    manager_->CopyJob("b", "copy");
    manager_->RenameJob("c", "d");
    EXPECT_EQ(manager_->JobData("n"), live);
    EXPECT_EQ(manager_->JobSize("n"), live.size());
    EXPECT_EQ(manager_->JobData("copy"), JobImage("b"));
    EXPECT_EQ(manager_->JobData("d"), JobImage("c"));
    n_.on["Save JOB"] = [&] {
        n_.on.clear();
        manager_->NotifyChange(n_, JOB);  // What changes inside a save is in the next image.
    };
    manager_->NotifyChange(n_, JOB);
    n_.values[JOB] = "late";
    EXPECT_EQ(Items(manager_->LiveJob()).at("/Laser/N"), "late");
    for (const char* file : {".vpjob", "b.txt", "x.y.vpjob"}) {
        files_.Put(file, "");
    }
    const VxTestSupport::ScopedLogCapture log;
    EXPECT_THAT(manager_->ListJobs(), ElementsAre("a", "b", "copy", "d", "n", "x.y"));
    EXPECT_EQ(LogOf(log, managerTag), Journal({"W Empty job file detected '.vpjob'!"}));
    manager_->ClearJobs();
    EXPECT_THAT(files_.Names(), ElementsAre("PersistRecord.xml", "b.txt"));
    EXPECT_NE(Text(recordFile).find(">a<"), std::string::npos);  // Not rewritten.
}

TEST_F(JobsTest, BadArgumentsAreRefusedBeforeAnythingChanges)
{
    const Bytes data = JobImage("new");
    using Name = const std::string&;
    const struct
    {
        const char* function;
        std::function<void(Name)> call;
        const char* missing = "";  // What a job that does not exist gives, if it must exist.
    } cases[] = {
        {"JobExists", [&](Name name) { manager_->JobExists(name); }},
        {"JobData", [&](Name name) { manager_->JobData(name); }, "-999 PersistManager::JobData"},
        {"JobSize", [&](Name name) { manager_->JobSize(name); }, "-999 NodeStorage::FileSize"},
        {"CreateJob", [&](Name name) { manager_->CreateJob(name, data); }},
        {"WriteJob", [&](Name name) { manager_->WriteJob(name, data); }},
        {"CopyJob", [&](Name name) { manager_->CopyJob(name, "n"); }, "-999 NodeStorage::CopyFile"},
        {"CopyJob", [&](Name name) { manager_->CopyJob("a", name); }},
        {"RenameJob", [&](Name name) { manager_->RenameJob(name, "n"); }, "-999 NodeStorage::CopyFile"},
        {"RenameJob", [&](Name name) { manager_->RenameJob("a", name); }},
        {"DeleteJob", [&](Name name) { manager_->DeleteJob(name); }, "-999 NodeStorage::DeleteFile"},
        {"SaveJob", [&](Name name) { manager_->SaveJob(name); }},
        {"LoadJob", [&](Name name) { manager_->LoadJob(name); }, "-999 PersistManager::LoadJob"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Thrown([&] { c.call(""); }), std::string("-997 PersistManager::") + c.function);
        EXPECT_THAT(Thrown([&] { c.call("a:b"); }), testing::StartsWith("-997 ")) << c.function;
        if (*c.missing != '\0') {
            EXPECT_EQ(Thrown([&] { c.call("missing"); }), c.missing);
        }
    }
    EXPECT_EQ(Thrown([&] { manager_->RenameJob("a", "a"); }), "-987 NodeStorage::CopyFile");
    EXPECT_EQ(Thrown([&] { manager_->SetDefaultJob("missing"); }), "-999 PersistManager::SetDefaultJob");
    EXPECT_EQ(Thrown([&] { manager_->SetDefaultJob("a:b"); }), "-997 PersistManager::SetDefaultJob");
    files_.Put("\x01.vpjob", "");
    files_.Mark();
    EXPECT_THROW(manager_->SetDefaultJob("\x01"), Vx::Exception);  // The record could not keep it.
    EXPECT_THROW(manager_->RenameJob("a", "a\x01"), Vx::Exception);
    EXPECT_EQ(MessageThrown([&] { manager_->LoadJob(""); }),
              "-997 Attempt to load job failed: `jobName` argument is empty.");
    EXPECT_EQ(MessageThrown([&] { manager_->LoadJob("missing"); }),
              "-999 Attempt to load job failed: Job does not exist.");
    EXPECT_EQ(MessageThrown([&] { manager_->LoadLiveJob({}); }),
              "-997 Attempt to load live job failed: live job data is empty.");
    std::erase(journal_, "A: Save JOB");  // SaveJob("a:b") saves before it writes.
    EXPECT_THAT(journal_, IsEmpty());
    EXPECT_EQ(State(), "a|a");
    EXPECT_TRUE(files_.Unchanged());
}

TEST_F(JobsTest, FailuresOfTheStorageLeaveWhatWasDoneSoFar)
{
    const Bytes data = JobImage("new");
    const Journal both{"a", "b", "c", "n"};
    struct Case
    {
        FileOp op;
        const char* file;
        Call act;
        Journal events = {};
        const char* state = "a|a";
        Journal jobs = {"a", "b", "c"};
    };
    const Case cases[] = {
        {FileOp::Upload, "n.vpjob", [&] { manager_->CreateJob("n", data); }},
        {FileOp::Upload, "a.vpjob", [&] { manager_->WriteJob("a", data); }},
        {FileOp::Upload, "n.vpjob", [&] { manager_->RenameJob("a", "n"); }},
        {FileOp::Upload, recordFile, [&] { manager_->RenameJob("a", "n"); }, {"JobCreated(n) a|a"}, "n|n", both},
        {FileOp::Delete,
         "a.vpjob",
         [&] { manager_->RenameJob("a", "n"); },
         {"JobCreated(n) a|a", "JobLoaded(n) n|n", "DefaultJobChanged(n) n|n"},
         "n|n",
         both},
        {FileOp::Delete, "a.vpjob", [&] { manager_->DeleteJob("a"); }},
        {FileOp::Upload,
         recordFile,
         [&] { manager_->DeleteJob("a"); },
         {"JobDeleted(a) a|a", "LoadedJobStateChanged() *|a"},
         "*|",
         {"b", "c"}},
        {FileOp::Delete, "b.vpjob", [&] { manager_->ClearJobs(); }, {}, "a|a", {"b", "c"}},
        {FileOp::Upload, "n.vpjob", [&] { manager_->SaveJob("n"); }, {"A: Save JOB"}},
        {FileOp::Size, "b.vpjob", [&] { manager_->SaveJob("b"); }, {"A: Save JOB"}},
        {FileOp::Upload, recordFile, [&] { manager_->SetDefaultJob("b"); }, {}, "a|b"},
    };
    for (const auto& c : cases) {
        StartWithJobs();
        files_.FailNext(c.op, c.file, 1, Nucleo::ERROR_IO);
        EXPECT_THAT(PlaceThrown(c.act), testing::StartsWith("-993 Persistence/"));
        EXPECT_EQ(journal_, c.events);
        EXPECT_EQ(State(), c.state);
        EXPECT_EQ(manager_->ListJobs(), c.jobs);
    }
    StartWithJobs();
    a_.on["Save JOB"] = Fails(-990, "busy");
    EXPECT_EQ(MessageThrown([&] { manager_->SaveJob("b"); }), "-990 Save JOB for A failed -- 1 total failures.");
    EXPECT_THROW(manager_->LiveJob(), Vx::Exception);
    n_.on["Save JOB"] = Fails(-990, "busy");
    EXPECT_THROW(manager_->NotifyChange(n_, JOB), Vx::Exception);
    EXPECT_EQ(State(), "a|a");
    EXPECT_TRUE(files_.Unchanged());
}

TEST_F(JobsTest, AFailingLoadFallsBackToThePreviousJob)
{
    const Bytes good = JobImage("t");
    const std::string ioText(Nucleo::StatusText(Nucleo::ERROR_IO));
    Call once;
    const struct
    {
        Status status;
        std::string text;
        Bytes file;
        Call arrange;
        bool loads = false;  // And fails in a listener.
    } cases[] = {
        {-984, "Job contains no recognizable data.", Image({}), nullptr},
        {-993, "File 't.vpjob' cannot be read: " + ioText + ".", good,
         [&] { files_.FailNext(FileOp::Download, "t.vpjob", 1, Nucleo::ERROR_IO); }},
        {-990, "Load JOB for A failed -- 1 total failures.", good, [&] { once = Fails(-990, "no"); }},
        {-991, "not now", good, [&] { once = Fails(-991, "not now"); }, true},
        {-996, "std::bad_alloc", good, [&] { once = [] { throw std::bad_alloc(); }; }, true},
        {-1000, "?", good, [&] { once = [] { throw std::runtime_error("?"); }; }, true},
    };
    for (const auto& c : cases) {
        StartWithJobs();
        files_.Put("t.vpjob", c.file);
        if (c.arrange) {
            c.arrange();
        }
        const auto fail = [&](bool loaded) {
            if (loaded == c.loads && once) {
                std::exchange(once, nullptr)();
            }
        };
        a_.on["Load JOB"] = [&] { fail(false); };
        const auto listener = manager_->JobChangedEvent().Subscribe([&](auto, auto&) { fail(true); });
        const std::string line = "E Load job 't' failed (" + c.text + ").";
        Journal expected{"I Load job 't'...",
                         line,
                         "!Jobs: " + line,
                         "W Falling back to previous job 'a'...",
                         "W Fallback to job 'a' succeeded.",
                         "JobLoaded(a) a|a",
                         "a|a"};
        if (c.loads) {
            expected.insert(expected.begin() + 5, "JobLoaded(t) t|a");
            expected.insert(expected.begin() + 1, "I Load job 't' succeeded.");
        }
        EXPECT_EQ(LoadFails(c.status), expected);
        EXPECT_EQ(a_.values[JOB], "a");
    }
}

TEST_F(JobsTest, WithoutAPreviousJobAFailingLoadFallsBackToTheFactoryJob)
{
    Journal lines;
    const auto failed = [&](const std::string& what, const std::string& why) {
        const std::string line = "E " + what + " failed (" + why + ").";
        lines.insert(lines.end(), {line, "!Jobs: " + line});
    };
    for (const bool wasLoaded : {false, true}) {
        for (const bool factoryFails : {false, true}) {
            StartWithJobs();
            files_.Put("t.vpjob", Image({}));
            lines = {"I Load job 't'..."};
            failed("Load job 't'", "Job contains no recognizable data.");
            if (wasLoaded) {
                files_.Remove("a.vpjob");
                lines.emplace_back("W Falling back to previous job 'a'...");
                failed("Fallback to previous job 'a'", "File 'a.vpjob' does not exist.");
            } else {
                manager_->LoadJobFromFactory();
            }
            lines.insert(lines.end(),
                         {"W Attempting to fallback to re-initialize job...", "I Initializing factory job..."});
            if (factoryFails) {
                a_.on["Init JOB"] = Fails(-995, "factory");
                failed("Fallback to re-initialize job", "Init JOB for A failed -- 1 total failures.");
            } else {
                lines.emplace_back("W Fallback to re-initialize job succeeded.");
            }
            if (wasLoaded && !factoryFails) {
                lines.emplace_back("JobLoaded() |a");
            }
            lines.emplace_back(wasLoaded && factoryFails ? "a|a" : "|a");
            EXPECT_EQ(LoadFails(-984), lines);
            EXPECT_TRUE(factoryFails || a_.values[JOB] == "factory");
        }
    }
    // When nothing is loaded in the end, the state is what it was: even if a listener refused what had been loaded, and
    // although the loaded job was modified.
    for (const Bytes& image : {JobImage("t"), Image({})}) {
        StartWithJobs();
        manager_->NotifyChange(a_, JOB);
        files_.Put("t.vpjob", image);
        files_.Remove("a.vpjob");
        a_.on["Init JOB"] = Fails(-995, "factory");
        const auto listener = manager_->JobChangedEvent().Subscribe([](auto, auto&) { throw std::bad_alloc(); });
        EXPECT_THROW(manager_->LoadJob("t"), Vx::Exception);
        EXPECT_EQ(State(), image.size() > 1024 ? "a|a" : "a*|a");
    }
}

TEST_F(JobsTest, AJobOfWhichNothingCanBeKeptIsRefused)
{
    FakeHandler unkept("B/", journal_);  // Writes the item "/B/".
    manager_->RegisterHandler(unkept, "");
    manager_->SaveJob("n");
    EXPECT_EQ(Items(manager_->JobData("n")), (Map{{"/A", "a"}}));
    EXPECT_THAT(manager_->UnkeptItems(JOB), ElementsAre("/B/"));
    PersistManager other(system_, updatable_);
    other.SaveJob("empty");
    other.RegisterHandler(unkept, "");
    EXPECT_EQ(Thrown([&] { other.SaveJob("m"); }), "-984 PersistManager::TakeJobImage");
    EXPECT_FALSE(manager_->JobExists("m"));
}

TEST_F(JobsTest, DefaultAndFactoryJobs)
{
    manager_->NotifyChange(a_, JOB);
    manager_->LoadJobFromFactory();
    EXPECT_EQ(a_.values[JOB], "factory");
    journal_.clear();
    manager_->LoadJobFromFactory();
    EXPECT_THAT(journal_, ElementsAre("A: Init JOB"));  // Nothing was loaded or modified.

    VxTestSupport::ScopedLogCapture log;
    manager_->DeleteJob("b");
    files_.Remove("a.vpjob");
    manager_->LoadDefaultJob();
    manager_->SetDefaultJob("");
    manager_->LoadDefaultJob();
    EXPECT_EQ(LogOf(log, managerTag),
              Journal({"I Initializing factory job...", "I Default job 'a' not found, using factory job.",
                       "I Initializing factory job...", "I No default job specified, using factory job."}));
    EXPECT_EQ(State(), "|");

    a_.on["Init JOB"] = Fails(-990, "stuck");
    manager_->LoadJob("c");
    EXPECT_EQ(Thrown([&] { manager_->LoadDefaultJob(); }), "-990 PersistController::InitDomain");
    EXPECT_EQ(State(), "c|");
    journal_.clear();
    EXPECT_THROW(manager_->FactoryRestore(), Vx::Exception);
    EXPECT_THAT(journal_, ElementsAre("A: Init GLOBAL", "A: Init WORKSPACE", "A: Init JOB"));
    EXPECT_TRUE(manager_->JobExists("c"));
}

TEST_F(JobsTest, LiveJobsComeAndGoWithoutAFile)
{
    const Bytes live = Image({{"/A", "live"}, {"/Laser/N", "named"}});
    EXPECT_EQ(MessageThrown([&] { manager_->LoadLiveJob(Image({})); }), "-984 Failed to load job -984");
    EXPECT_EQ(State(), "a|a");
    VxTestSupport::ScopedLogCapture log;
    manager_->LoadLiveJob(live);
    EXPECT_EQ(LogOf(log, managerTag), Journal({"I Loading live job ...", "I Loaded live job succeeded."}));
    manager_->NotifyLoad(n_, JOB);
    EXPECT_EQ(a_.values[JOB] + n_.values[JOB], "livenamed");
    EXPECT_EQ(manager_->LiveJob(), live);

    a_.on["Load JOB"] = Fails(-990, "no");
    log.Clear();
    EXPECT_EQ(MessageThrown([&] { manager_->LoadLiveJob(live); }), "-990 Failed to load job -990");
    EXPECT_EQ(LogOf(log, managerTag).back(), "E Loading live job failed (Load JOB for A failed -- 1 total failures.).");
    EXPECT_EQ(State(), "a*|a");
    EXPECT_TRUE(files_.Unchanged());
}

TEST(ValidateConfigFileTest, LooksForAVersionThatIsNotTooNew)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"version": 3})", "nothing"},
        {R"({"version": 4})", "-983 "},
        {R"({"version": 18446744073709551615})", "-983 "},
        {R"({"version": -1})", "-988 "},
        {R"({"version": "3"})", "-988 "},
        {R"([{"version": 3}])", "-988 "},
        {"\xff\xfe", "-988 "},
        {"", "-988 "},
    };
    for (const auto& [text, thrown] : cases) {
        const Bytes job = Image({{"/config.json", text}});
        EXPECT_THAT(PlaceThrown([&] { PersistManager::ValidateConfigFile(job, "/config.json", 3); }),
                    testing::StartsWith(thrown))
            << text;
    }
    EXPECT_EQ(Thrown([&] { PersistManager::ValidateConfigFile(Image({}), "/config.json", 3); }),
              "-999 PersistManager::ValidateConfigFile");
}

}  // namespace
}  // namespace VxCommon
