#include <VxCommon/ProblemsManager/ProblemsTracker.h>

#include <new>

#include <algorithm>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

namespace VxCommon
{
namespace
{

// Lines and functions are part of the reports that their readers know.
constexpr Vx::Location At(int line, std::string_view function)
{
    return {"ProblemsManager/ProblemsTracker", line, function};
}

}  // namespace

ProblemsTracker::ProblemsTracker(const ProblemsTracker& other) : manager_(other.manager_)
{
    // Room first: a report that was taken and then lost could not be withdrawn.
    previous_.reserve(other.previous_.size());
    current_.reserve(other.current_.size());
    const auto retains = [this](const ProblemIterator& problem) { return manager_.Retain(problem); };
    std::copy_if(other.previous_.begin(), other.previous_.end(), std::back_inserter(previous_), retains);
    std::copy_if(other.current_.begin(), other.current_.end(), std::back_inserter(current_), retains);
}

ProblemsTracker::~ProblemsTracker()
{
    Withdraw(current_);
    Withdraw(previous_);
}

std::int32_t ProblemsTracker::Begin()
{
    if (depth_ == 0) {
        // Empty but in the copy of a tracker that was inside a cycle.
        previous_.insert(previous_.end(), current_.begin(), current_.end());
        current_.clear();
        manager_.BeginUpdate();
    }
    return ++depth_;
}

void ProblemsTracker::Register(const ProblemIterator& problem)
{
    if (depth_ < 1) {
        VX_THROW_AT(At(61, "VxCommon::ProblemsTracker::Register"), ERROR_STATE);
    }
    try {
        current_.push_back(problem);
    } catch (const std::bad_alloc&) {
        manager_.TryRemove(problem);  // Nobody else would withdraw the report.
        throw;
    }
}

std::int32_t ProblemsTracker::End()
{
    if (depth_ < 1) {
        VX_THROW_AT(At(39, "VxCommon::ProblemsTracker::End"), ERROR_STATE);
    }
    if (--depth_ == 0) {
        Withdraw(previous_);
        manager_.EndUpdate();
    }
    return depth_;
}

std::size_t ProblemsTracker::CountOf(VcProblemSeverity severity) const noexcept
{
    return static_cast<std::size_t>(
        std::count_if(current_.begin(), current_.end(),
                      [severity](const ProblemIterator& it) { return it && it->severity == severity; }));
}

void ProblemsTracker::Withdraw(std::vector<ProblemIterator>& problems) noexcept
{
    for (const ProblemIterator& problem : problems) {
        try {
            manager_.TryRemove(problem);
        } catch (const std::exception& exception) {
            // A listener's, once the report is withdrawn: the others follow all the same.
            Vx::LogException(VX_HERE, exception);
        } catch (...) {
            Vx_Debug_Log(Error, "A listener of the problems failed with an unknown exception.");
        }
    }
    problems.clear();
}

}  // namespace VxCommon
