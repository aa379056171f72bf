#pragma once
// What the host runs on, and how that is shown to users.

#include <cstdint>
#include <string>

#include <VxCommon/PlatformAttributes/PlatformAttributes.h>
#include <VxCommon/TesselSystem/TesselSystem.h>

#include "HostOptions.h"

namespace VxHost
{

/// Builds the attributes from what the local node of `system` says, which logs them. The web port is the one that is
/// asked for; the control port is 0, since the host has none. Throws Vx::Exception.
VxCommon::PlatformAttributes MakePlatformAttributes(const VxCommon::TesselSystem& system, const HostOptions& options);

/// The attributes as texts and numbers.
struct ControllerInfo
{
    /// `listening`: whether the ports are known. They show as 0 and are not looked at while they are not.
    ControllerInfo(const VxCommon::PlatformAttributes& platform, bool listening);

    std::string application;     ///< Such as "PixoraFirmware".
    std::string controllerType;  ///< Such as "virtual".
    std::string address;         ///< On which the host listens.
    std::uint16_t controlPort = 0;
    std::uint16_t webPort = 0;
};

}  // namespace VxHost
