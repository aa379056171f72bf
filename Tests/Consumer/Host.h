#pragma once

#include <optional>

#include <VxApi/Logging.h>
#include <VxCommon/AppInfoCfg/AppInfoCfg.h>
#include <VxCommon/Health/Health.h>
#include <VxCommon/Protocol/Logs/LogsDir.h>
#include <VxCommon/Protocol/Persistence/PersistDir.h>
#include <VxCommon/Protocol/Problems/ProblemsDir.h>
#include <VxCommon/VcUtils/VcUtils.h>
#include <VxRest/HttpServer.h>

#include "Lamp.h"
#include "Sensor.h"
#include "Watch.h"

/// Everything wired. Made, stopped and destroyed by one thread, while there is a Log.
class Host
{
public:
    /// Loads the state from `folder`, then serves. Throws when the host cannot start.
    explicit Host(const std::filesystem::path& folder) : system_(OpenSensor(folder))
    {
        manager_.Init();
        manager_.LoadGlobal();
        manager_.LoadWorkspace();
        try {
            manager_.LoadDefaultJob();
        } catch (const std::exception& exception) {  // The factory job is loaded then.
            Vx::Logging::Public(Vx::Logging::Level::Error, "Start", "No default job (%s).", exception.what());
        }
        NoteVersion();

        health_.Start();
        watch_.emplace(lamp_, acquisition_, problems_);

        jobs_.emplace(router_, manager_);
        logs_.Register(router_);
        problemsDir_.Register(router_);
        router_.Register(Lamp::Path, lamp_);
        server_.emplace(router_, VxRest::HttpServerOptions{.port = 0});  // One that the system chooses.
    }

    /// Ends serving and saves the state. Throws when that fails.
    void Stop()
    {
        server_.reset();
        router_.Deregister(Lamp::Path, false);
        problemsDir_.Deregister(router_);
        logs_.Deregister();
        jobs_.reset();
        watch_.reset();
        // All three, whatever became of the automatic saves; the first failure is thrown at the end.
        using VxCommon::PersistManager;
        std::exception_ptr failure;
        for (const auto save :
             {&PersistManager::SaveGlobal, &PersistManager::SaveWorkspace, &PersistManager::Shutdown}) {
            try {
                (manager_.*save)();
            } catch (...) {
                failure = failure ? failure : std::current_exception();
            }
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

    std::uint16_t Port() const { return server_->Port(); }
    VxCommon::PersistManager& Manager() noexcept { return manager_; }
    Lamp& TheLamp() noexcept { return lamp_; }

private:
    static constexpr const char* Version = "1.2.0.0";
    static constexpr const char* VersionFile = "AppInfo.xml";

    void NoteVersion()
    {
        VxCommon::AppInfoCfg info;
        try {
            info.Read(manager_.FileData(VersionFile));
            if (!VcUtils_CheckVersions(Version, info.ProductionVersion().c_str())) {
                Vx_Debug_Log(Warning, "The state was written by version %s.", info.ProductionVersion());
            }
        } catch (const std::exception& exception) {  // None at the first start.
            Vx_Debug_Log(Info, "No version is noted (%s).", exception.what());
        }
        info.SetProductionVersion(Version);
        manager_.WriteFile(VersionFile, info.Write());
    }

    // In the order in which they are made. They end the other way round: the manager before the health.
    VxCommon::TesselSystem system_;
    VxCommon::Health health_{system_.SystemHandle(), LocalNodeId, LocalNodeId};
    Acquisition acquisition_;
    VxCommon::PersistManager manager_{system_, acquisition_};
    Lamp lamp_{manager_};
    VxCommon::ProblemsManager problems_;
    std::optional<Watch> watch_;
    VxRest::ResourceRouter router_;
    std::optional<VxCommon::PersistDir> jobs_;
    VxCommon::LogsDir logs_;
    VxCommon::ProblemsDir problemsDir_{problems_};
    std::optional<VxRest::HttpServer> server_;
};
