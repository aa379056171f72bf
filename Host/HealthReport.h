#pragma once
// What nodes report: lists of health statistics.

#include <cstdint>
#include <vector>

#include <TesselLib/Health.h>

#include "MachineReading.h"

namespace VxHost
{

/// The report of the node that this process runs on: what the machine said, cores before interfaces before volumes,
/// then every live probe of the runtime. Instances are positions in the reading's lists.
std::vector<TesselLib::HealthStatistic> LocalReport(const MachineReading& reading);

/// The report number `tick` of the simulated node `position` (1 for the first one): the mean core load and the memory,
/// made up, and five drop counters (2201, 2203, 21012, 2016, 2210; here numbered from 0).
///
/// With phase = (tick + 3 * position + 4 * counter) % 20, the counter is in the report while phase is below 10, with
/// the value phase * position: so each appears with 0, rises second by second, and is missing for ten reports.
std::vector<TesselLib::HealthStatistic> SimulatedReport(std::uint32_t position, std::uint64_t tick);

}  // namespace VxHost
