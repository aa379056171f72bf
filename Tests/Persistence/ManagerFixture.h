#pragma once
// A persist manager over files in memory, with a handler without a name, one with a name, and every event written down.

#include <Tests/Persistence/StorageFixture.h>
#include <VxCommon/Persistence/PersistManager.h>
#include <VxTestSupport/ManualTime.h>

namespace VxCommon
{

class ManagerFixture : public StorageFixture
{
protected:
    ManagerFixture() { Restart(); }

    /// A new manager over the same files.
    void Restart()
    {
        manager_.reset();
        manager_ = std::make_unique<PersistManager>(system_, updatable_);
        manager_->RegisterHandler(a_, "");
        manager_->RegisterHandler(n_, "Laser");
        subscriptions_.clear();
        subscriptions_.push_back(manager_->JobChangedEvent().Subscribe([this](auto change, const std::string& name) {
            static const Journal names{"JobCreated",
                                       "JobDeleted",
                                       "JobUpdated",
                                       "JobsCleared",
                                       "JobLoaded",
                                       "JobModified",
                                       "LoadedJobStateChanged",
                                       "DefaultJobChanged"};
            journal_.push_back(names.at(static_cast<std::size_t>(change)) + "(" + name + ") " + State());
        }));
        subscriptions_.push_back(manager_->DomainChangedEvent().Subscribe(
            [this](PersistDomain domain) { journal_.push_back("changed " + PersistDomain_Name(domain)); }));
        subscriptions_.push_back(manager_->DomainPersistedEvent().Subscribe(
            [this](PersistDomain domain) { journal_.push_back("persisted " + PersistDomain_Name(domain)); }));
    }

    /// The same, initialised.
    void Start()
    {
        Restart();
        manager_->Init();
        journal_.clear();
    }

    /// "<loaded job>[* when modified]|<default job>".
    std::string State() const
    {
        return manager_->LoadedJob() + (manager_->IsJobModified() ? "*" : "") + "|" + manager_->DefaultJob();
    }

    Journal journal_;
    Journal updates_;
    FakeUpdatable updatable_{updates_};
    FakeHandler a_{"A", journal_};
    FakeHandler n_{"N", journal_};
    std::vector<Vx::Subscription> subscriptions_;
    std::unique_ptr<PersistManager> manager_;
};

constexpr const char* managerTag = "Persistence/PersistManager";
constexpr const char* recordFile = "PersistRecord.xml";

/// Made before the manager is, whose timers stay with the time in which they were made.
struct ManualTimeHolder
{
    VxTestSupport::ScopedManualTime time_;
};

/// The same on time that the test drives.
class TimedManagerFixture : protected ManualTimeHolder, public ManagerFixture
{};

}  // namespace VxCommon
