#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

#include <TesselLib/Address.h>

using namespace Nucleo::Statuses;

namespace TesselLib
{

const Nucleo::Type& IpConfig::StaticType() noexcept
{
    static const Nucleo::Type type{"IpConfig", nullptr, sizeof(IpConfig)};
    return type;
}

bool IpAddress_SameNetwork(const IpAddress& a, const IpAddress& b, const IpAddress& mask) noexcept
{
    bool same = a.version == b.version && a.version == mask.version;
    for (std::size_t i = 0; i < mask.bytes.size(); ++i) {
        same = same && ((a.bytes[i] ^ b.bytes[i]) & mask.bytes[i]) == 0;
    }
    return same;
}

Nucleo::Status IpAddress_Format(const IpAddress& address, char* text, std::size_t capacity)
{
    if (address.version == IpVersion::V6) {
        const auto room = static_cast<socklen_t>(std::min<std::size_t>(capacity, INET6_ADDRSTRLEN));
        return ::inet_ntop(AF_INET6, address.bytes.data(), text, room) != nullptr ? OK : ERROR_CAPACITY;
    }
    constexpr std::size_t needed = sizeof("255.255.255.255");
    if (capacity < needed) {
        return ERROR_CAPACITY;
    }
    const auto& b = address.bytes;
    std::snprintf(text, capacity, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
    return OK;
}

Nucleo::Status IpAddress_Parse(IpAddress* address, std::string_view text)
{
    IpAddress result;
    for (std::size_t i = 0; i < 4; ++i) {
        if (i != 0) {
            if (!text.starts_with('.')) {
                return ERROR_FORMAT;
            }
            text.remove_prefix(1);
        }
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result.bytes[i]);
        const auto digits = static_cast<std::size_t>(end - text.data());
        if (error != std::errc{} || (digits > 1 && text.front() == '0')) {
            return ERROR_FORMAT;
        }
        text.remove_prefix(digits);
    }
    if (!text.empty()) {
        return ERROR_FORMAT;
    }
    *address = result;
    return OK;
}

Nucleo::Status MacAddress_Format(const MacAddress& address, char* text, std::size_t capacity)
{
    constexpr std::size_t needed = sizeof("00:11:22:aa:bb:cc");
    if (capacity < needed) {
        return ERROR_CAPACITY;
    }
    const auto& b = address.bytes;
    std::snprintf(text, capacity, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
    return OK;
}

}  // namespace TesselLib
