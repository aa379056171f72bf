#pragma once
// Network address records and their text forms.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <Nucleo/Object.h>
#include <Nucleo/Status.h>

namespace TesselLib
{

enum class IpVersion : std::uint8_t
{
    V4 = 4,
    V6 = 6,
};

/// An IP address, first byte first. One of version 4 is the first four bytes; the others are 0.
struct IpAddress
{
    std::array<std::uint8_t, 16> bytes{};
    IpVersion version = IpVersion::V4;
    bool operator==(const IpAddress&) const = default;
};

/// Where an interface has its addresses from. Every code but 0 stands for some way in which the network hands them out.
enum class IpMode : std::int32_t
{
    Manual = 0,
    Dhcp = 1,
};

/// IP configuration of an interface. A gateway of 0.0.0.0 is none.
struct IpConfig
{
    IpAddress address;
    IpAddress mask;
    IpAddress gateway;
    IpMode mode = IpMode::Manual;
    bool operator==(const IpConfig&) const = default;

    static const Nucleo::Type& StaticType() noexcept;
};

/// A MAC address, first byte first.
struct MacAddress
{
    std::array<std::uint8_t, 6> bytes{};
    bool operator==(const MacAddress&) const = default;
};

/// Whether the addresses lie in the same network under `mask`: they are equal where the mask has ones. False when the
/// three are not all of one version.
bool IpAddress_SameNetwork(const IpAddress& a, const IpAddress& b, const IpAddress& mask) noexcept;

/// Writes "192.168.1.10" and a NUL. ERROR_CAPACITY below 16 bytes of room. An address of version 6 is written in its
/// usual form ("fe80::1"); ERROR_CAPACITY when it does not fit, which 46 bytes always do.
Nucleo::Status IpAddress_Format(const IpAddress& address, char* text, std::size_t capacity);

/// Reads an address of version 4: four decimal numbers of 0 to 255 without leading zeros, separated by dots and nothing
/// else. ERROR_FORMAT otherwise; `*address` is left alone then.
Nucleo::Status IpAddress_Parse(IpAddress* address, std::string_view text);

/// Writes "00:11:22:aa:bb:cc" and a NUL. ERROR_CAPACITY below 18 bytes of room.
Nucleo::Status MacAddress_Format(const MacAddress& address, char* text, std::size_t capacity);

}  // namespace TesselLib
