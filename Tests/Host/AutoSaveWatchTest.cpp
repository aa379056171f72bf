#include <stdexcept>

#include "Rig.h"

namespace VxHostTest
{
namespace
{

class AutoSaveWatchTest : public RigTest
{
protected:
    void Change() { rig.network.Update({{"name", "n" + std::to_string(++changes)}}); }
    std::size_t Attempts() const { return platform.Storage().Calls(FileOp::Upload, "Global.tar"); }
    std::size_t Writes() const { return platform.Storage().Writes("Global.tar"); }

    /// What a host that is started now would begin with.
    std::string NameOnDisk() { return Rig(platform).network.Document().at("name"); }

    void FailUploads(int count)
    {
        for (int i = 1; i <= count; ++i) {
            platform.Storage().FailNext(FileOp::Upload, "Global.tar", i, Nucleo::ERROR_DISK_FULL);
        }
    }

    int changes = 0;
};

TEST_F(AutoSaveWatchTest, ChangesWithoutAPauseAreSavedEveryTwoSeconds)
{
    const std::size_t before = Writes();
    for (int i = 0; i < 45; ++i) {  // At 0.0, 0.1, ... 4.4 s.
        Change();
        time.Advance(100ms);
        const int tenths = i + 1;
        // Due at 2.0 s; the change right after it begins the next two seconds, which end at 4.0 s.
        const std::size_t expected = tenths < 20 ? 0U : tenths < 40 ? 1U : 2U;
        ASSERT_EQ(Writes() - before, expected) << "at " << tenths << " tenths";
    }
    time.Advance(250ms);
    EXPECT_EQ(NameOnDisk(), "n45");
    EXPECT_FALSE(rig.watch.IsWaiting(PersistDomain::GLOBAL));
}

TEST_F(AutoSaveWatchTest, FailedSaveIsTriedAgainWithGrowingDelaysUntilItIsDone)
{
    const VxTestSupport::ScopedLogCapture log;
    const std::size_t before = Attempts();
    FailUploads(8);
    Change();
    // The manager's own attempt, then the watch's.
    const std::chrono::milliseconds attempts[] = {250ms,    2250ms,   6250ms,    14'250ms,
                                                  30'250ms, 62'250ms, 122'250ms, 182'250ms};
    std::chrono::milliseconds now{};
    std::size_t seen = 0;
    for (const std::chrono::milliseconds at : attempts) {
        time.Advance(at - now - 1ms);
        EXPECT_EQ(Attempts() - before, seen) << "before " << at.count();
        time.Advance(1ms);
        now = at;
        ++seen;
        EXPECT_EQ(Attempts() - before, seen) << "at " << at.count();
        EXPECT_EQ(rig.watch.FailedSaves(PersistDomain::GLOBAL), seen);
        EXPECT_EQ(log.Texts("Auto-save").size(), seen);
    }
    EXPECT_EQ(NameOnDisk(), "virtual-controller");
    EXPECT_FALSE(rig.manager.HasUnsavedChanges(PersistDomain::GLOBAL)) << "the manager has forgotten the change";

    time.Advance(60s);
    EXPECT_EQ(NameOnDisk(), "n1");
    EXPECT_EQ(rig.watch.FailedSaves(PersistDomain::GLOBAL), 0U);
    EXPECT_THAT(log.Texts("Auto-save"),
                testing::AllOf(testing::Contains(testing::MatchesRegex(
                                   "E The GLOBAL domain cannot be saved \\(.*Global.tar.*\\); trying again in 2 s\\.")),
                               testing::Contains("I The GLOBAL domain is saved, after 8 failures.")));
    time.Advance(1h);
    EXPECT_EQ(time.Pending(), 0U);
}

TEST_F(AutoSaveWatchTest, LaterChangeThatIsSavedEndsTheRetries)
{
    FailUploads(2);
    Change();
    time.Advance(3s);
    EXPECT_EQ(rig.watch.FailedSaves(PersistDomain::GLOBAL), 2U);
    rig.layout.Update({{"zoom", 50}});  // The other domain is none of this one's business.
    Change();
    time.Advance(250ms);
    EXPECT_EQ(NameOnDisk(), "n2");
    EXPECT_FALSE(rig.watch.IsWaiting(PersistDomain::WORKSPACE));
    const std::size_t attempts = Attempts();
    time.Advance(1h);
    EXPECT_EQ(Attempts(), attempts);
}

TEST_F(AutoSaveWatchTest, SaveThatIsDoneIsNoFailureWhateverFailsAfterIt)
{
    FailUploads(1);
    Change();
    time.Advance(1s);
    const Vx::Subscription subscription = rig.manager.DomainPersistedEvent().Subscribe(
        [](PersistDomain) { throw std::runtime_error("a listener after the watch"); });
    time.Advance(2s);
    EXPECT_EQ(NameOnDisk(), "n1");
    EXPECT_FALSE(rig.watch.IsWaiting(PersistDomain::GLOBAL));
    EXPECT_EQ(rig.watch.FailedSaves(PersistDomain::GLOBAL), 0U);
}

TEST_F(AutoSaveWatchTest, AtTheEndWhatWaitsIsSavedOrNamed)
{
    Change();
    FailUploads(2);
    time.Advance(1s);
    EXPECT_EQ(NameOnDisk(), "virtual-controller");
    rig.manager.Shutdown();  // Knows of nothing to save.
    EXPECT_THAT(rig.watch.SaveWaiting(),
                testing::ElementsAre(testing::StartsWith("the GLOBAL domain could not be saved: ")));
    EXPECT_TRUE(rig.watch.SaveWaiting().empty());
    EXPECT_EQ(NameOnDisk(), "n1");
}

TEST_F(AutoSaveWatchTest, ChangeFromInsideASaveKeepsTheDomainWaiting)
{
    // What hears of the save first changes again, once, before the watch hears of it.
    bool again = true;
    const Vx::Subscription subscription = rig.manager.DomainPersistedEvent().Subscribe([&](PersistDomain) {
        if (std::exchange(again, false)) {
            Change();
        }
    });
    const VxHost::AutoSaveWatch late(rig.manager);
    Change();
    time.Advance(250ms);
    EXPECT_EQ(NameOnDisk(), "n1");
    EXPECT_TRUE(late.IsWaiting(PersistDomain::GLOBAL));
    time.Advance(250ms);
    EXPECT_EQ(NameOnDisk(), "n2");
    EXPECT_FALSE(late.IsWaiting(PersistDomain::GLOBAL));
}

TEST_F(AutoSaveWatchTest, EndedWatchLeavesNothingBehind)
{
    {
        VxHost::AutoSaveWatch second(rig.manager);
        FailUploads(2);
        Change();
        time.Advance(2s);  // Both have failed once and wait.
        EXPECT_TRUE(second.IsWaiting(PersistDomain::GLOBAL));
    }
    time.Advance(10s);
    EXPECT_EQ(NameOnDisk(), "n1") << "the first watch goes on";
}

}  // namespace
}  // namespace VxHostTest
