#pragma once
// Lets the nodes of the virtual system report their health once a second.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <set>
#include <vector>

#include <Nucleo/Lock.h>
#include <TesselLib/System.h>
#include <VxApi/AsyncTimer.h>

#include "MachineCounters.h"

namespace VxHost
{

/// Reports on the timer thread, the first time in the constructor: for the local node what the machine says, for each
/// simulated node what SimulatedReport makes up. Made and destroyed by one thread; all else is safe on any thread.
class HealthReporter
{
public:
    static constexpr std::chrono::microseconds Period{1'000'000};

    /// `system`, a virtual one of the local node and `simulatedNodes` others, must outlive the reporter.
    HealthReporter(TesselLib::System& system, std::uint32_t simulatedNodes, MachineCounters counters);

    /// Waits for a report that is under way, and for a moment until the platform has delivered what it took.
    ~HealthReporter() = default;
    HealthReporter(const HealthReporter&) = delete;
    HealthReporter& operator=(const HealthReporter&) = delete;

    /// What the machine said when it was last asked.
    MachineReading Latest() const;

    /// Whether the node, any of the system, reports.
    bool IsReporting(std::uint32_t nodeId) const;

    /// Silences a simulated node, or wakes it: it reports again with the next report of all, its counters being where
    /// they would be without the silence. Returns whether this changed anything. Throws Vx::Exception: ERROR_NOT_FOUND
    /// when there is no such node, ERROR_STATE for the local one.
    bool SetReporting(std::uint32_t nodeId, bool reporting);

    /// How many reports the platform did not take so far.
    std::uint64_t RefusedReports() const noexcept { return refused_; }

private:
    void OnTimer();
    void ReportAll();
    void ReportNode(std::uint32_t nodeId, const std::vector<TesselLib::HealthStatistic>& report);

    // Used by the thread that reports: the constructing one, then the timer's. The first two are constant.
    TesselLib::System& system_;
    const std::uint32_t simulatedNodes_;
    MachineCounters counters_;
    std::uint64_t tick_ = 0;

    std::atomic<std::uint64_t> refused_{0};
    mutable Nucleo::Mutex mutex_;  // A leaf: nothing is called under it.
    MachineReading latest_ VX_GUARDED_BY(mutex_);
    std::set<std::uint32_t> silenced_ VX_GUARDED_BY(mutex_);

    struct Delivery
    {
        TesselLib::System& system;
        ~Delivery();
    };
    Delivery delivery_{system_};  // Ends after the timer, so after the last report.

    // The last member: its end waits for the callback, which uses the others.
    Vx::AsyncTimer timer_{"healthReporter", [this] { OnTimer(); }};
};

}  // namespace VxHost
