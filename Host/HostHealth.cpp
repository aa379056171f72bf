#include "HostHealth.h"

#include <vector>

#include <VxApi/Exception.h>

#include "VirtualController.h"

namespace VxHost
{
namespace
{

TesselLib::System& AsSystem(const VxCommon::TesselSystem& system)
{
    return static_cast<TesselLib::System&>(*static_cast<Nucleo::Object*>(system.SystemHandle()));
}

/// Has the collector take the reports of all nodes. Their ids.
std::vector<std::uint32_t> AddNodes(VxCommon::Health& collector, TesselLib::System& system,
                                    std::uint32_t simulatedNodes)
{
    std::vector<std::uint32_t> ids{LocalNodeId};
    for (std::uint32_t i = 1; i <= simulatedNodes; ++i) {
        ids.push_back(LocalNodeId + i);
        collector.AddNode(ids.back(), 0);
    }
    VX_CHECK(system.OpenHealthStream());
    collector.Start();
    return ids;
}

}  // namespace

HostHealth::HostHealth(const VxCommon::TesselSystem& system, std::uint32_t simulatedNodes,
                       const std::filesystem::path& dataFolder)
    : collector_(system.SystemHandle(), LocalNodeId, LocalNodeId),
      nodes_(collector_, AddNodes(collector_, AsSystem(system), simulatedNodes)),
      reporter_(AsSystem(system), simulatedNodes,
                MachineCounters({.volumes = {"/", std::filesystem::absolute(dataFolder)}}))
{}

}  // namespace VxHost
