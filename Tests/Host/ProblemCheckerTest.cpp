#include <Host/ProblemChecker.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include <gtest/gtest.h>

#include <Host/ProblemSources.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "Rig.h"

namespace VxHostTest
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using VxTestSupport::TemporaryFolder;
namespace fs = std::filesystem;

class ProblemCheckerTest : public testing::Test
{
protected:
    ProblemCheckerTest()
    {
        subscription = problems.UpdatedEvent().Subscribe([this] { ++notices; });
        Begin();
    }

    void Begin()
    {
        checker.emplace(problems,
                        std::vector<VxHost::ProblemSource>{VxHost::StorageProblems({}, [this] { return storageUse; }),
                                                           [this] { return first; },
                                                           [this] {
                                                               if (failing) {
                                                                   throw std::runtime_error("cannot tell");
                                                               }
                                                               return second;
                                                           }});
    }

    /// What is listed after the next check: each problem with the letter of its severity.
    std::vector<std::string> Next()
    {
        time.Advance(VxHost::ProblemChecker::Period);
        std::vector<std::string> listed;
        for (const VxCommon::Problem& problem : problems.Enumerate()) {
            listed.push_back(std::string(VcProblemSeverity_Name(problem.severity), 1) + " " + problem.source + ": " +
                             problem.msg);
        }
        return listed;
    }

    VxTestSupport::ScopedManualTime time;
    double storageUse = 0;
    std::vector<VxHost::Finding> first;
    std::vector<VxHost::Finding> second;
    bool failing = false;
    int notices = 0;
    VxCommon::ProblemsManager problems;
    Vx::Subscription subscription;
    std::optional<VxHost::ProblemChecker> checker;
};

TEST_F(ProblemCheckerTest, StorageIsToldOfAboveItsThresholds)
{
    const std::vector<std::string> none;
    const std::vector<std::string> warning = {"P Storage: The storage of the data folder is more than 90 % full."};
    const std::vector<std::string> full = {"B Storage: The storage of the data folder is more than 98 % full."};
    const struct
    {
        double use;
        std::vector<std::string> listed;
        int notices;
    } checks[] = {{90, none, 0},  {90.1, warning, 1}, {98, warning, 0}, {98.1, full, 1},
                  {100, full, 0}, {95, warning, 1},   {94, warning, 0}, {10, none, 1}};
    for (const auto& check : checks) {
        SCOPED_TRACE(check.use);
        storageUse = check.use;
        notices = 0;
        EXPECT_EQ(Next(), check.listed);
        EXPECT_EQ(notices, check.notices);
    }
}

TEST_F(ProblemCheckerTest, EveryFactComesAndGoesByItself)
{
    checker.reset();
    failing = true;  // No reason not to begin.
    first = {{VcProblemSeverity_Blocking, "Auto-save", "100%s"}};
    second = {{VcProblemSeverity_Potential, "Network", "a"}, {VcProblemSeverity_Potential, "Network", "b"}};
    Begin();
    failing = false;
    notices = 0;
    const auto all = Next();
    EXPECT_THAT(all, ElementsAre("B Auto-save: 100%s", "P Network: a", "P Network: b"));
    EXPECT_EQ(notices, 1);
    failing = true;
    first.push_back({VcProblemSeverity_Potential, "Start", "c"});
    EXPECT_THAT(Next(), ElementsAre(all[0], "P Start: c")) << "what was reported before the failure";
    failing = false;
    first.clear();
    EXPECT_THAT(Next(), ElementsAre(all[1], all[2])) << "the checks go on";
    checker.reset();
    EXPECT_EQ(problems.Count(), 0U);
    EXPECT_EQ(time.Pending(), 0U);
}

using ProblemSourcesTest = RigTest;

TEST_F(ProblemSourcesTest, SavesThatFailAndItemsThatCannotBeKeptAreToldOf)
{
    const auto source = VxHost::SaveProblems(rig.manager, rig.watch);
    const auto told = [&] {
        std::vector<std::string> texts;
        for (const auto& finding : source()) {
            texts.push_back(std::string(VcProblemSeverity_Name(finding.severity), 1) + " " + finding.text);
        }
        return texts;
    };
    for (int i = 1; i <= 2; ++i) {
        platform.Storage().FailNext(FileOp::Upload, "Workspace.vpws", i, Nucleo::ERROR_DISK_FULL);
    }
    rig.layout.Update({{"zoom", 250}});
    EXPECT_THAT(told(), IsEmpty());
    time.Advance(2s);
    EXPECT_THAT(told(), ElementsAre("B The WORKSPACE domain cannot be saved."));
    time.Advance(5s);
    EXPECT_THAT(told(), IsEmpty());
    VxCommon::IPersistStore& store = rig.manager.GetGlobalInstance().GetStore();
    store.Write("/a/", nullptr, 0);
    EXPECT_THAT(told(), ElementsAre("P The item '/a/' of GLOBAL is not saved: no image can keep its path."));
    rig.manager.SaveGlobal();
    EXPECT_THAT(Rig(platform).report.wholeCopies, IsEmpty()) << "and the others are whole";
    EXPECT_THAT(platform.Storage().Names(), testing::Not(testing::Contains("Global.tar.d01")));
}

TEST(ProblemFactsTest, InterfacesThatAreUpWithoutCarrierAreDown)
{
    const TemporaryFolder folder;
    const struct
    {
        const char* name;
        const char* flags;
        const char* carrier;  // What reading it gives; none when it is switched off.
    } interfaces[] = {{"wire1", "0x1003\n", "0\n"},
                      {"lo", "0x9\n", "0\n"},
                      {"off", "0x1002\n", ""},
                      {"wire0", "0x1003\n", "0\n"},
                      {"up", "0x1003\n", "1\n"}};
    for (const auto& [name, flags, carrier] : interfaces) {
        fs::create_directory(folder.Path() / name);
        std::ofstream(folder.Path() / name / "flags") << flags;
        std::ofstream(folder.Path() / name / "carrier") << carrier;
    }
    std::ofstream(folder.Path() / "bonding_masters") << "wire0\n";
    EXPECT_THAT(VxHost::DownInterfaces(folder.Path()), ElementsAre("wire0", "wire1"));
    EXPECT_THAT(VxHost::DownInterfaces(folder.Path() / "missing"), IsEmpty());
}

}  // namespace
}  // namespace VxHostTest
