#include <Host/FileRetry.h>
#include <Host/ProblemSources.h>

#include "Rig.h"

namespace VxHostTest
{
namespace
{

using VxCommon::PersistManager;
using VxTestSupport::MemoryStorage;

class StateLoaderTest : public testing::Test
{
protected:
    StateLoaderTest() { RunFirst(platform); }

    /// A host that ran: a network name, a zoom, and a default job "A" with an exposure, all on disk.
    static void RunFirst(TestSystem& on)
    {
        Rig first(on);
        first.network.Update({{"name", "bench"}});
        first.layout.Update({{"zoom", 250}});
        first.acquisition.Update({{"exposure", 2500}});
        first.manager.SaveJob("A");
        first.manager.SetDefaultJob("A");
        first.manager.Shutdown();
    }

    MemoryStorage& Storage() { return platform.Storage(); }

    /// The problems that a host which was started like this has, each with the letter of its severity.
    static std::vector<std::string> Told(const Rig& started)
    {
        std::vector<std::string> told;
        for (const auto& finding : VxHost::StartProblems(started.manager, started.report)()) {
            EXPECT_STREQ(finding.source, "Start");
            told.push_back(std::string(VcProblemSeverity_Name(finding.severity), 1) + " " + finding.text);
        }
        return told;
    }

    void Fail(FileOp op, const std::string& file, int times, Nucleo::Status status = Nucleo::ERROR_IO)
    {
        for (int nth = 1; nth <= times; ++nth) {
            Storage().FailNext(op, file, nth, status);
        }
    }

    VxTestSupport::ScopedManualTime time;
    TestSystem platform;
};

TEST_F(StateLoaderTest, DamagedFilesGiveWayToDefaultsAndAreKeptForDiagnosis)
{
    // What an archive looks like when a header in its middle is damaged: everything behind it is gone.
    const auto image = [](const std::vector<std::pair<std::string, std::string>>& items) {
        const auto bytes = ImageOf(items);
        return std::string(bytes.begin(), bytes.end());
    };
    const char* const network = R"({"version":1,"values":{"name":"lost"}})";
    const struct
    {
        std::string file;
        std::string damaged;
        const char* name;
        int zoom;
        int exposure;
        const char* job;  // Loaded, and the default one.
        const char* said;
    } cases[] = {
        {"PersistRecord.xml", "<PersistRecord><Def", "bench", 250, 1000, "", "The file PersistRecord.xml is damaged"},
        {"PersistRecord.xml", "", "bench", 250, 1000, "", "The file PersistRecord.xml is damaged"},
        {"PersistRecord.xml", "<PersistRecord/>", "bench", 250, 1000, "", "The file PersistRecord.xml is damaged"},
        {"Global.tar", "junk", "virtual-controller", 250, 2500, "A", "Load GLOBAL failed"},
        {"Global.tar", image({}), "virtual-controller", 250, 2500, "A", "Load GLOBAL failed"},
        {"Global.tar", image({{"/network/settings.json", network}}), "virtual-controller", 250, 2500, "A", "has no"},
        {"Global.tar", image({{"/Host/info.json", "{}"}, {"/network/settings.json", network}}), "virtual-controller",
         250, 2500, "A", "\"items\""},
        {"Global.tar", image({{"/Host/info.json", R"({"items":2,"saves":1})"}}), "virtual-controller", 250, 2500, "A",
         "1 of its 2 items are left"},
        {"Workspace.vpws", "junk", "bench", 100, 2500, "A", "Load workspace failed"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.file + ": " + expected.damaged);
        TestSystem damaged;
        RunFirst(damaged);
        damaged.Storage().Put(expected.file, expected.damaged);
        const VxTestSupport::ScopedLogCapture log;
        Rig started(damaged);
        EXPECT_EQ(started.network.Document().at("name"), expected.name);
        EXPECT_EQ(started.layout.Document().at("zoom"), expected.zoom);
        EXPECT_EQ(started.acquisition.Document().at("exposure"), expected.exposure);
        EXPECT_EQ(started.manager.LoadedJob(), expected.job);
        EXPECT_EQ(started.manager.DefaultJob(), expected.job);
        EXPECT_EQ(damaged.Storage().Get(expected.file + ".d01"),
                  MemoryStorage::Bytes(expected.damaged.begin(), expected.damaged.end()));
        EXPECT_NE(damaged.Storage().Get(expected.file), damaged.Storage().Get(expected.file + ".d01"));
        EXPECT_THAT(log.Texts(), testing::Contains(testing::HasSubstr(expected.said)));
        EXPECT_THAT(Told(started),
                    testing::ElementsAre("P The file " + expected.file +
                                         " was damaged at start; what it held is kept as " + expected.file + ".d01."));
        damaged.Storage().Remove(expected.file + ".d01");
        EXPECT_THAT(Told(started), testing::IsEmpty());

        // The host works on, and its next start finds nothing wrong.
        started.network.Update({{"name", "again"}});
        started.manager.SetDefaultJob("A");
        started.manager.Shutdown();
        const VxTestSupport::ScopedLogCapture secondLog;
        Rig next(damaged);
        EXPECT_EQ(next.network.Document().at("name"), "again");
        EXPECT_EQ(next.manager.LoadedJob(), "A");
        EXPECT_THAT(secondLog.Texts(), testing::Not(testing::Contains(testing::StartsWith("E "))));
    }
}

TEST_F(StateLoaderTest, DefaultJobThatCannotBeLoadedStaysAndLeavesTheFactoryJob)
{
    const MemoryStorage::Bytes good = Storage().Get("A.vpjob").value();
    const std::string damaged(Nucleo::StatusText(Nucleo::ERROR_FORMAT));
    const std::string unread(Nucleo::StatusText(Nucleo::ERROR_IO));
    for (const bool readable : {true, false}) {
        Storage().Put("A.vpjob", readable ? ImageOf({{"/acquisition/settings.json", "junk"}}) : good);
        Storage().Mark();
        Fail(FileOp::Download, "A.vpjob", readable ? 0 : PersistManager::ReadAttempts);
        const VxTestSupport::ScopedLogCapture log;
        const Rig started(platform);
        EXPECT_TRUE(Storage().Unchanged("A.vpjob"));
        EXPECT_EQ(started.acquisition.Document().at("exposure"), 1000);
        EXPECT_EQ(started.manager.LoadedJob() + "|" + started.manager.DefaultJob(), "|A") << "it may be repaired";
        EXPECT_THAT(log.Texts("Start"), testing::Contains(testing::StartsWith("E The default job is not loaded")));
        EXPECT_THAT(Told(started), testing::ElementsAre("P The default job A could not be loaded at start (" +
                                                        (readable ? damaged : unread) + "); the factory job runs."));
    }
    Rig started(platform);
    EXPECT_THAT(Told(started), testing::IsEmpty());
}

TEST_F(StateLoaderTest, FileThatCouldNotBeReadIsToldOfUntilItIsBack)
{
    for (const std::string file : {"Global.tar", "Workspace.vpws", "PersistRecord.xml"}) {
        SCOPED_TRACE(file);
        const std::string copy = file + ".d01";
        Fail(FileOp::Download, file, PersistManager::ReadAttempts);
        {
            const Rig started(platform);
            EXPECT_THAT(Told(started), testing::ElementsAre("P The file " + file +
                                                            " could not be read at start; what "
                                                            "it held is kept as " +
                                                            copy + "."));
            time.Advance(3s);
        }
        for (int start = 0; start < 2; ++start) {
            Rig next(platform);
            EXPECT_THAT(Told(next), testing::ElementsAre("P The file " + copy +
                                                         ", which could not be read at an earlier start, is "
                                                         "whole. To bring it back, stop vxhost and rename it to " +
                                                         file + "."));
            next.watch.Expect(PersistDomain::GLOBAL);
            time.Advance(3s);
        }
        const MemoryStorage::Bytes whole = Storage().Get(copy).value();
        Storage().Put(copy, "junk");
        EXPECT_THAT(Told(Rig(platform)), testing::IsEmpty());
        Storage().Put(file, whole);
        Storage().Remove(copy);
        const Rig back(platform);
        EXPECT_THAT(Told(back), testing::IsEmpty());
        EXPECT_EQ(back.network.Document().at("name"), "bench");
        EXPECT_EQ(back.layout.Document().at("zoom"), 250);
        EXPECT_EQ(back.manager.LoadedJob(), "A");
    }
}

TEST_F(StateLoaderTest, FilesThatStayInTheWayAreTriedUntilTheyGiveWay)
{
    for (const std::string file : {"Global.tar", "Workspace.vpws", "PersistRecord.xml"}) {
        SCOPED_TRACE(file);
        const MemoryStorage::Bytes good = Storage().Get(file).value();
        Fail(FileOp::Download, file, PersistManager::ReadAttempts);
        Fail(FileOp::Move, file, 3, Nucleo::ERROR_READ_ONLY);
        Rig started(platform);
        EXPECT_THAT(Told(started), testing::ElementsAre(testing::StartsWith("B The file " + file)));
        VxHost::FileRetry retry(started.manager, started.watch);
        time.Advance(VxHost::FileRetry::Period - 1us);
        EXPECT_EQ(Storage().Get(file), good);
        time.Advance(VxHost::FileRetry::Period + 1us);
        EXPECT_EQ(Storage().Get(file + ".d01"), good);
        time.Advance(3s);
        EXPECT_NE(Storage().Get(file), good);
        EXPECT_THAT(Told(started), testing::ElementsAre(testing::EndsWith("is kept as " + file + ".d01.")));
        EXPECT_EQ(time.Pending(), 0U);
        EXPECT_THAT(Told(Rig(platform)), testing::ElementsAre(testing::HasSubstr("is whole")));
        Storage().Put(file, good);
        Storage().Remove(file + ".d01");
    }
}

TEST_F(StateLoaderTest, NoDamageOfAnyFileKeepsTheHostFromStarting)
{
    for (const char* file : {"PersistRecord.xml", "Global.tar", "Workspace.vpws", "A.vpjob"}) {
        const MemoryStorage::Bytes good = Storage().Get(file).value();
        for (std::size_t i = 0; i < (good.size() + 96) / 97 * 2; ++i) {
            const std::size_t at = i / 2 * 97;
            SCOPED_TRACE(std::string(file) + (i % 2 == 0 ? " cut at " : " changed at ") + std::to_string(at));
            MemoryStorage::Bytes damaged = good;
            damaged[at] ^= 0x20;
            damaged.resize(i % 2 == 0 ? at : good.size());
            Storage().Put(file, damaged);
            Rig started(platform);
            // The damage is left behind at the first save: what is set now is what the next start finds.
            started.network.Update({{"name", "after"}});
            started.layout.Update({{"zoom", 500}});
            started.manager.Shutdown();
            const Rig next(platform);
            ASSERT_EQ(next.network.Document().at("name"), "after");
            ASSERT_EQ(next.layout.Document().at("zoom"), 500);
        }
        Storage().Put(file, good);
    }
}

TEST_F(StateLoaderTest, WithoutRoomTheHostStartsAndWritesLater)
{
    Storage().Put("Global.tar", "junk");
    Storage().Put("PersistRecord.xml", "junk");
    for (const char* file : {"Global.tar", "Global.tar.d01", "PersistRecord.xml"}) {
        Fail(FileOp::Upload, file, 1, Nucleo::ERROR_DISK_FULL);
    }
    Rig started(platform);
    EXPECT_EQ(started.network.Document().at("name"), "virtual-controller");
    EXPECT_EQ(started.layout.Document().at("zoom"), 250) << "loading goes on after the failure";
    EXPECT_EQ(started.manager.LoadedJob(), "");
    EXPECT_TRUE(started.watch.IsWaiting(PersistDomain::GLOBAL));
    EXPECT_THAT(Told(started), testing::ElementsAre(
                                   testing::HasSubstr("PersistRecord.xml.d01."), testing::HasSubstr("Global.tar.d01."),
                                   "B PersistRecord.xml cannot be written: which job is the default one is in memory "
                                   "only."));
    const VxHost::FileRetry retry(started.manager, started.watch);
    EXPECT_EQ(Told(started).size(), 2U);
    time.Advance(2s);
    EXPECT_FALSE(started.watch.IsWaiting(PersistDomain::GLOBAL));
    const Rig next(platform);
    EXPECT_EQ(next.network.Document().at("name"), "virtual-controller");
    EXPECT_THAT(Told(next), testing::IsEmpty());
}

TEST_F(StateLoaderTest, StartReadsNoJobButTheDefaultOne)
{
    Storage().Put("B.vpjob", Storage().Get("A.vpjob").value());
    const Rig started(platform);
    EXPECT_EQ(started.manager.ListJobs().size(), 2U);
    EXPECT_EQ(Storage().Calls(FileOp::Download, "B.vpjob"), 0U);
}

}  // namespace
}  // namespace VxHostTest
