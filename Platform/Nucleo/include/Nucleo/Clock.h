#pragma once
// The runtime's clocks. Safe on any thread. Tests put their own in place of both.

#include <cstddef>
#include <cstdint>

#include <Nucleo/Status.h>

namespace Nucleo
{

/// Wall-clock time: microseconds since 1970-01-01T00:00:00 UTC.
std::uint64_t DateTime_Now() noexcept;

/// How DateTime_Format writes a time; all in UTC.
enum class DateTimeStyle : std::int32_t
{
    Date = 1,         ///< 2026-11-21
    Time = 2,         ///< 14:05:09
    DateAndTime = 3,  ///< 2026-11-21 14:05:09.250; the first 19 characters are the time to the second.
    Iso8601 = 4,      ///< 2026-11-21T14:05:09.250Z
};

/// Writes `dateTime` NUL-ended into `capacity` bytes. ERROR_CAPACITY when it does not fit, ERROR_PARAMETER for an
/// unknown style or a time beyond the year 9999; the buffer then holds an empty text (when it has any room).
Status DateTime_Format(std::uint64_t dateTime, DateTimeStyle style, char* buffer, std::size_t capacity) noexcept;

/// The platform timer: a raw count that never goes back. The count times the multiplier divided by the divider gives
/// microseconds from some fixed point (the machine's start).
std::uint64_t Timer_Query() noexcept;
std::uint64_t Timer_Multiplier() noexcept;
std::uint64_t Timer_Divider() noexcept;

/// A raw count as microseconds: raw * multiplier / divider, exact whatever the product takes on the way; modulo 2^64.
std::uint64_t Timer_Scale(std::uint64_t raw) noexcept;

/// Microseconds since the process's first use of these functions; of a replaced timer, since its count 0. Never goes
/// back.
std::uint64_t UpTime_Now() noexcept;

/// The same at a count that Timer_Query() answered.
std::uint64_t UpTime_At(std::uint64_t timer) noexcept;

/// Both clocks at one moment, for less than the price of one: between two looks at the kernel's clocks, at most a
/// millisecond apart, the time is counted on by the processor's ticks where the kernel trusts them. It is within two
/// microseconds of Timer_Query() and never goes back on one thread.
struct ClockReading
{
    std::uint64_t timer;     ///< As Timer_Query().
    std::uint64_t scaled;    ///< The same in microseconds, as Timer_Scale().
    std::uint64_t dateTime;  ///< As DateTime_Now(), but for a step of the wall clock within the last millisecond.
};
ClockReading Clock_Read() noexcept;

/// Clocks that tests put in place of the machine's.
struct ClockSource
{
    std::uint64_t (*dateTime)();
    std::uint64_t (*timer)();
    std::uint64_t multiplier;
    std::uint64_t divider;  ///< Not 0.
};

/// Null: the machine's clocks again. `source` must stay alive while it is in place.
void Clock_Replace(const ClockSource* source) noexcept;

}  // namespace Nucleo
