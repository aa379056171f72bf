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

void InitManager(PersistManager& manager, VxCommon::TesselSystem& system)
{
    try {
        manager.Init();
        return;
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The persist record cannot be read (%s); no job is the default one.",
                            exception.what());
        Vx::LogException(VX_HERE, exception);
    }
    try {
        VxCommon::NodeStorage(system).CopyForDiagnosis(PersistManager::PERSIST_RECORD_FILE,
                                                       PersistManager::MaxDiagnosisCopies);
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "The persist record cannot be kept for diagnosis (%s).", exception.what());
    }
    manager.SavePersistRecord();  // Init cleared what it holds.
    manager.Init();
}

}  // namespace

void LoadState(PersistManager& manager, VxCommon::TesselSystem& system, AutoSaveWatch& watch)
{
    InitManager(manager, system);
    try {
        manager.LoadGlobal();
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The GLOBAL domain starts with defaults (%s).", exception.what());
        watch.Expect(PersistDomain::GLOBAL);
    }
    try {
        manager.LoadWorkspace();
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The WORKSPACE domain starts with defaults (%s).", exception.what());
        watch.Expect(PersistDomain::WORKSPACE);
    }
    try {
        manager.LoadDefaultJob();
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, "Start", "The default job is not loaded, the factory job is (%s).",
                            exception.what());
    }
}

}  // namespace VxHost
