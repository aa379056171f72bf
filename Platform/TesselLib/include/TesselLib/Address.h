#pragma once
// Network address records and their text forms.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <Nucleo/Status.h>

namespace TesselLib
{

/// An IPv4 address, first byte first.
struct IpAddress
{
    std::array<std::uint8_t, 4> bytes{};
    bool operator==(const IpAddress&) const = default;
};

/// IP configuration of an interface.
struct IpConfig
{
    IpAddress address;
    IpAddress mask;
    IpAddress gateway;
    bool operator==(const IpConfig&) const = default;
};

/// A MAC address, first byte first.
struct MacAddress
{
    std::array<std::uint8_t, 6> bytes{};
    bool operator==(const MacAddress&) const = default;
};

/// Writes "192.168.1.10" and a NUL. ERROR_CAPACITY below 16 bytes of room.
Nucleo::Status IpAddress_Format(const IpAddress& address, char* text, std::size_t capacity);

/// Reads four decimal numbers of 0 to 255 without leading zeros, separated by dots and nothing else. ERROR_FORMAT
/// otherwise; `*address` is left alone then.
Nucleo::Status IpAddress_Parse(IpAddress* address, std::string_view text);

/// Writes "00:11:22:aa:bb:cc" and a NUL. ERROR_CAPACITY below 18 bytes of room.
Nucleo::Status MacAddress_Format(const MacAddress& address, char* text, std::size_t capacity);

}  // namespace TesselLib
