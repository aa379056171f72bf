#pragma once
// The settings of the virtual controller.

#include <string>
#include <utility>
#include <vector>

#include "SettingGroup.h"

namespace VxHost
{

/// What starts an exposure.
enum class TriggerMode : std::int32_t
{
    FreeRunning = 0,
    Software = 1,
    Input = 2,
};

/// Colours of the user interface.
enum class Theme : std::int32_t
{
    Light = 0,
    Dark = 1,
};

}  // namespace VxHost

template <>
struct Vx::Properties::EnumTraits<VxHost::TriggerMode>
{
    static std::vector<std::pair<VxHost::TriggerMode, std::string>> Values();
};

template <>
struct Vx::Properties::EnumTraits<VxHost::Theme>
{
    static std::vector<std::pair<VxHost::Theme, std::string>> Values();
};

namespace VxHost
{

/// An IPv4 address in its dotted form.
class AddressText final : public Vx::Params::Value<std::string>
{
public:
    using Value::Value;

protected:
    void Validate(const std::string& value) const override;
};

/// How images are taken; part of a job.
struct AcquisitionSettings final : SettingGroup
{
    static constexpr std::uint32_t SensorWidth = 1920;
    static constexpr std::uint32_t SensorHeight = 1200;

    AcquisitionSettings() : SettingGroup("Acquisition") {}

    /// The region of interest must lie on the sensor.
    void CheckTogether() const override;

    Vx::Params::Value<double> exposure{
        *this, "exposure", {.initial = 1000, .title = "Exposure", .units = "us", .minimum = 5, .maximum = 1e6}};
    Vx::Params::Value<double> gain{
        *this, "gain", {.initial = 0, .title = "Gain", .units = "dB", .minimum = 0, .maximum = 24}};
    Vx::Params::Value<double> frameRate{
        *this, "frameRate", {.initial = 30, .title = "Frame rate", .units = "Hz", .minimum = 0.1, .maximum = 1000}};
    Vx::Params::Value<TriggerMode> triggerMode{
        *this, "triggerMode", {.initial = TriggerMode::FreeRunning, .title = "Trigger mode"}};
    Vx::Params::Value<std::uint32_t> roiX{
        *this, "roiX", {.title = "Region left edge", .units = "px", .maximum = SensorWidth - 1}};
    Vx::Params::Value<std::uint32_t> roiY{
        *this, "roiY", {.title = "Region top edge", .units = "px", .maximum = SensorHeight - 1}};
    Vx::Params::Value<std::uint32_t> roiWidth{
        *this,
        "roiWidth",
        {.initial = SensorWidth, .title = "Region width", .units = "px", .minimum = 1, .maximum = SensorWidth}};
    Vx::Params::Value<std::uint32_t> roiHeight{
        *this,
        "roiHeight",
        {.initial = SensorHeight, .title = "Region height", .units = "px", .minimum = 1, .maximum = SensorHeight}};
};

/// How the controller is reached; one per device.
struct NetworkSettings final : SettingGroup
{
    NetworkSettings() : SettingGroup("Network") {}

    /// The mask must be ones and then zeros, some of each; without DHCP the address must be one of an interface, and
    /// the gateway, unless it is 0.0.0.0, reachable.
    void CheckTogether() const override;

    Vx::Params::Value<std::string> name{
        *this, "name", {.initial = "virtual-controller", .title = "Name", .minLength = 1, .maxLength = 63}};
    Vx::Params::Value<bool> dhcp{*this, "dhcp", {.initial = false, .title = "Address from DHCP"}};
    AddressText address{*this, "address", {.initial = "192.168.1.10", .title = "Address"}};
    AddressText mask{*this, "mask", {.initial = "255.255.255.0", .title = "Subnet mask"}};
    AddressText gateway{*this, "gateway", {.initial = "0.0.0.0", .title = "Gateway"}};
};

/// What the user interface shows; part of the workspace.
struct LayoutSettings final : SettingGroup
{
    LayoutSettings() : SettingGroup("Layout") {}

    Vx::Params::Value<Theme> theme{*this, "theme", {.initial = Theme::Light, .title = "Theme"}};
    Vx::Params::Value<std::uint32_t> zoom{
        *this, "zoom", {.initial = 100, .title = "Zoom", .units = "%", .minimum = 10, .maximum = 1000}};
    Vx::Params::Value<bool> showGrid{*this, "showGrid", {.initial = true, .title = "Show the grid"}};
    Vx::Params::Value<std::string> page{*this, "page", {.initial = "live", .title = "Page at start", .maxLength = 100}};
};

}  // namespace VxHost
