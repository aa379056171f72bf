#pragma once
// What the kernel's text files say. Lines that are not understood are passed over; nothing throws but for want of
// memory.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace VxHost
{

/// What one core did since boot, in the kernel's ticks. A core that stays may show a little less idle time than before.
struct CoreTimes
{
    std::uint32_t core = 0;
    std::uint64_t busy = 0;
    std::uint64_t idle = 0;  ///< Waiting for devices included.
};

/// The cores that are on, from the text of /proc/stat.
std::vector<CoreTimes> ParseCoreTimes(std::string_view text);

/// What went through an interface, in bytes.
struct InterfaceBytes
{
    std::string name;
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
};

/// The interfaces, loopback ones too, in the kernel's order, from the text of /proc/net/dev.
std::vector<InterfaceBytes> ParseInterfaceBytes(std::string_view text);

}  // namespace VxHost
