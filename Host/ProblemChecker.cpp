#include "ProblemChecker.h"

#include <exception>
#include <utility>

#include <VxApi/Logging.h>

namespace VxHost
{
ProblemChecker::ProblemChecker(VxCommon::ProblemsManager& problems, std::vector<ProblemSource> sources)
    : problems_(problems), sources_(std::move(sources))
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
    for (const ProblemSource& source : sources_) {
        for (const Finding& finding : source()) {
            tracker_.Register(problems_.Add(finding.severity, finding.source, "%s", finding.text));
        }
    }
}

}  // namespace VxHost
