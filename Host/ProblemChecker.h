#pragma once
// Looks once a second for what users should know of, and reports it to the problems manager.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <Nucleo/Lock.h>
#include <VxApi/AsyncTimer.h>
#include <VxCommon/ProblemsManager/ProblemsTracker.h>

namespace VxHost
{

/// What users should know of. The text holds nothing that changes from look to look: each new text is a new problem.
struct Finding
{
    VcProblemSeverity severity = VcProblemSeverity_Potential;
    const char* source = "";
    std::string text;
};

/// Looks at one kind of fact, once in every check, on the thread that checks. One that throws ends that check; what it
/// has not reported counts as not seen.
using ProblemSource = std::function<std::vector<Finding>()>;

/// Checks on the timer thread, the first time in the constructor. A problem that is not seen any more goes away with
/// the next check; a check that sees what the one before saw notifies nobody. Made and destroyed by one thread.
class ProblemChecker
{
public:
    static constexpr std::chrono::microseconds Period{1'000'000};

    /// `problems`, and what the sources use, must outlive the checker.
    ProblemChecker(VxCommon::ProblemsManager& problems, std::vector<ProblemSource> sources);

    /// Waits for a check that is under way, then withdraws what was reported. The caller holds no lock that the sources
    /// or listeners of the problems take.
    ~ProblemChecker();
    ProblemChecker(const ProblemChecker&) = delete;
    ProblemChecker& operator=(const ProblemChecker&) = delete;

private:
    void Check();
    void Report();
    void OnTimer();

    // Used by the thread that checks: the constructing one, then the timer's.
    VxCommon::ProblemsManager& problems_;
    const std::vector<ProblemSource> sources_;
    VxCommon::ProblemsTracker tracker_{problems_};

    Nucleo::Mutex mutex_;
    std::unique_ptr<Vx::AsyncTimer> timer_ VX_GUARDED_BY(mutex_);  // Null once the checker ends.
};

}  // namespace VxHost
