#pragma once
// The health of the host's system: who reports it, who collects it, who watches the nodes.

#include <cstdint>
#include <filesystem>

#include <VxCommon/Health/Health.h>
#include <VxCommon/TesselSystem/TesselSystem.h>

#include "HealthReporter.h"
#include "NodeWatch.h"

namespace VxHost
{

/// Made and destroyed by one thread, which holds none of the locks that listeners of health take. Its parts are safe on
/// any thread.
class HostHealth
{
public:
    /// Hears all nodes of `system`: the local one and `simulatedNodes` others. `dataFolder`, which exists, tells which
    /// volume counts beside that of "/". Throws what the collector throws, see there.
    HostHealth(const VxCommon::TesselSystem& system, std::uint32_t simulatedNodes,
               const std::filesystem::path& dataFolder);

    VxCommon::Health& Collector() noexcept { return collector_; }
    const VxCommon::Health& Collector() const noexcept { return collector_; }
    NodeWatch& Nodes() noexcept { return nodes_; }
    const NodeWatch& Nodes() const noexcept { return nodes_; }
    HealthReporter& Reporter() noexcept { return reporter_; }
    const HealthReporter& Reporter() const noexcept { return reporter_; }

private:
    // In the order of a report's way, against which they end.
    VxCommon::Health collector_;
    NodeWatch nodes_;
    HealthReporter reporter_;
};

}  // namespace VxHost
