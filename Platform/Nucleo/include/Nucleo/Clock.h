#pragma once
// The runtime's clocks. Safe on any thread.

#include <cstdint>

namespace Nucleo
{

/// Wall-clock time: microseconds since 1970-01-01T00:00:00 UTC.
std::uint64_t DateTime_Now() noexcept;

/// Microseconds since the process started its first use of the runtime. Never goes back.
std::uint64_t UpTime_Now() noexcept;

}  // namespace Nucleo
