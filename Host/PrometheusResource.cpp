#include "PrometheusResource.h"

#include <string>
#include <utility>
#include <vector>

#include <VxCommon/Logger/VcLogger.h>

#include "ControllerInfo.h"
#include "IndicatorMetrics.h"
#include "OpenMetrics.h"
#include "Version.h"

namespace VxHost
{
namespace
{

using Kind = OpenMetrics::Kind;

void WriteController(OpenMetrics& page, const ControllerInfo& controller)
{
    page.Begin(Kind::Info, "vx_controller", "", "What the program runs as, on and under which address.",
               {"application", "controller_type", "address", "control_port", "web_port"});
    page.Add(1, {controller.application, controller.controllerType, controller.address, controller.controlPort,
                 controller.webPort});
}

void WriteCores(OpenMetrics& page, const std::vector<CoreReading>& cores)
{
    page.Begin(Kind::Counter, "vx_cpu_seconds", "seconds", "Time of a core since the machine started, by what it did.",
               {"core", "mode"});
    for (const CoreReading& core : cores) {
        page.Add(core.busySeconds, {core.number, "busy"});
        page.Add(core.idleSeconds, {core.number, "idle"});
    }
    page.Begin(Kind::Gauge, "vx_cpu_load_ratio", "ratio",
               "Load of a core since the reading a second before; at first since the machine started.", {"core"});
    for (const CoreReading& core : cores) {
        page.Add(static_cast<double>(core.load) / 100, {core.number});
    }
}

void WriteMemory(OpenMetrics& page, const MachineReading& machine)
{
    page.Begin(Kind::Gauge, "vx_memory_used_bytes", "bytes", "Memory in use.");
    page.Add(machine.memoryUsed);
    page.Begin(Kind::Gauge, "vx_memory_capacity_bytes", "bytes", "Memory of the machine.");
    page.Add(machine.memoryCapacity);
}

void WriteVolumes(OpenMetrics& page, const std::vector<VolumeReading>& volumes)
{
    page.Begin(Kind::Gauge, "vx_storage_used_bytes", "bytes", "Used part of a volume.", {"volume"});
    for (const VolumeReading& volume : volumes) {
        page.Add(volume.used, {volume.path});
    }
    page.Begin(Kind::Gauge, "vx_storage_capacity_bytes", "bytes", "Size of a volume.", {"volume"});
    for (const VolumeReading& volume : volumes) {
        page.Add(volume.capacity, {volume.path});
    }
}

void WriteInterfaces(OpenMetrics& page, const std::vector<InterfaceReading>& interfaces)
{
    page.Begin(Kind::Gauge, "vx_network_up", "", "1 when a network interface is switched on and has a carrier.",
               {"interface"});
    for (const InterfaceReading& interface : interfaces) {
        page.Add(interface.up ? 1 : 0, {interface.name});
    }
    page.Begin(Kind::Gauge, "vx_network_capacity_bits_per_second", "bits_per_second",
               "Speed of a network interface, where it is known.", {"interface"});
    for (const InterfaceReading& interface : interfaces) {
        if (interface.capacity != 0) {
            page.Add(interface.capacity, {interface.name});
        }
    }
    page.Begin(Kind::Counter, "vx_network_receive_bytes", "bytes", "Bytes that a network interface received.",
               {"interface"});
    for (const InterfaceReading& interface : interfaces) {
        page.Add(interface.rxBytes, {interface.name});
    }
    page.Begin(Kind::Counter, "vx_network_transmit_bytes", "bytes", "Bytes that a network interface sent.",
               {"interface"});
    for (const InterfaceReading& interface : interfaces) {
        page.Add(interface.txBytes, {interface.name});
    }
}

void WriteNodes(OpenMetrics& page, const std::vector<NodeWatch::Node>& nodes)
{
    page.Begin(Kind::Gauge, "vx_node_online", "", "0 once a node of the system has missed three reports of its health.",
               {"node"});
    for (const NodeWatch::Node& node : nodes) {
        page.Add(node.state == NodeState::Online ? 1 : 0, {node.id});
    }
    page.Begin(Kind::Gauge, "vx_node_report_age_seconds", "seconds", "Time since a node's last report, if it had any.",
               {"node"});
    for (const NodeWatch::Node& node : nodes) {
        if (node.reported) {
            page.Add(static_cast<double>(node.age) / 1000, {node.id});
        }
    }
}

std::vector<VcHealthIndicator> DefaultIndicators(const VxCommon::Health& health)
{
    const Vx::Locker locker(health.GetLock());
    return CopyIndicators(*health.GetPublicIndicators(VxCommon::Health::DefaultSet));
}

void WriteLogs(OpenMetrics& page)
{
    std::uint64_t publicId = 0;
    std::uint64_t privateId = 0;
    {
        const Vx::Locker locker = VcLogger_GetLock();
        publicId = VcLog_LastId(VcLogger_PublicLog());
        privateId = VcLog_LastId(VcLogger_PrivateLog());
    }
    page.Begin(Kind::Counter, "vx_log_entries", "", "Entries that a log took.", {"log"});
    page.Add(publicId, {"public"});
    page.Add(privateId, {"private"});
}

void WriteSaves(OpenMetrics& page, const AutoSaveWatch& watch)
{
    page.Begin(Kind::Gauge, "vx_failed_saves", "", "Saves of a domain that have failed since it was last saved.",
               {"domain"});
    for (const auto domain : {VxCommon::PersistDomain::GLOBAL, VxCommon::PersistDomain::WORKSPACE}) {
        page.Add(watch.FailedSaves(domain), {VxCommon::PersistDomain_Name(domain)});
    }
}

void WriteServer(OpenMetrics& page, const VxRest::HttpServerStatistics& server)
{
    page.Begin(Kind::Counter, "vx_http_requests", "", "HTTP requests whose header was read.");
    page.Add(server.requests);
    page.Begin(Kind::Counter, "vx_http_answers", "", "HTTP answers by class of their status.", {"class"});
    page.Add(server.answers2xx, {"2xx"});
    page.Add(server.answers4xx, {"4xx"});
    page.Add(server.answers5xx, {"5xx"});
    page.Begin(Kind::Histogram, "vx_http_request_duration_seconds", "seconds",
               "Time from the end of a request's header to its answer.");
    page.AddHistogram(VxRest::HttpDurations::bounds, server.durations.counts, server.durations.sum);
    page.Begin(Kind::Gauge, "vx_http_connections", "", "Open HTTP connections, notice streams included.");
    page.Add(server.connections);
    page.Begin(Kind::Gauge, "vx_http_notice_streams", "", "Open notice streams.");
    page.Add(server.noticeStreams);
    page.Begin(Kind::Counter, "vx_http_notices", "", "Change notices that were raised.");
    page.Add(server.notices);
    page.Begin(Kind::Counter, "vx_http_slow_clients", "", "Notice streams that were cut off as too slow.");
    page.Add(server.slowClients);
}

}  // namespace

nlohmann::json PrometheusResource::Document(const VxRest::RequestInfo& /*request*/, VxRest::ResponseInfo& response)
{
    OpenMetrics page;
    page.Begin(Kind::Info, "vx_build", "", "The program that answers.", {"version"});
    page.Add(1, {Version});
    const VxRest::HttpServer* const server = server_;
    WriteController(page, ControllerInfo(platform_, server != nullptr));
    page.Begin(Kind::Gauge, "process_start_time_seconds", "seconds", "When the program started, since 1970.");
    page.Add(std::chrono::duration<double>(start_.time_since_epoch()).count());
    const MachineReading machine = health_.Reporter().Latest();
    WriteCores(page, machine.cores);
    WriteMemory(page, machine);
    WriteVolumes(page, machine.volumes);
    WriteInterfaces(page, machine.interfaces);
    WriteNodes(page, health_.Nodes().Nodes());
    WriteIndicators(page, DefaultIndicators(health_.Collector()));
    WriteLogs(page);
    WriteSaves(page, watch_);
    if (server != nullptr) {
        WriteServer(page, server->Statistics());
    }
    response.SetText(std::string(OpenMetrics::mediaType), std::move(page).Finish());
    return nullptr;
}

}  // namespace VxHost
