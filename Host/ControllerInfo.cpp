#include "ControllerInfo.h"

#include <thread>

#include <TesselLib/System.h>
#include <VxApi/Exception.h>

namespace VxHost
{
namespace
{

constexpr unsigned applicationId = 1;

}  // namespace

VxCommon::PlatformAttributes MakePlatformAttributes(const VxCommon::TesselSystem& system, const HostOptions& options)
{
    TesselLib::NodeInfo node;
    VX_CHECK(static_cast<TesselLib::Node*>(system.LocalNode())->ReadInfo(&node));
    return {static_cast<int>(TesselLib::OperatingSystem::Linux),
            node.controllerType,
            options.application,
            applicationId,
            node.ipConfig,
            0,
            options.server.port,
            node.macAddress,
            std::thread::hardware_concurrency()};
}

ControllerInfo::ControllerInfo(const VxCommon::PlatformAttributes& platform, bool listening)
    : application(platform.AppTypeName(platform.AppType()))
{
    char text[46];
    TesselLib::ControllerType_Format(platform.ControllerType(), text, sizeof text);
    controllerType = text;
    TesselLib::IpAddress_Format(platform.InterfaceIpAddress(), text, sizeof text);
    address = text;
    if (listening) {
        controlPort = platform.ControlPort();
        webPort = platform.WebPort();
    }
}

}  // namespace VxHost
