#include "AutoSaveWatch.h"

#include <algorithm>
#include <utility>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

namespace VxHost
{
namespace
{

using VxCommon::PersistDomain;
using VxCommon::PersistManager;

constexpr PersistDomain watchedDomains[] = {PersistDomain::GLOBAL, PersistDomain::WORKSPACE};

bool IsWatched(PersistDomain domain)
{
    return domain == PersistDomain::GLOBAL || domain == PersistDomain::WORKSPACE;
}

std::chrono::microseconds DelayAfter(std::uint64_t failedSaves)
{
    constexpr std::uint64_t doublings = 5;  // More would be beyond the longest delay.
    return std::min<std::chrono::microseconds>(AutoSaveWatch::Patience * (1LL << std::min(failedSaves, doublings)),
                                               AutoSaveWatch::LongestDelay);
}

}  // namespace

struct AutoSaveWatch::State
{
    struct Domain
    {
        std::unique_ptr<Vx::AsyncTimer> timer;  // Null once the watch has ended.
        bool waiting = false;
        std::uint64_t saves = 0;        // Those that succeeded.
        std::uint64_t failedSaves = 0;  // Since then.
    };

    explicit State(PersistManager& persistManager) : manager(persistManager) {}

    Domain& Of(PersistDomain domain) VX_REQUIRES(mutex) { return domains[domain == PersistDomain::GLOBAL ? 0 : 1]; }

    // Starts to wait, unless the domain waits already: the patience counts from the first change.
    void OnChanged(PersistDomain domain) VX_EXCLUDES(mutex)
    {
        const Nucleo::MutexGuard guard(mutex);
        Domain& watched = Of(domain);
        if (watched.timer && !watched.timer->IsRunning()) {
            watched.waiting = true;
            watched.timer->Start(Patience);
        }
    }

    void OnPersisted(PersistDomain domain) VX_EXCLUDES(mutex)
    {
        // A handler may have notified from inside its own save: the file does not hold that.
        const bool changedAgain = manager.HasUnsavedChanges(domain);
        std::uint64_t failedSaves = 0;
        {
            const Nucleo::MutexGuard guard(mutex);
            Domain& watched = Of(domain);
            ++watched.saves;
            failedSaves = std::exchange(watched.failedSaves, 0);
            watched.waiting = changedAgain;
            if (!watched.timer) {
                return;
            }
            if (changedAgain) {
                watched.timer->Start(Patience);
            } else {
                watched.timer->Stop();
            }
        }
        if (failedSaves != 0) {
            Vx::Logging::Public(Vx::Logging::Level::Info, "Auto-save", "The %s domain is saved, after %llu failures.",
                                VxCommon::PersistDomain_Name(domain), failedSaves);
        }
    }

    void OnTimer(PersistDomain domain) VX_EXCLUDES(mutex)
    {
        std::uint64_t savesBefore = 0;
        {
            const Nucleo::MutexGuard guard(mutex);
            if (!Of(domain).waiting) {
                return;
            }
            savesBefore = Of(domain).saves;
        }
        Vx_Debug_Log(Warning, "The %s domain has been waiting to be saved for long: saving it now.",
                     VxCommon::PersistDomain_Name(domain));
        try {
            if (domain == PersistDomain::GLOBAL) {
                manager.FlushGlobal();
            } else {
                manager.FlushWorkspace();
            }
        } catch (const std::exception& exception) {
            OnFailure(domain, savesBefore, exception);
        }
    }

    // What began when `savesBefore` saves were done has failed.
    void OnFailure(PersistDomain domain, std::uint64_t savesBefore, const std::exception& exception) VX_EXCLUDES(mutex)
    {
        std::chrono::microseconds delay{};
        {
            const Nucleo::MutexGuard guard(mutex);
            Domain& watched = Of(domain);
            if (watched.saves != savesBefore) {
                return;  // It was saved since: by another thread, or before what failed.
            }
            delay = DelayAfter(watched.failedSaves++);
            watched.waiting = true;
            if (!watched.timer) {
                return;
            }
            watched.timer->Start(delay);
        }
        Vx::Logging::Public(Vx::Logging::Level::Error, "Auto-save",
                            "The %s domain cannot be saved (%s); trying again in %lld s.",
                            VxCommon::PersistDomain_Name(domain), exception.what(),
                            std::chrono::duration_cast<std::chrono::seconds>(delay).count());
    }

    // An automatic save of the manager has failed.
    void OnAutoSaveFailed(PersistDomain domain, const std::exception& exception) VX_EXCLUDES(mutex)
    {
        std::uint64_t saves = 0;
        {
            const Nucleo::MutexGuard guard(mutex);
            saves = Of(domain).saves;
        }
        OnFailure(domain, saves, exception);
    }

    bool IsWaiting(PersistDomain domain) VX_EXCLUDES(mutex)
    {
        const Nucleo::MutexGuard guard(mutex);
        return IsWatched(domain) && Of(domain).waiting;
    }

    // Constant after construction.
    PersistManager& manager;

    Nucleo::Mutex mutex;
    std::array<Domain, 2> domains VX_GUARDED_BY(mutex);
};

AutoSaveWatch::AutoSaveWatch(PersistManager& manager) : state_(std::make_shared<State>(manager))
{
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        for (const PersistDomain domain : watchedDomains) {
            // The timer belongs to the watch alone, and its end waits for the callback: no share is needed here.
            state_->Of(domain).timer = std::make_unique<Vx::AsyncTimer>(
                "autoSaveWatch", [state = state_.get(), domain] { state->OnTimer(domain); });
        }
    }
    subscriptions_[0] = manager.DomainChangedEvent().Subscribe([state = state_](PersistDomain domain) {
        if (IsWatched(domain)) {
            state->OnChanged(domain);
        }
    });
    subscriptions_[1] = manager.DomainPersistedEvent().Subscribe([state = state_](PersistDomain domain) {
        if (IsWatched(domain)) {
            state->OnPersisted(domain);
        }
    });
    subscriptions_[2] = manager.AutoSaveFailedEvent().Subscribe(
        [state = state_](PersistDomain domain, const std::exception& exception) {
            state->OnAutoSaveFailed(domain, exception);
        });
}

AutoSaveWatch::~AutoSaveWatch()
{
    for (Vx::Subscription& subscription : subscriptions_) {
        subscription.Reset();
    }
    std::array<std::unique_ptr<Vx::AsyncTimer>, 2> timers;
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        for (std::size_t i = 0; i < timers.size(); ++i) {
            timers[i] = std::move(state_->domains[i].timer);
        }
    }
    // Here the timers wait for their callbacks, without the lock that those take.
}

void AutoSaveWatch::Expect(PersistDomain domain)
{
    if (IsWatched(domain)) {
        state_->OnChanged(domain);
    }
}

bool AutoSaveWatch::IsWaiting(PersistDomain domain) const
{
    return state_->IsWaiting(domain);
}

std::uint64_t AutoSaveWatch::FailedSaves(PersistDomain domain) const
{
    const Nucleo::MutexGuard guard(state_->mutex);
    return IsWatched(domain) ? state_->Of(domain).failedSaves : 0;
}

std::vector<std::string> AutoSaveWatch::SaveWaiting()
{
    std::vector<std::string> failures;
    for (const PersistDomain domain : watchedDomains) {
        if (!IsWaiting(domain)) {
            continue;
        }
        try {
            if (domain == PersistDomain::GLOBAL) {
                state_->manager.SaveGlobal();
            } else {
                state_->manager.SaveWorkspace();
            }
        } catch (const std::exception& exception) {
            failures.push_back("the " + VxCommon::PersistDomain_Name(domain) +
                               " domain could not be saved: " + exception.what());
        }
    }
    return failures;
}

}  // namespace VxHost
