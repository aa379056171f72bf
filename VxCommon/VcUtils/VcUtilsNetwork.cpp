#define VX_FILE_TAG "VcUtils/VcUtils"

#include <bit>
#include <span>

#include <Nucleo/ArrayList.h>
#include <VxApi/Logging.h>
#include <VxCommon/VcUtils/VcUtils.h>

using TesselLib::IpAddress;
using TesselLib::IpConfig;

namespace
{

bool InNetworkOf(const IpAddress& address, const IpConfig& interface)
{
    return TesselLib::IpAddress_SameNetwork(address, interface.address, interface.mask);
}

bool Clash(const IpConfig& a, const IpConfig& b)
{
    return a.address == b.address || InNetworkOf(b.address, a) || InNetworkOf(a.address, b);
}

}  // namespace

bool VcUtils_ValidateSubnetMask(const std::uint8_t* bytes)
{
    std::uint32_t mask = 0;
    for (const std::uint8_t byte : std::span(bytes, 4)) {
        mask = mask << 8U | byte;
    }
    return VcUtils_ValidateSubnetMaskValue32u(mask);
}

bool VcUtils_ValidateSubnetMaskValue32u(std::uint32_t mask)
{
    return mask != 0 && mask != 0xFFFFFFFF && std::has_single_bit(0U - mask);
}

bool VcUtils_ValidateIpConfig(const IpConfig* ipConfig)
{
    if (ipConfig->mode != TesselLib::IpMode::Manual) {
        return true;
    }
    const IpAddress& address = ipConfig->address;
    return address.version == TesselLib::IpVersion::V4 && address.bytes[0] != 255 && address.bytes[0] != 127;
}

bool VcUtils_ValidateIpNetworkUniqueness(const Nucleo::Object* ipConfigList)
{
    const auto* list = Nucleo::AsArrayListOf<IpConfig>(ipConfigList);
    if (list == nullptr) {
        Vx_Debug_Log(Warning, "%s: cannot check ipConfigList for network uniqueness",
                     "VcUtils_ValidateIpNetworkUniqueness");
        return true;
    }
    const std::span<const IpConfig> interfaces = list->Items();
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        for (std::size_t j = i + 1; j < interfaces.size(); ++j) {
            if (Clash(interfaces[i], interfaces[j])) {
                return false;
            }
        }
    }
    return true;
}

bool VcUtils_ValidateGatewayReachability(const Nucleo::Object* ipConfigList)
{
    const auto* list = Nucleo::AsArrayListOf<IpConfig>(ipConfigList);
    if (list == nullptr) {
        Vx_Debug_Log(Warning, "%s: cannot check ipConfigList for gateway reachability validation",
                     "VcUtils_ValidateGatewayReachability");
        return true;
    }
    const auto isReachable = [list](const IpAddress& gateway) {
        for (const IpConfig& interface : list->Items()) {
            if (InNetworkOf(gateway, interface)) {
                return true;
            }
        }
        return false;
    };
    for (const IpConfig& interface : list->Items()) {
        if (interface.gateway != IpAddress{} && !isReachable(interface.gateway)) {
            return false;
        }
    }
    return true;
}
