#pragma once

#include <VxApi/AsyncTimer.h>
#include <VxCommon/ProblemsManager/ProblemsTracker.h>
#include <VxCommon/VcStatistics/VcStatistics.h>

#include "Acquisition.h"
#include "Lamp.h"

/// Takes a sample and looks for problems once a second, on the timer thread.
class Watch
{
public:
    /// All three must outlive the watch.
    Watch(const Lamp& lamp, const Acquisition& acquisition, VxCommon::ProblemsManager& problems)
        : lamp_(lamp), acquisition_(acquisition), problems_(problems)
    {
        timer_.Start(std::chrono::seconds(1));
    }

private:
    void OnTimer()
    {
        timer_.Start(std::chrono::seconds(1));
        if (!acquisition_.IsPaused()) {
            samples_.Add(static_cast<std::uint64_t>(lamp_.Brightness(VxCommon::PersistDomain::JOB)));
        }
        tracker_.Begin();
        try {
            if (samples_.SimpleMovingAverage() > 90) {
                tracker_.Register(problems_.Add(VcProblemSeverity_Potential, "Lamp", "The lamp is hot."));
            }
        } catch (...) {
            tracker_.End();
            throw;
        }
        tracker_.End();
    }

    const Lamp& lamp_;
    const Acquisition& acquisition_;
    VxCommon::ProblemsManager& problems_;
    VxCommon::ProblemsTracker tracker_{problems_};
    VxCommon::VcStatistics samples_;
    Vx::AsyncTimer timer_{"watch", [this] { OnTimer(); }};  // The last member: its end waits for the callback.
};
