#pragma once
// Clocks that the test drives: while a ScopedClock lives, the runtime's wall clock and timer show what it is set to.
// One lives at a time; its values may be set from any thread, the scale only while no other thread reads the timer.

#include <atomic>
#include <cstdint>

#include <Nucleo/Clock.h>

namespace VxTestSupport
{

class ScopedClock
{
public:
    /// Both clocks show 0. One count of the timer is multiplier / divider microseconds.
    explicit ScopedClock(std::uint64_t multiplier = 1, std::uint64_t divider = 1)
    {
        SetDateTime(0);
        SetTimer(0);
        SetScale(multiplier, divider);
        Nucleo::Clock_Replace(&source_);
    }
    ~ScopedClock() { Nucleo::Clock_Replace(nullptr); }
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;

    /// Microseconds since 1970.
    void SetDateTime(std::uint64_t dateTime) { dateTime_ = dateTime; }

    /// Raw counts.
    void SetTimer(std::uint64_t raw) { timer_ = raw; }

    void SetScale(std::uint64_t multiplier, std::uint64_t divider)
    {
        source_.multiplier = multiplier;
        source_.divider = divider;
    }

private:
    // The runtime asks plain functions.
    static inline std::atomic<std::uint64_t> dateTime_{0};
    static inline std::atomic<std::uint64_t> timer_{0};

    Nucleo::ClockSource source_{[] { return dateTime_.load(); }, [] { return timer_.load(); }, 1, 1};
};

}  // namespace VxTestSupport
