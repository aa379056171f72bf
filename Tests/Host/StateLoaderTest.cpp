#include "Rig.h"

namespace VxHostTest
{
namespace
{

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
        {"PersistRecord.xml", "<PersistRecord><Def", "bench", 250, 1000, "", "The persist record cannot be read"},
        {"PersistRecord.xml", "", "bench", 250, 1000, "", "The persist record cannot be read"},
        {"PersistRecord.xml", "<PersistRecord/>", "bench", 250, 1000, "", "The persist record cannot be read"},
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

TEST_F(StateLoaderTest, DamagedDefaultJobLeavesTheFactoryJob)
{
    Storage().Put("A.vpjob", ImageOf({{"/acquisition/settings.json", "junk"}}));
    const VxTestSupport::ScopedLogCapture log;
    const Rig started(platform);
    EXPECT_EQ(started.acquisition.Document().at("exposure"), 1000);
    EXPECT_EQ(started.manager.LoadedJob(), "");
    EXPECT_EQ(started.manager.DefaultJob(), "A") << "it may be repaired";
    EXPECT_THAT(log.Texts("Start"), testing::Contains(testing::StartsWith("E The default job is not loaded")));
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

TEST_F(StateLoaderTest, DefaultsThatCouldNotBeWrittenYetAreWrittenLater)
{
    Storage().Put("Global.tar", "junk");
    Storage().FailNext(FileOp::Upload, "Global.tar", 1, Nucleo::ERROR_DISK_FULL);
    Storage().FailNext(FileOp::Upload, "Global.tar.d01", 1, Nucleo::ERROR_DISK_FULL);
    const Rig started(platform);
    EXPECT_EQ(started.network.Document().at("name"), "virtual-controller");
    EXPECT_EQ(started.layout.Document().at("zoom"), 250) << "loading goes on after the failure";
    EXPECT_EQ(started.manager.LoadedJob(), "A");
    EXPECT_TRUE(started.watch.IsWaiting(PersistDomain::GLOBAL));
    time.Advance(2s);
    EXPECT_FALSE(started.watch.IsWaiting(PersistDomain::GLOBAL));
    const Rig next(platform);
    EXPECT_EQ(next.network.Document().at("name"), "virtual-controller");
}

TEST_F(StateLoaderTest, StartReadsNoJobButTheDefaultOne)
{
    Storage().Put("B.vpjob", Storage().Get("A.vpjob").value());
    const Rig started(platform);
    EXPECT_EQ(started.manager.ListJobs().size(), 2U);
    EXPECT_EQ(Storage().Calls(FileOp::Download, "B.vpjob"), 0U);
}

TEST_F(StateLoaderTest, WithoutARecordAndWithoutRoomForOneThereIsNoStart)
{
    Storage().Put("PersistRecord.xml", "junk");
    Storage().FailNext(FileOp::Upload, "PersistRecord.xml", 1, Nucleo::ERROR_DISK_FULL);
    Rig stopped(platform, false);
    EXPECT_THAT([&] { VxHost::LoadState(stopped.manager, stopped.system, stopped.info, stopped.watch); },
                Refuses(Nucleo::ERROR_DISK_FULL, "PersistRecord.xml"));
}

}  // namespace
}  // namespace VxHostTest
