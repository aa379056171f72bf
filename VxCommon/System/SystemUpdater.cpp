#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/System/SystemUpdater.h>

namespace VxCommon
{

SystemUpdater::SystemUpdater(IUpdatableSystem& system, bool flag) : system_(system), flag_(flag)
{
    system_.BeginUpdate(flag_);
}

SystemUpdater::~SystemUpdater()
{
    try {
        system_.EndUpdate();
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "Failed to end system update.");
        Vx::LogException(VX_HERE, exception);
    } catch (...) {
        Vx_Debug_Log(Error, "Failed to end system update.");
    }
}

}  // namespace VxCommon
