// The manager on real time and several threads. What is waited for is an event, with a bound that only a failure meets.

#include <thread>

#include <Tests/Persistence/ManagerFixture.h>
#include <VxApi/Locker.h>
#include <VxApi/TimeService.h>
#include <VxTestSupport/Gate.h>

using namespace std::chrono_literals;

namespace VxCommon
{
namespace
{

constexpr auto bound = 30s;

class ManagerThreadsTest : public ManagerFixture
{
protected:
    ManagerThreadsTest() { Start(); }
};

TEST_F(ManagerThreadsTest, SeveralThreadsWorkWhileTheTimersSave)
{
    VxTestSupport::Signal saved;
    const auto listener = manager_->DomainPersistedEvent().Subscribe([&](PersistDomain domain) {
        if (domain == PersistDomain::WORKSPACE) {
            saved.Set();
        }
    });
    manager_->SaveJob("a");
    manager_->NotifyChange(a_, PersistDomain::WORKSPACE);
    std::atomic<bool> stop{false};
    const std::function<void()> work[] = {
        [&] { manager_->NotifyChange(n_, PersistDomain::GLOBAL), manager_->NotifyLoad(n_, PersistDomain::GLOBAL); },
        [&] { manager_->LoadJob("a"), manager_->SaveJob("b"), manager_->LiveJob(); },
        [&] { manager_->ListJobs(), manager_->JobData("a"), manager_->ListRegistered(), manager_->CurrentWorkspace(); },
        [&] { manager_->UnregisterHandler(manager_->RegisterHandler(n_, "Other")), manager_->FlushGlobal(); },
    };
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (const auto& step : work) {
        threads.emplace_back([&] {
            while (!stop) {
                try {
                    step();
                } catch (const std::exception&) {
                    ++failures;
                }
                std::this_thread::yield();
            }
        });
    }
    EXPECT_TRUE(saved.Await());
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    manager_.reset();
    EXPECT_EQ(Items(*files_.Get("Global.tar")).count("/Laser/N"), 1U);
}

TEST_F(ManagerThreadsTest, DestructionWaitsForASaveThatIsUnderWay)
{
    const VxTestSupport::ScopedLogCapture log;
    VxTestSupport::Signal entered;
    std::atomic<bool> destroying{false};
    files_.BeforeNext(FileOp::Upload, "Global.tar", 1, [&] {
        entered.Set();
        destroying = VxTestSupport::Eventually([&] { return log.Count("Destroying PersistManager.") == 1; }, bound);
    });
    a_.values[PersistDomain::GLOBAL] = "last";
    manager_->NotifyChange(a_, PersistDomain::GLOBAL);
    ASSERT_TRUE(entered.Await());
    manager_.reset();
    EXPECT_TRUE(destroying);
    EXPECT_EQ(Items(*files_.Get("Global.tar"))["/A"], "last");
    EXPECT_EQ(journal_, Journal({"changed GLOBAL", "A: Save GLOBAL", "persisted GLOBAL"}));
}

// Hands each call that is scheduled to the test, which runs it where and when it likes.
class HeldTime final : public Vx::TimeService
{
public:
    TimePoint Now() const override { return {}; }
    Ticket Schedule(TimePoint, std::function<void()> callback) override
    {
        calls.push_back(std::move(callback));
        return calls.size();
    }
    void Cancel(Ticket) override {}
    void Wait(Ticket) override {}
    void Sleep(std::chrono::microseconds) override { onSleep(); }
    std::function<void()> onSleep;
    std::vector<std::function<void()>> calls;
};

TEST_F(ManagerThreadsTest, ACallbackThatWaitedForTheLockIsTooLate)
{
    HeldTime time;
    Vx::TimeService* previous = Vx::TimeService::Replace(&time);
    Start();
    Vx::TimeService::Replace(previous);
    for (const bool shutdown : {true, false}) {
        manager_->NotifyChange(a_, PersistDomain::GLOBAL);
        const std::size_t writes = files_.Writes("Global.tar");
        std::thread callback;
        {
            const Vx::Locker locker(manager_->GetLock());
            std::atomic<bool> running{false};
            callback = std::thread([&running, call = time.calls.back()] {
                running = true;
                call();
            });
            while (!running) {
                std::this_thread::yield();
            }
            for (int i = 0; i < 1000; ++i) {
                std::this_thread::yield();  // Mostly it waits for the lock by now; it must not save in any case.
            }
            shutdown ? manager_->Shutdown() : manager_->NotifyChange(a_, PersistDomain::GLOBAL);
        }
        callback.join();
        EXPECT_EQ(files_.Writes("Global.tar"), writes + (shutdown ? 1 : 0));
    }
    time.calls.back()();
    EXPECT_FALSE(manager_->HasUnsavedChanges(PersistDomain::GLOBAL));
    manager_.reset();
}

TEST_F(ManagerThreadsTest, WhoeverReadsAgainHoldsNoLockAndNothingTakesTheFilesPlace)
{
    HeldTime time;
    Vx::TimeService* previous = Vx::TimeService::Replace(&time);
    Start();
    const Bytes good = Image({{"/A", "stored"}});
    const std::pair<const char*, std::function<void()>> loads[] = {{"Global.tar", [&] { manager_->LoadGlobal(); }},
                                                                   {"a.vpjob", [&] { manager_->LoadDefaultJob(); }}};
    files_.Put("a.vpjob", good);
    manager_->SetDefaultJob("a");
    for (const auto& [file, load] : loads) {
        files_.Put(file, good);
        files_.FailNext(FileOp::Download, file, 1, Nucleo::ERROR_IO);
        VxTestSupport::Signal taken;
        std::thread other;
        time.onSleep = [&, &name = file] {
            other = std::thread([&] {
                manager_->NotifyChange(a_, PersistDomain::GLOBAL);
                time.calls.back()();  // The automatic save.
                taken.Set();
            });
            EXPECT_TRUE(taken.Await());
            EXPECT_EQ(files_.Get(name), good);
        };
        load();
        other.join();
        EXPECT_EQ(a_.values[std::string(file) == "a.vpjob" ? PersistDomain::JOB : PersistDomain::GLOBAL], "stored");
    }
    manager_.reset();
    Vx::TimeService::Replace(previous);
}

}  // namespace
}  // namespace VxCommon
