#include "SettingGroups.h"

#include <Nucleo/ArrayList.h>
#include <TesselLib/Address.h>
#include <VxApi/Exception.h>
#include <VxCommon/VcUtils/VcUtils.h>

namespace VxHost
{
namespace
{

TesselLib::IpAddress ToAddress(const AddressText& text)
{
    TesselLib::IpAddress address;
    VX_CHECK(TesselLib::IpAddress_Parse(&address, text.Get()));
    return address;
}

bool IsGatewayReachable(const TesselLib::IpConfig& config)
{
    Nucleo::Handle<Nucleo::ArrayList<TesselLib::IpConfig>> list;
    VX_CHECK(Nucleo::ArrayList<TesselLib::IpConfig>::Make(list.Receive(), 1, nullptr));
    VX_CHECK(list->Append(config));
    return VcUtils_ValidateGatewayReachability(list.Get());
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
        VX_THROW(Nucleo::ERROR_PARAMETER, "%s must be an address such as \"192.168.1.10\", but is \"%.64s\".", Name(),
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
    const TesselLib::IpConfig config{ToAddress(address), ToAddress(mask), ToAddress(gateway),
                                     dhcp.Get() ? TesselLib::IpMode::Dhcp : TesselLib::IpMode::Manual};
    if (!VcUtils_ValidateSubnetMask(config.mask.bytes.data())) {
        VX_THROW(Nucleo::ERROR_PARAMETER,
                 "mask must be ones followed by zeros, such as \"255.255.255.0\", but is \"%s\".", mask.Get());
    }
    if (!VcUtils_ValidateIpConfig(&config)) {
        VX_THROW(Nucleo::ERROR_PARAMETER,
                 "address \"%s\" is none that an interface can have: it starts with 127 or 255.", address.Get());
    }
    if (!dhcp.Get() && !IsGatewayReachable(config)) {
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
