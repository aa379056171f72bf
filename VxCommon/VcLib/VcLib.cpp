#include <VxCommon/VcLib/VcLib.h>

#include <mutex>

#include <TesselLib/Assembly.h>
#include <VxCommon/Health/VcHealthRecords.h>
#include <VxCommon/Health/VcIndicatorCache.h>
#include <VxCommon/Health/VcIndicatorSet.h>
#include <VxCommon/Logger/VcLogger.h>

using namespace Nucleo::Statuses;
using Nucleo::Assembly;
using Nucleo::Status;

namespace
{

constexpr const char* version = "1.0.0.0";

Status Fill(Assembly& assembly)
{
    for (Assembly* dependency : {&Nucleo::Nucleo_Assembly(), &TesselLib::TesselLib_Assembly()}) {
        if (const Status status = assembly.AddDependency(*dependency); status != OK) {
            return status;
        }
    }
    // The order is part of what other libraries see.
    for (const auto registerType :
         {&xxVcLogger_Register, &xxVcLog_Register, &xxVcLogMsg_Register, &xxVcHealthId_Register,
          &xxVcHealthIndicator_Register, &xxVcIndicatorFilter_Register, &xxVcIndicatorMapItem_Register,
          &xxVcIndicatorSet_Register, &xxVcIndicatorListItem_Register, &xxVcIndicatorCache_Register,
          &xxVcIndicatorSetOverwrite_Register}) {
        if (const Status status = registerType(&assembly); status != OK) {
            return status;
        }
    }
    return assembly.Finalize();
}

Status Make(Assembly** assembly)
{
    Nucleo::Version parsed{};
    if (const Status status = Nucleo::Version_Parse(version, &parsed); status != OK) {
        return status;
    }
    Nucleo::Handle<Assembly> made;
    Status status = Assembly::Make(made.Receive(), "VcLib", parsed, parsed, nullptr);
    if (status == OK) {
        status = Fill(*made);
    }
    if (status == OK) {
        *assembly = made.Detach();
    }
    return status;
}

}  // namespace

Status VcLib_Construct(Assembly** assembly)
{
    *assembly = nullptr;
    static std::mutex mutex;
    static Assembly* instance = nullptr;  // Its reference is kept for the process's life: others point into it.
    const std::lock_guard guard(mutex);
    if (instance == nullptr) {
        if (const Status status = Make(&instance); status != OK) {
            return status;
        }
    }
    instance->Share();
    *assembly = instance;
    return OK;
}

Status PluginConstructAssembly(Assembly** assembly)
{
    return VcLib_Construct(assembly);
}

const char* PluginAssemblyVersion()
{
    return version;
}

const char* PluginPlatformVersion()
{
    return version;
}
