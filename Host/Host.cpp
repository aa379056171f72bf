#include "Host.h"

#include <optional>
#include <utility>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/Protocol/Logs/LogsDir.h>
#include <VxCommon/Protocol/Persistence/PersistDir.h>
#include <VxCommon/Protocol/Problems/ProblemsDir.h>
#include <VxRest/HttpServer.h>
#include <VxRest/ResourceRouter.h>

#include "AppInfo.h"
#include "AutoSaveWatch.h"
#include "ControllerInfo.h"
#include "DomainHandler.h"
#include "FileRetry.h"
#include "HealthResources.h"
#include "HostHealth.h"
#include "HostResources.h"
#include "LimitedStorage.h"
#include "LogFilterWatch.h"
#include "ProblemSources.h"
#include "ServiceConfiguration.h"
#include "SettingGroups.h"
#include "StateLoader.h"
#include "UpdateCounter.h"
#include "VirtualController.h"

namespace VxHost
{
namespace
{

using VxCommon::PersistDomain;

/// Does one part of the start; a failure ends with `code`.
template <class Action>
auto Start(ExitCode code, Action action)
{
    try {
        return action();
    } catch (const std::exception& exception) {
        throw StartFailure(code, exception.what());
    }
}

/// Says which part of the way to the data folder is none; the storage would say that permission was denied.
void CheckWayTo(const std::filesystem::path& dataFolder)
{
    std::filesystem::path way;
    for (const std::filesystem::path& step : dataFolder) {
        way /= step;
        std::error_code error;
        const std::filesystem::file_status status = std::filesystem::status(way, error);
        if (std::filesystem::exists(status) && !std::filesystem::is_directory(status)) {
            VX_THROW(Nucleo::ERROR_ACCESS, "--data: \"%s\" must be a folder, but is a file", way.string());
        }
    }
}

/// The system in the data folder, which is not touched when the options are unusable; `*storage` lives as long.
VxCommon::TesselSystem OpenSystem(const HostOptions& options, const LimitedStorage** storage)
{
    Start(ExitCode::Usage, [&] { VxRest::HttpServer::Check(options.server); });
    return Start(ExitCode::Data, [&] {
        CheckWayTo(options.dataFolder);
        auto opened = std::make_unique<LimitedStorage>(OpenDataFolder(options.dataFolder), options.dataFolder,
                                                       options.storage.size);
        if (options.application == VxCommon::TesselSystem::ApplicationType::PixoraService) {
            CreateServiceConfiguration(options);
        }
        *storage = opened.get();
        return MakeVirtualController(std::move(opened), options.nodes, options.application, options.server.address);
    });
}

}  // namespace

// They are destroyed the other way round: health goes after the manager and all that uses it.
struct Host::Parts
{
    explicit Parts(const HostOptions& options)
        : system(OpenSystem(options, &storage)),
          platform(Start(ExitCode::Failure, [&] { return MakePlatformAttributes(system, options); }))
    {
        Start(ExitCode::Failure, [&] { RecordAppInfo(options.dataFolder); });
        StartReport report = Start(ExitCode::Failure, [&] { return LoadState(manager, info, watch); });
        retry.emplace(manager, watch);
        checker.emplace(problems,
                        std::vector<ProblemSource>{
                            StorageProblems(options.storage, [this] { return storage->PercentUsed(); }),
                            SaveProblems(manager, watch), StartProblems(manager, std::move(report)), &NetworkProblems});
        Start(ExitCode::Failure, [&] { health.emplace(system, options.nodes, options.dataFolder); });
        jobs.emplace(router, manager);
        logs.emplace().Register(router);
        problemsDir.emplace(problems).Register(router);
        healthResources.emplace(router, *health);
        resources.emplace(router, std::vector<Setting*>{&acquisition, &network, &layout},
                          StatusResource::Facts{*storage, options.nodes + 1, platform}, manager, watch, *health);
        Start(ExitCode::Network, [&] { server.emplace(router, options.server); });
        platform.UpdateWebPort(server->Port());
        resources->SetServer(*server);
    }

    LogFilterWatch filterWatch;
    UpdateCounter updates;
    const LimitedStorage* storage = nullptr;
    VxCommon::TesselSystem system;
    VxCommon::PlatformAttributes platform;
    std::optional<HostHealth> health;
    VxCommon::PersistManager manager{system, updates};
    Setting acquisition{"acquisition", PersistDomain::JOB, &MakeSettingGroup<AcquisitionSettings>, manager};
    Setting network{"network", PersistDomain::GLOBAL, &MakeSettingGroup<NetworkSettings>, manager};
    Setting layout{"layout", PersistDomain::WORKSPACE, &MakeSettingGroup<LayoutSettings>, manager};
    DomainInfo info{manager};
    DomainHandler domains{{&acquisition, &network, &layout}, info, manager};
    AutoSaveWatch watch{manager};
    std::optional<FileRetry> retry;
    VxCommon::ProblemsManager problems;
    std::optional<ProblemChecker> checker;
    VxRest::ResourceRouter router;
    std::optional<VxCommon::PersistDir> jobs;
    std::optional<VxCommon::LogsDir> logs;
    std::optional<VxCommon::ProblemsDir> problemsDir;
    std::optional<HealthResources> healthResources;
    std::optional<HostResources> resources;
    std::optional<VxRest::HttpServer> server;
};

Host::Host(const HostOptions& options) : parts_(std::make_unique<Parts>(options)) {}

Host::~Host()
{
    Stop();
}

std::uint16_t Host::Port() const
{
    return parts_->server->Port();
}

std::vector<std::string> Host::Stop()
{
    if (!parts_) {
        return {};
    }
    parts_->server->Stop();
    parts_->resources.reset();
    parts_->healthResources.reset();
    parts_->problemsDir.reset();
    parts_->logs.reset();
    parts_->jobs.reset();
    parts_->retry.reset();
    try {
        parts_->manager.Shutdown();
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "Saving at the end failed (%s); trying once more.", exception.what());
    } catch (...) {
        Vx_Debug_Log(Error, "Saving at the end failed (unknown exception); trying once more.");
    }
    std::vector<std::string> unsaved = parts_->watch.SaveWaiting();
    parts_.reset();
    return unsaved;
}

}  // namespace VxHost
