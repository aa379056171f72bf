#pragma once
// Reads the machine's own counters.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "MachineReading.h"
#include "ProcText.h"

namespace VxHost
{

/// Used by one thread at a time. Cores, interfaces and volumes may come and go between two readings. What cannot be
/// read is told once, as a warning in the private log.
class MachineCounters
{
public:
    /// Where the counters are.
    struct Places
    {
        std::filesystem::path stat = "/proc/stat";
        std::filesystem::path netDev = "/proc/net/dev";
        std::filesystem::path interfaces = "/sys/class/net";
        std::vector<std::filesystem::path> volumes;  ///< Any folder of each; of one device the first counts.
    };

    explicit MachineCounters(Places places);

    /// Loads and rates are those since the reading before. Rates follow the runtime's timer; a counter that went
    /// backwards gives 0. Throws only for want of memory.
    MachineReading Read();

private:
    struct Core
    {
        CoreTimes times;
        std::uint64_t load = 0;
    };
    struct Traffic
    {
        InterfaceBytes bytes;
        std::uint64_t receiveRate = 0, sendRate = 0;
    };

    std::optional<std::string> ReadText(const std::filesystem::path& file);
    void ReadCores();
    void ReadInterfaces();
    void ReadVolumes();
    void ReadMemory();
    void Complain(const std::filesystem::path& place);

    const Places places_;
    MachineReading reading_;
    // Of the reading before.
    std::map<std::uint32_t, Core> cores_;
    std::map<std::string, Traffic> traffic_;
    std::uint64_t trafficTime_ = 0;  // In microseconds.

    std::set<std::filesystem::path> complained_;
};

}  // namespace VxHost
