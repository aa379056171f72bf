#include "ProblemChecker.h"

#include <exception>
#include <utility>

#include <VxApi/Logging.h>

namespace VxHost
{
namespace
{

constexpr VcProblemSeverity potential = VcProblemSeverity_Potential;
constexpr VcProblemSeverity blocking = VcProblemSeverity_Blocking;

}  // namespace

ProblemChecker::ProblemChecker(VxCommon::ProblemsManager& problems, StorageLimits limits, ProblemSources sources)
    : problems_(problems), limits_(limits), sources_(std::move(sources))
{
    try {
        Check();
    } catch (const std::exception& exception) {  // The next check may succeed.
        Vx_Debug_Log(Error, "The first look for problems failed (%s).", exception.what());
    }
    const Nucleo::MutexGuard guard(mutex_);
    timer_ = std::make_unique<Vx::AsyncTimer>("problemChecker", [this] { OnTimer(); });
    timer_->Start(Period);
}

ProblemChecker::~ProblemChecker()
{
    std::unique_ptr<Vx::AsyncTimer> timer;
    {
        const Nucleo::MutexGuard guard(mutex_);
        timer = std::move(timer_);
    }
    // Here the timer waits for its callback, without the lock that this takes. The tracker withdraws after it.
    timer.reset();
}

void ProblemChecker::OnTimer()
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        if (!timer_) {
            return;
        }
        timer_->Start(Period);
    }
    Check();
}

void ProblemChecker::Check()
{
    tracker_.Begin();
    try {
        Report();
    } catch (...) {
        tracker_.End();
        throw;
    }
    tracker_.End();
}

void ProblemChecker::Report()
{
    // The texts hold nothing that changes from check to check: each new text is a new problem.
    const auto report = [this](VcProblemSeverity severity, const char* source, const char* format,
                               const auto&... args) {
        tracker_.Register(problems_.Add(severity, source, format, args...));
    };
    const double storageUse = sources_.storageUse();
    if (storageUse > limits_.blocking) {
        report(blocking, "Storage", "The storage of the data folder is more than %u %% full.", limits_.blocking);
    } else if (storageUse > limits_.warning) {
        report(potential, "Storage", "The storage of the data folder is more than %u %% full.", limits_.warning);
    }
    for (const std::string& domain : sources_.unsavedDomains()) {
        report(blocking, "Auto-save", "The %s domain cannot be saved.", domain);
    }
    for (const std::string& file : sources_.setAsideFiles()) {
        report(potential, "Start", "The file %s was damaged at start; what it held is kept as %s.d01 to .d05.", file,
               file);
    }
    for (const std::string& interface : sources_.downInterfaces()) {
        report(potential, "Network", "The interface %s is down.", interface);
    }
}

}  // namespace VxHost
