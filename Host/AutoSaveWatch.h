#pragma once
// Sees to it that every change of the GLOBAL and the WORKSPACE domain gets to its file.
//
// The persist manager saves a domain 250 ms after its last change, and forgets a change once it began to save. So two
// things need watching: changes that come too fast for a pause ever to happen, and saves that failed, which users are
// told of at once.

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <VxApi/Event.h>
#include <VxCommon/Persistence/PersistManager.h>

namespace VxHost
{

/// Any thread may call. Lock order: the manager's lock, then the watch's own, which is never held while the manager is
/// called. The saves run on the timer thread.
class AutoSaveWatch
{
public:
    /// A domain that has been waiting this long is saved, whatever goes on.
    static constexpr std::chrono::microseconds Patience{2'000'000};

    /// After each save that failed, the next is tried after a delay that begins with Patience, doubles, and ends here.
    static constexpr std::chrono::microseconds LongestDelay{60'000'000};

    /// Watches from now on. `manager` must outlive the watch.
    explicit AutoSaveWatch(VxCommon::PersistManager& manager);

    /// Ends watching; waits for a save of the watch's own that is under way. The caller must not be inside a call of
    /// the manager.
    ~AutoSaveWatch();
    AutoSaveWatch(const AutoSaveWatch&) = delete;
    AutoSaveWatch& operator=(const AutoSaveWatch&) = delete;

    /// Counts the domain as waiting: what is in memory is not what its file holds.
    void Expect(VxCommon::PersistDomain domain);

    /// Whether the domain has changes that are not on disk yet.
    bool IsWaiting(VxCommon::PersistDomain domain) const;

    /// How many saves have failed since the domain was last saved.
    std::uint64_t FailedSaves(VxCommon::PersistDomain domain) const;

    /// At the end: saves now what is still waiting. Gives one message for each domain that could not be saved.
    std::vector<std::string> SaveWaiting();

private:
    struct State;

    // Shared with the listeners, which may still be running on another thread when the watch ends.
    const std::shared_ptr<State> state_;
    std::array<Vx::Subscription, 3> subscriptions_;
};

}  // namespace VxHost
