#pragma once
// What the machine said of itself at one moment. Plain values.

#include <cstdint>
#include <string>
#include <vector>

namespace VxHost
{

struct CoreReading
{
    std::uint32_t number = 0;                 ///< As the kernel numbers it; cores that are switched off are missing.
    std::uint64_t load = 0;                   ///< Percent since the reading before, 0..100; at first since boot.
    double busySeconds = 0, idleSeconds = 0;  ///< Since boot; they shrink only when the core begins anew.
};

struct InterfaceReading
{
    std::string name;                        ///< Bytes as the kernel has them.
    bool up = false;                         ///< Switched on, and has a carrier.
    std::uint64_t capacity = 0;              ///< bit/s; 0 when unknown.
    std::uint64_t rxBytes = 0, txBytes = 0;  ///< As the kernel counts them; they may begin anew.
    std::uint64_t rxRate = 0, txRate = 0;    ///< byte/s since the reading before; 0 at first.
};

struct VolumeReading
{
    std::string path;
    std::uint64_t used = 0, capacity = 0;  ///< Bytes.
};

/// Parts that could not be read are empty, or as they were.
struct MachineReading
{
    std::vector<CoreReading> cores;
    std::vector<InterfaceReading> interfaces;          ///< All but loopback ones.
    std::vector<VolumeReading> volumes;                ///< One for each device.
    std::uint64_t memoryUsed = 0, memoryCapacity = 0;  ///< Bytes; 0 when unknown.
};

}  // namespace VxHost
