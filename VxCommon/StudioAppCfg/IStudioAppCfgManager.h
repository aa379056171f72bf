#pragma once
// The configuration of the PC application, as its parts see it.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <TesselLib/Address.h>
#include <VxApi/Logging.h>

namespace VxCommon
{

/// The settings are kept in an XML file, usually StudioAppCfg::FileName in the application's data folder. What a setter
/// is given must lie within the bounds below; otherwise it throws Vx::Exception with ERROR_PARAMETER, whose message
/// names the setting and what it takes, and changes nothing. Not locked: the owner says who may call when.
class IStudioAppCfgManager
{
public:
    using DebugLevels = Vx::Logging::Level;

    virtual ~IStudioAppCfgManager() = default;

    // Ports and address that the application's services listen on. Port 0 stands for one that the system chooses;
    // otherwise the two must not be the same.
    virtual std::uint16_t ControlPort() const = 0;
    virtual void SetControlPort(std::uint16_t port) = 0;
    virtual std::uint16_t WebPort() const = 0;
    virtual void SetWebPort(std::uint16_t port) = 0;

    /// Of version 4. 0.0.0.0 stands for all addresses of the machine.
    virtual const TesselLib::IpAddress& IpAddress() const = 0;
    virtual void SetIpAddress(const TesselLib::IpAddress& address) = 0;

    /// Whether the application looks for nodes in its networks.
    virtual bool DiscoveryEnabled() const = 0;
    virtual void SetDiscoveryEnabled(bool enabled) = 0;

    /// The UDP port on which nodes are asked and answer: 1 to 65535.
    virtual std::uint16_t DiscoveryPort() const = 0;
    virtual void SetDiscoveryPort(std::uint16_t port) = 0;

    /// Milliseconds from one look to the next: 100 to 60000.
    virtual std::uint32_t DiscoveryInterval() const = 0;
    virtual void SetDiscoveryInterval(std::uint32_t milliseconds) = 0;

    /// Whether anything below errors is logged to the console; DebugLevel is not looked at when not.
    virtual bool DebugEnabled() const = 0;
    virtual void SetDebugEnabled(bool enabled) = 0;

    /// The lowest level that is logged to the console.
    virtual DebugLevels DebugLevel() const = 0;
    virtual void SetDebugLevel(DebugLevels level) = 0;

    /// Takes the settings from a file. A setting that the file does not have takes its default; a missing file is made
    /// with the defaults. Throws Vx::Exception, and the settings stay, when the file cannot be read or made, is a link
    /// that leads nowhere, is no document of this kind, or has a value that is refused: the message names the file, the
    /// element and what was expected.
    virtual void Load(const std::filesystem::path& file) = 0;

    /// Writes the settings to a file, all or nothing, with the unknown elements of what was loaded last. Throws
    /// Vx::Exception when that is impossible, or the file is a link that leads nowhere; the old file stays then.
    virtual void Save(const std::filesystem::path& file) const = 0;

    /// What is odd about what was loaded last, one sentence for each element that is not known, ten at most; it names
    /// the element, and the one that may be meant. Empty when nothing is. Nobody else says it.
    virtual const std::vector<std::string>& Warnings() const = 0;
};

}  // namespace VxCommon
