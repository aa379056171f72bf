#include "SettingGroups.h"

#include <TesselLib/Address.h>
#include <VxApi/Exception.h>

namespace VxHost
{
namespace
{

// The address as a number; 0 for a text that is no address.
std::uint32_t Number(const std::string& text)
{
    TesselLib::IpAddress address;
    static_cast<void>(TesselLib::IpAddress_Parse(&address, text));
    std::uint32_t number = 0;
    for (const std::uint8_t byte : address.bytes) {
        number = number << 8U | byte;
    }
    return number;
}

void RequireOnSensor(const char* what, std::uint64_t begin, std::uint64_t length, std::uint64_t sensor)
{
    if (begin + length > sensor) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "The region of interest leaves the sensor: %s %llu is more than %llu.", what,
                 begin + length, sensor);
    }
}

}  // namespace

void AddressText::Validate(const std::string& value) const
{
    Value::Validate(value);
    TesselLib::IpAddress address;
    if (TesselLib::IpAddress_Parse(&address, value) != Nucleo::OK) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "%s must be an address such as \"192.168.1.10\", but is \"%s\".", Name(),
                 value);
    }
}

void AcquisitionSettings::CheckTogether() const
{
    RequireOnSensor("roiX + roiWidth =", roiX.Get(), roiWidth.Get(), SensorWidth);
    RequireOnSensor("roiY + roiHeight =", roiY.Get(), roiHeight.Get(), SensorHeight);
}

void NetworkSettings::CheckTogether() const
{
    const std::uint32_t bits = Number(mask.Get());
    const std::uint32_t hosts = ~bits;
    if ((hosts & (hosts + 1)) != 0) {
        VX_THROW(Nucleo::ERROR_PARAMETER,
                 "mask must be ones followed by zeros, such as \"255.255.255.0\", but is \"%s\".", mask.Get());
    }
    const std::uint32_t way = Number(gateway.Get());
    if (!dhcp.Get() && way != 0 && (way & bits) != (Number(address.Get()) & bits)) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "gateway \"%s\" is not in the subnet of address \"%s\" with mask \"%s\".",
                 gateway.Get(), address.Get(), mask.Get());
    }
}

}  // namespace VxHost

std::vector<std::pair<VxHost::TriggerMode, std::string>> Vx::Properties::EnumTraits<VxHost::TriggerMode>::Values()
{
    using enum VxHost::TriggerMode;
    return {{FreeRunning, "Free running"}, {Software, "Software"}, {Input, "Input"}};
}

std::vector<std::pair<VxHost::Theme, std::string>> Vx::Properties::EnumTraits<VxHost::Theme>::Values()
{
    using enum VxHost::Theme;
    return {{Light, "Light"}, {Dark, "Dark"}};
}
