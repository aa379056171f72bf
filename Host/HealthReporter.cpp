#include "HealthReporter.h"

#include <exception>
#include <utility>

#include <TesselLib/VirtualSystem.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

#include "HealthReport.h"
#include "VirtualController.h"

namespace VxHost
{
namespace
{

// Handling a report is queueing it, so what waits takes microseconds.
constexpr std::chrono::milliseconds CatchUpTime{100};

}  // namespace

HealthReporter::HealthReporter(TesselLib::System& system, std::uint32_t simulatedNodes, MachineCounters counters)
    : system_(system), simulatedNodes_(simulatedNodes), counters_(std::move(counters))
{
    try {
        ReportAll();
    } catch (const std::exception& exception) {  // The next report may succeed.
        Vx_Debug_Log(Error, "The first health report failed (%s).", exception.what());
    }
    timer_.Start(Period);
}

MachineReading HealthReporter::Latest() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return latest_;
}

bool HealthReporter::IsReporting(std::uint32_t nodeId) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return !silenced_.contains(nodeId);
}

bool HealthReporter::SetReporting(std::uint32_t nodeId, bool reporting)
{
    if (nodeId == LocalNodeId) {
        VX_THROW(Nucleo::ERROR_STATE,
                 "Node %u is the local one, which always reports; only simulated nodes can be "
                 "silenced and woken.",
                 nodeId);
    }
    if (nodeId < LocalNodeId || nodeId - LocalNodeId > simulatedNodes_) {
        VX_THROW(Nucleo::ERROR_NOT_FOUND, "There is no node %u.", nodeId);
    }
    const Nucleo::MutexGuard guard(mutex_);
    return reporting ? silenced_.erase(nodeId) != 0 : silenced_.insert(nodeId).second;
}

HealthReporter::Delivery::~Delivery()
{
    static_cast<void>(TesselLib::VirtualSystem_FlushHealth(system, CatchUpTime));
}

void HealthReporter::OnTimer()
{
    timer_.Start(Period);
    ReportAll();
}

void HealthReporter::ReportAll()
{
    const MachineReading reading = counters_.Read();
    {
        const Nucleo::MutexGuard guard(mutex_);
        latest_ = reading;
    }
    ReportNode(LocalNodeId, LocalReport(reading));
    for (std::uint32_t position = 1; position <= simulatedNodes_; ++position) {
        if (IsReporting(LocalNodeId + position)) {
            ReportNode(LocalNodeId + position, SimulatedReport(position, tick_));
        }
        if (position % (TesselLib::VirtualHealthQueue / 2) == 0) {
            // Lets the platform's thread catch up, so that its queue takes the next ones.
            static_cast<void>(TesselLib::VirtualSystem_FlushHealth(system_, CatchUpTime));
        }
    }
    ++tick_;
}

void HealthReporter::ReportNode(std::uint32_t nodeId, const std::vector<TesselLib::HealthStatistic>& report)
{
    Nucleo::Handle<Nucleo::ArrayList<TesselLib::HealthStatistic>> list;
    VX_CHECK(Nucleo::ArrayList<TesselLib::HealthStatistic>::Make(list.Receive(), report.size(), nullptr));
    for (const TesselLib::HealthStatistic& statistic : report) {
        VX_CHECK(list->Append(statistic));
    }
    Nucleo::Handle<TesselLib::HealthMessage> message;
    VX_CHECK(TesselLib::HealthMessage::Make(message.Receive(), nodeId, *list, nullptr));
    if (TesselLib::VirtualSystem_InjectHealth(system_, *message) != Nucleo::OK) {
        ++refused_;
    }
}

}  // namespace VxHost
