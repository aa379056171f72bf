#include "StateLoader.h"

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

namespace VxHost
{
namespace
{

using Vx::Logging::Level;
using VxCommon::PersistDomain;
using VxCommon::PersistManager;

/// Starts the manager; answers whether the persist record was damaged.
bool InitManager(PersistManager& manager, VxCommon::TesselSystem& system)
{
    try {
        manager.Init();
        return false;
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The persist record cannot be read (%s); no job is the default one.",
                            exception.what());
        Vx::LogException(VX_HERE, exception);
    }
    try {
        VxCommon::NodeStorage(system).CopyForDiagnosis(PersistManager::PERSIST_RECORD_FILE,
                                                       PersistManager::MaxDiagnosisCopies);
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Warning, "Start", "The persist record cannot be kept for diagnosis (%s).",
                            exception.what());
    }
    manager.SavePersistRecord();  // Init cleared what it holds.
    manager.Init();
    return true;
}

/// Loads a domain that is kept in `file`; answers whether that was damaged.
template <class Load>
bool LoadDomain(PersistDomain domain, const char* file, VxCommon::TesselSystem& system, const DomainInfo& info,
                AutoSaveWatch& watch, Load load)
{
    const std::string name = VxCommon::PersistDomain_Name(domain);
    bool existed = false;
    try {
        existed = VxCommon::NodeStorage(system).FileExists(file);
        load();
        if (!existed || !info.HasBegun(domain)) {
            return false;
        }
        // The manager has kept the file and begun anew.
        Vx::Logging::Public(Level::Error, "Start",
                            "The file %s is damaged: the %s domain starts with defaults. What it held is kept "
                            "beside it as %s.d01 to .d05.",
                            file, name, file);
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The %s domain starts with defaults (%s).", name, exception.what());
        watch.Expect(domain);
    }
    return existed;
}

}  // namespace

std::vector<std::string> LoadState(PersistManager& manager, VxCommon::TesselSystem& system, const DomainInfo& info,
                                   AutoSaveWatch& watch)
{
    std::vector<std::string> damaged;
    if (InitManager(manager, system)) {
        damaged.emplace_back(PersistManager::PERSIST_RECORD_FILE);
    }
    if (const char* file = VxCommon::Persist::Global::GLOBAL_FILE;
        LoadDomain(PersistDomain::GLOBAL, file, system, info, watch, [&] { manager.LoadGlobal(); })) {
        damaged.emplace_back(file);
    }
    if (const char* file = VxCommon::Persist::Workspace::WORKSPACE_FILE;
        LoadDomain(PersistDomain::WORKSPACE, file, system, info, watch, [&] { manager.LoadWorkspace(); })) {
        damaged.emplace_back(file);
    }
    try {
        manager.LoadDefaultJob();
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The default job is not loaded, the factory job is (%s).",
                            exception.what());
    }
    return damaged;
}

}  // namespace VxHost
