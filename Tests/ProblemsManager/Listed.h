#pragma once
// What the tests of the problems show.

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <VxApi/Locker.h>
#include <VxCommon/ProblemsManager/ProblemsManager.h>
#include <VxTestSupport/Thrown.h>

namespace VxCommonTest
{

inline constexpr VcProblemSeverity potential = VcProblemSeverity_Potential;
inline constexpr VcProblemSeverity blocking = VcProblemSeverity_Blocking;

/// "source: msg refCount" of every problem.
inline std::vector<std::string> Listed(const VxCommon::ProblemsManager& manager)
{
    const Vx::Locker locker(manager.GetLock());
    std::vector<std::string> listed;
    for (const VxCommon::Problem& problem : manager.Enumerate()) {
        listed.push_back(problem.source + ": " + problem.msg + " " + std::to_string(problem.refCount));
    }
    EXPECT_EQ(manager.Count(), listed.size());
    return listed;
}

/// "status file line function" of the exception that `action` throws.
inline std::string Thrown(const std::function<void()>& action)
{
    const auto exception = VxTestSupport::Caught(action);
    return exception ? std::to_string(exception->Status()) + " " + exception->File() + " " +
                           std::to_string(exception->Line()) + " " + exception->Function()
                     : "nothing";
}

}  // namespace VxCommonTest
