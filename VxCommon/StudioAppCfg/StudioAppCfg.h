#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <VxCommon/StudioAppCfg/IStudioAppCfgManager.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// The settings as a value, and as an XML text: root "StudioAppCfg" with one child element a setting, named as in the
/// initialisers below, which are the defaults. Copies are independent.
class VXCOMMON_API StudioAppCfg final : public IStudioAppCfgManager
{
public:
    static constexpr const char* FileName = "StudioAppCfg.xml";

    std::uint16_t ControlPort() const override { return controlPort_; }
    void SetControlPort(std::uint16_t port) override { controlPort_ = port; }
    std::uint16_t WebPort() const override { return webPort_; }
    void SetWebPort(std::uint16_t port) override { webPort_ = port; }
    const TesselLib::IpAddress& IpAddress() const override { return ipAddress_; }
    void SetIpAddress(const TesselLib::IpAddress& address) override;
    bool DiscoveryEnabled() const override { return discoveryEnabled_; }
    void SetDiscoveryEnabled(bool enabled) override { discoveryEnabled_ = enabled; }
    std::uint16_t DiscoveryPort() const override { return discoveryPort_; }
    void SetDiscoveryPort(std::uint16_t port) override;
    std::uint32_t DiscoveryInterval() const override { return discoveryInterval_; }
    void SetDiscoveryInterval(std::uint32_t milliseconds) override;
    bool DebugEnabled() const override { return debugEnabled_; }
    void SetDebugEnabled(bool enabled) override { debugEnabled_ = enabled; }
    DebugLevels DebugLevel() const override { return debugLevel_; }
    void SetDebugLevel(DebugLevels level) override;

    void Load(const std::filesystem::path& file) override;
    void Save(const std::filesystem::path& file) const override;
    const std::vector<std::string>& Warnings() const override { return warnings_; }

    /// The XML text: what was read last, with the settings' elements as they are now. Elements that are not known stay,
    /// comments do not. Throws ERROR_PARAMETER when both ports are the same, ERROR_LIMIT when the text would be too
    /// large to be read again, ERROR_MEMORY.
    std::vector<unsigned char> Write() const;

    /// Takes the settings from an XML text. All or nothing; throws ERROR_FORMAT or ERROR_LIMIT when it is no document
    /// of this kind, ERROR_PARAMETER for a refused value and for a setting that is there twice, ERROR_MEMORY.
    void Read(const void* data, std::size_t size);

private:
    std::vector<unsigned char> ToBytes() const;
    static StudioAppCfg FromText(std::string_view text);

    std::uint16_t controlPort_ = 8600;
    std::uint16_t webPort_ = 8080;
    TesselLib::IpAddress ipAddress_{{127, 0, 0, 1}};
    bool discoveryEnabled_ = true;
    std::uint16_t discoveryPort_ = 8601;
    std::uint32_t discoveryInterval_ = 1000;
    bool debugEnabled_ = true;
    DebugLevels debugLevel_ = DebugLevels::Warning;
    std::string document_;  // What was read last; keeps what this version does not know.
    std::vector<std::string> warnings_;
};

}  // namespace VxCommon
