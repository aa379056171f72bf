#include "HealthReport.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include <Nucleo/HealthProbe.h>

namespace VxHost
{
namespace
{

using TesselLib::HealthStatistic;

/// An indicator of which there is one for each core, interface or volume.
struct Indicator
{
    const char* name;
    std::uint32_t id;
};

constexpr Indicator CpuLoad{"Veloxa/CpuLoad", 2002};
constexpr Indicator MemoryUsed{"Veloxa/MemoryUsed", 2003};
constexpr Indicator MemoryCapacity{"Veloxa/MemoryCapacity", 2004};
constexpr Indicator VolumeUsed{"Veloxa/VolumeUsed", 2005};
constexpr Indicator VolumeCapacity{"Veloxa/VolumeCapacity", 2006};
constexpr Indicator LinkCapacity{"Veloxa/LinkCapacity", 2009};
constexpr Indicator LinkStatus{"Veloxa/LinkStatus", 2034};
constexpr Indicator CpuCoreLoad{"Veloxa/CpuCoreLoad", 2052};
constexpr Indicator SendRate{"Veloxa/SendRate", 2076};
constexpr Indicator ReceiveRate{"Veloxa/ReceiveRate", 2077};
constexpr Indicator SentBytes{"Veloxa/SentBytes", 2078};
constexpr Indicator ReceivedBytes{"Veloxa/ReceivedBytes", 2079};

constexpr Indicator Drops[] = {{"Veloxa/CameraDrops", 2201},
                               {"Veloxa/ProcessorDrops", 2203},
                               {"Veloxa/EthernetQueueDrops", 21012},
                               {"Veloxa/OutputQueueDrops", 2016},
                               {"Veloxa/CameraFaults", 2210}};

class Report
{
public:
    void Add(std::string_view name, std::uint32_t id, std::uint32_t instance, std::int64_t value)
    {
        HealthStatistic& added = items_.emplace_back(HealthStatistic{{}, id, instance, value});
        name.copy(added.name, sizeof added.name - 1);
    }

    /// Values that the record cannot hold become the largest one.
    void Add(const Indicator& indicator, std::size_t instance, std::uint64_t value)
    {
        constexpr std::uint64_t highest = std::numeric_limits<std::int64_t>::max();
        Add(indicator.name, indicator.id, static_cast<std::uint32_t>(instance),
            static_cast<std::int64_t>(std::min(value, highest)));
    }

    std::vector<HealthStatistic> Take() { return std::move(items_); }

private:
    std::vector<HealthStatistic> items_;
};

}  // namespace

std::vector<HealthStatistic> LocalReport(const MachineReading& reading)
{
    Report report;
    std::uint64_t load = 0;
    for (std::size_t i = 0; i < reading.cores.size(); ++i) {
        report.Add(CpuCoreLoad, i, reading.cores[i].load);
        load += reading.cores[i].load;
    }
    for (std::size_t i = 0; i < reading.interfaces.size(); ++i) {
        const InterfaceReading& interface = reading.interfaces[i];
        report.Add(LinkStatus, i, interface.up ? 1 : 0);
        report.Add(LinkCapacity, i, interface.capacity);
        report.Add(ReceiveRate, i, interface.rxRate);
        report.Add(SendRate, i, interface.txRate);
        report.Add(ReceivedBytes, i, interface.rxBytes);
        report.Add(SentBytes, i, interface.txBytes);
    }
    for (std::size_t i = 0; i < reading.volumes.size(); ++i) {
        report.Add(VolumeUsed, i, reading.volumes[i].used);
        report.Add(VolumeCapacity, i, reading.volumes[i].capacity);
    }
    if (!reading.cores.empty()) {
        report.Add(CpuLoad, 0, load / reading.cores.size());
    }
    report.Add(MemoryUsed, 0, reading.memoryUsed);
    report.Add(MemoryCapacity, 0, reading.memoryCapacity);
    for (const auto& probe : Nucleo::HealthProbe::ListLive()) {
        report.Add(probe.name, probe.id, probe.instance, probe.value);
    }
    return report.Take();
}

std::vector<HealthStatistic> SimulatedReport(std::uint32_t position, std::uint64_t tick)
{
    constexpr std::uint64_t memory = 4'294'967'296;
    Report report;
    const std::uint64_t load = (7 * tick + 13 * position) % 101;
    report.Add(CpuLoad, 0, load);
    report.Add(MemoryUsed, 0, memory / 100 * load);
    report.Add(MemoryCapacity, 0, memory);
    std::uint64_t counter = 0;
    for (const Indicator& drops : Drops) {
        const std::uint64_t phase = (tick + 3ULL * position + 4 * counter++) % 20;
        if (phase < 10) {
            report.Add(drops, 0, phase * position);
        }
    }
    return report.Take();
}

}  // namespace VxHost
