#include <algorithm>

#include <TesselLib/System.h>
#include <VxApi/Logging.h>
#include <VxCommon/PlatformAttributes/PlatformAttributes.h>

namespace VxCommon
{
namespace
{

constexpr int virtualController = static_cast<int>(TesselLib::ControllerType::Virtual);

}  // namespace

PlatformAttributes::PlatformAttributes(int operatingSystem, int controllerType, ApplicationType appType, unsigned appId,
                                       const TesselLib::IpConfig& ipConfig, std::uint16_t controlPort,
                                       std::uint16_t webPort, const TesselLib::MacAddress& macAddress,
                                       std::uint64_t cpuCount)
    : operatingSystem_(operatingSystem),
      controllerType_(controllerType),
      appType_(appType),
      appId_(appId),
      cpuCount_(cpuCount),
      ipConfig_(ipConfig),
      controlPort_(controlPort),
      webPort_(webPort),
      macAddress_(macAddress),
      appTypeNames_{"PixoraFirmware", "PixoraService", "AccelixFirmware", "Unknown App"}
{
    char controller[16] = "";
    char address[46] = "";  // The longest address of version 6 and its end.
    TesselLib::ControllerType_Format(controllerType_, controller, sizeof controller);
    TesselLib::IpAddress_Format(ipConfig_.address, address, sizeof address);
    Vx_Debug_Log(Info, "Platform Attributes: operatingSystem %d, %s controller, %s interface IP %s application id %u",
                 operatingSystem_, controller, AppTypeName(appType_), address, appId_);
}

bool PlatformAttributes::UseCpuAffinity() const
{
    return OnPhysicalSensor() && operatingSystem_ == static_cast<int>(TesselLib::OperatingSystem::Embedded);
}

bool PlatformAttributes::OnPhysicalSensor() const
{
    using enum TesselLib::ControllerType;
    switch (static_cast<TesselLib::ControllerType>(controllerType_)) {
        case SensorA:
        case SensorB:
        case SensorC:
        case SensorD:
        case SensorE:
            return appType_ == ApplicationType::PixoraFirmware;
        default:
            return false;
    }
}

bool PlatformAttributes::OnPhysicalAccelix() const
{
    const auto controller = static_cast<TesselLib::ControllerType>(controllerType_);
    return appType_ == ApplicationType::AccelixFirmware &&
           (controller == TesselLib::ControllerType::AccelixA || controller == TesselLib::ControllerType::AccelixB);
}

bool PlatformAttributes::OnVirtualSensor() const
{
    return controllerType_ == virtualController && appType_ == ApplicationType::PixoraFirmware;
}

bool PlatformAttributes::OnVirtualAccelix() const
{
    return controllerType_ == virtualController && appType_ == ApplicationType::AccelixFirmware;
}

bool PlatformAttributes::OnPixoraServiceApp() const
{
    return controllerType_ == virtualController && appType_ == ApplicationType::PixoraService;
}

bool PlatformAttributes::IsRestartable() const
{
    return appType_ != ApplicationType::PixoraService;
}

bool PlatformAttributes::IsUpgradable() const
{
    return appType_ != ApplicationType::PixoraService;
}

const char* PlatformAttributes::AppTypeName(ApplicationType appType) const
{
    return appTypeNames_[std::min<std::size_t>(static_cast<std::uint8_t>(appType), 3)];
}

}  // namespace VxCommon
