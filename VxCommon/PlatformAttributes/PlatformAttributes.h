#pragma once

#include <VxCommon/PlatformAttributes/IPlatformAttributes.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Filled once at start; only the ports may be set later. The ports are not locked: set them before other threads read.
class VXCOMMON_API PlatformAttributes : public IPlatformAttributes
{
public:
    /// Logs its content once; a type or address that the platform cannot put into a text is left out of that line.
    /// `controlPort` and `webPort` may be 0 until they are known.
    PlatformAttributes(int operatingSystem, int controllerType, ApplicationType appType, unsigned appId,
                       const TesselLib::IpConfig& ipConfig, std::uint16_t controlPort, std::uint16_t webPort,
                       const TesselLib::MacAddress& macAddress, std::uint64_t cpuCount);

    int OperatingSystem() const override { return operatingSystem_; }
    int ControllerType() const override { return controllerType_; }
    ApplicationType AppType() const override { return appType_; }
    std::uint64_t CpuCount() const override { return cpuCount_; }
    bool UseCpuAffinity() const override;
    bool OnPhysicalSensor() const override;
    bool OnPhysicalAccelix() const override;
    bool OnVirtualSensor() const override;
    bool OnVirtualAccelix() const override;
    bool OnPixoraServiceApp() const override;
    bool IsRestartable() const override;
    bool IsUpgradable() const override;
    const TesselLib::IpConfig& InterfaceIpConfig() const override { return ipConfig_; }
    const TesselLib::IpAddress& InterfaceIpAddress() const override { return ipConfig_.address; }
    const TesselLib::MacAddress& InterfaceMacAddress() const override { return macAddress_; }
    unsigned AppId() const override { return appId_; }

    /// "PixoraFirmware", "PixoraService", "AccelixFirmware"; "Unknown App" for any other value.
    const char* AppTypeName(ApplicationType appType) const;

    std::uint16_t ControlPort() const { return controlPort_; }
    std::uint16_t WebPort() const { return webPort_; }
    void UpdateControlPort(std::uint16_t port) { controlPort_ = port; }
    void UpdateWebPort(std::uint16_t port) { webPort_ = port; }

    /// True once both ports are known.
    bool ArePortsUpdated() const { return webPort_ != 0 && controlPort_ != 0; }

private:
    std::int32_t operatingSystem_;
    std::int32_t controllerType_;
    ApplicationType appType_;
    std::uint32_t appId_;
    std::uint64_t cpuCount_;
    TesselLib::IpConfig ipConfig_;
    std::uint16_t controlPort_;
    std::uint16_t webPort_;
    TesselLib::MacAddress macAddress_;
    const char* appTypeNames_[4];  // By application type; the last one stands for every other value.
};

}  // namespace VxCommon
