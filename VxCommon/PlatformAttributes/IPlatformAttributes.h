#pragma once
// What this process runs on: operating system, hardware, application of the family, network interface.

#include <cstdint>

#include <TesselLib/Address.h>

namespace VxCommon
{

/// Read-only; every operation may be called from any thread.
class IPlatformAttributes
{
public:
    /// Which application of the product family a process is.
    enum class ApplicationType : std::uint8_t
    {
        PixoraFirmware = 0,   ///< Firmware of a sensor.
        PixoraService = 1,    ///< Service on a PC.
        AccelixFirmware = 2,  ///< Firmware of an accelerator.
    };

    virtual ~IPlatformAttributes() = default;

    /// The platform's operating-system code (TesselLib::OperatingSystem).
    virtual int OperatingSystem() const = 0;

    /// The platform's controller-type code (TesselLib::ControllerType).
    virtual int ControllerType() const = 0;
    virtual ApplicationType AppType() const = 0;
    virtual std::uint64_t CpuCount() const = 0;

    /// True where threads are pinned to cores: on a physical sensor under the embedded operating system.
    virtual bool UseCpuAffinity() const = 0;

    virtual bool OnPhysicalSensor() const = 0;
    virtual bool OnPhysicalAccelix() const = 0;
    virtual bool OnVirtualSensor() const = 0;
    virtual bool OnVirtualAccelix() const = 0;
    virtual bool OnPixoraServiceApp() const = 0;

    /// Whether this node may be restarted, and upgraded: every application but the PC service, whatever it runs on.
    virtual bool IsRestartable() const = 0;
    virtual bool IsUpgradable() const = 0;

    virtual const TesselLib::IpConfig& InterfaceIpConfig() const = 0;
    virtual const TesselLib::IpAddress& InterfaceIpAddress() const = 0;
    virtual const TesselLib::MacAddress& InterfaceMacAddress() const = 0;
    virtual unsigned AppId() const = 0;
};

}  // namespace VxCommon
