#pragma once
// Sits between a periodic checker and the problems manager, so that problems that are no longer seen vanish without the
// checker having to remember them.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <VxCommon/ProblemsManager/ProblemsManager.h>

namespace VxCommon
{

/// A cycle of a checker is
///     tracker.Begin();
///     tracker.Register(manager.Add(...));  // for each problem that is seen
///     tracker.End();
/// and makes at most one notification. One that is seen again never leaves the list; one that is not seen again is
/// withdrawn at End. Problems that others took out of the list meanwhile are passed over. Used by one thread at a time.
class VXCOMMON_API ProblemsTracker
{
public:
    /// `manager` must outlive the tracker.
    explicit ProblemsTracker(ProblemsManager& manager) : manager_(manager) {}

    /// A tracker of the same problems, with reports of its own, outside every cycle.
    ProblemsTracker(const ProblemsTracker& other);
    ProblemsTracker& operator=(const ProblemsTracker&) = delete;

    /// Withdraws every report. Does not end a cycle that is open, nor the manager's batch that belongs to it. What
    /// listeners throw is logged.
    ~ProblemsTracker();

    /// Begins a cycle, or nests one deeper. Gives the new depth.
    std::int32_t Begin();

    /// Takes over the report that `problem` stands for. Throws Vx::Exception with ERROR_STATE outside a cycle.
    void Register(const ProblemIterator& problem);

    /// Ends a cycle: the outermost one withdraws what the cycle before it registered. Gives the new depth. Throws
    /// Vx::Exception with ERROR_STATE, and changes nothing, outside a cycle; what a listener throws comes out after the
    /// cycle has ended.
    std::int32_t End();

    /// How many problems the last or the open cycle registered, all of them or by severity.
    std::size_t Count() const noexcept { return current_.size(); }
    std::size_t BlockingCount() const noexcept { return CountOf(VcProblemSeverity_Blocking); }
    std::size_t PotentialCount() const noexcept { return CountOf(VcProblemSeverity_Potential); }

private:
    std::size_t CountOf(VcProblemSeverity severity) const noexcept;

    /// Withdraws all reports of a list and empties it.
    void Withdraw(std::vector<ProblemIterator>& problems) noexcept;

    std::int32_t depth_ = 0;
    ProblemsManager& manager_;
    std::vector<ProblemIterator> previous_;
    std::vector<ProblemIterator> current_;
};

}  // namespace VxCommon
