#include "StatusResource.h"

#include <string>

#include <VxCommon/Logger/VcLogger.h>

#include "ControllerInfo.h"
#include "Version.h"

namespace VxHost
{
namespace
{

using VxCommon::PersistDomain;

struct StatusProperties final : Vx::Params::Group
{
    template <class T>
    using Value = Vx::Params::Value<T>;

    StatusProperties() : Group("Status") {}

    Value<std::string> version{*this, "version", {.readOnly = true}};
    Value<std::string> application{*this, "application", {.readOnly = true}};
    Value<std::string> controllerType{*this, "controllerType", {.title = "Controller type", .readOnly = true}};
    Value<std::string> address{*this, "address", {.title = "Address of the interface", .readOnly = true}};
    Value<std::uint64_t> controlPort{*this, "controlPort", {.title = "Control port; 0: none", .readOnly = true}};
    Value<std::uint64_t> webPort{*this, "webPort", {.title = "Port of this interface", .readOnly = true}};
    Value<std::uint64_t> upTime{*this, "upTime", {.title = "Time since the start", .units = "s", .readOnly = true}};
    Value<std::uint64_t> nodes{*this, "nodes", {.title = "Nodes of the system", .readOnly = true}};
    Value<std::uint64_t> freeSpace{
        *this, "freeSpace", {.title = "Free space of the data folder", .units = "B", .readOnly = true}};
    Value<bool> globalUnsaved{*this, "globalUnsaved", {.title = "GLOBAL waits to be saved", .readOnly = true}};
    Value<bool> workspaceUnsaved{*this, "workspaceUnsaved", {.title = "WORKSPACE waits to be saved", .readOnly = true}};
    Value<bool> jobUnsaved{*this, "jobUnsaved", {.title = "The loaded job is modified", .readOnly = true}};
    Value<std::uint64_t> failedSaves{*this, "failedSaves", {.title = "Failed saves of what waits", .readOnly = true}};
    Value<std::uint64_t> publicLogLastId{
        *this, "publicLogLastId", {.title = "Newest entry of the public log", .readOnly = true}};
    Value<std::uint64_t> privateLogLastId{
        *this, "privateLogLastId", {.title = "Newest entry of the private log", .readOnly = true}};
    Value<std::uint64_t> logFilterTexts{
        *this, "logFilterTexts", {.title = "Texts that the log filters remember", .readOnly = true}};
    Value<std::uint64_t> droppedHealthMessages{
        *this, "droppedHealthMessages", {.title = "Health reports that could not be queued", .readOnly = true}};
    Value<std::uint64_t> refusedHealthReports{
        *this, "refusedHealthReports", {.title = "Health reports that the platform did not take", .readOnly = true}};
    Value<std::uint64_t> requests{*this, "requests", {.title = "HTTP requests so far", .readOnly = true}};
    Value<std::uint64_t> connections{*this, "connections", {.title = "HTTP connections", .readOnly = true}};
    Value<std::uint64_t> noticeStreams{*this, "noticeStreams", {.title = "Notice streams", .readOnly = true}};
    Value<std::uint64_t> notices{*this, "notices", {.title = "Notices so far", .readOnly = true}};
    Value<std::uint64_t> slowClients{
        *this, "slowClients", {.title = "Notice streams cut off as too slow", .readOnly = true}};
};

void FillController(StatusProperties& status, const ControllerInfo& controller)
{
    status.application.Fill(controller.application);
    status.controllerType.Fill(controller.controllerType);
    status.address.Fill(controller.address);
    status.controlPort.Fill(controller.controlPort);
    status.webPort.Fill(controller.webPort);
}

void FillLogs(StatusProperties& status)
{
    const Vx::Locker locker = VcLogger_GetLock();
    status.publicLogLastId.Fill(VcLog_LastId(VcLogger_PublicLog()));
    status.privateLogLastId.Fill(VcLog_LastId(VcLogger_PrivateLog()));
    status.logFilterTexts.Fill(VcLogger_FilterCount());
}

}  // namespace

StatusResource::StatusResource(Facts facts, const VxCommon::PersistManager& manager, const AutoSaveWatch& watch,
                               const HostHealth& health)
    : facts_(facts), manager_(manager), watch_(watch), health_(health)
{}

nlohmann::json StatusResource::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    StatusProperties status;
    const VxRest::HttpServer* const server = server_;
    status.version.Fill(Version);
    FillController(status, ControllerInfo(facts_.platform, server != nullptr));
    const auto upTime = std::chrono::steady_clock::now() - start_;
    status.upTime.Fill(static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(upTime).count()));
    status.nodes.Fill(facts_.nodes);
    status.freeSpace.Fill(facts_.storage.FreeBytes());
    status.globalUnsaved.Fill(watch_.IsWaiting(PersistDomain::GLOBAL));
    status.workspaceUnsaved.Fill(watch_.IsWaiting(PersistDomain::WORKSPACE));
    status.jobUnsaved.Fill(manager_.HasUnsavedChanges(PersistDomain::JOB));
    status.failedSaves.Fill(watch_.FailedSaves(PersistDomain::GLOBAL) + watch_.FailedSaves(PersistDomain::WORKSPACE));
    FillLogs(status);
    status.droppedHealthMessages.Fill(health_.Collector().DroppedMessages());
    status.refusedHealthReports.Fill(health_.Reporter().RefusedReports());
    if (server != nullptr) {
        const VxRest::HttpServerStatistics counters = server->Statistics();
        status.requests.Fill(counters.requests);
        status.connections.Fill(counters.connections);
        status.noticeStreams.Fill(counters.noticeStreams);
        status.notices.Fill(counters.notices);
        status.slowClients.Fill(counters.slowClients);
    }
    nlohmann::json document = Vx::Params::NodeToJson(status);
    if (request.IsSchemaRequested()) {
        document["_schema"] = status.Schema();
    }
    return document;
}

}  // namespace VxHost
