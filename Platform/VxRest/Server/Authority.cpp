#include "Authority.h"

#include <boost/asio/ip/address.hpp>

#include "Text.h"

namespace VxRest::Http
{

namespace ip = boost::asio::ip;

namespace
{

/// A port number; -1 for anything else.
int ParsePort(std::string_view text)
{
    if (text.empty() || text.size() > 5) {
        return -1;
    }
    int port = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') {
            return -1;
        }
        port = port * 10 + (digit - '0');
    }
    return port <= 65535 ? port : -1;
}

}  // namespace

std::string NormalAddress(std::string_view text)
{
    boost::system::error_code error;
    const ip::address address = ip::make_address(std::string(text), error);
    if (error) {
        return {};
    }
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        return ip::make_address_v4(ip::v4_mapped, address.to_v6()).to_string();
    }
    return address.to_string();
}

bool IsLoopback(const std::string& address)
{
    boost::system::error_code error;
    const ip::address parsed = ip::make_address(address, error);
    return !error && parsed.is_loopback();
}

Authority::Authority(const std::string& address, std::uint16_t port)
    : address_(NormalAddress(address)), port_(port), any_(address_ == "0.0.0.0" || address_ == "::")
{}

Authority::Verdict Authority::Host(std::string_view host, const std::string& reached) const
{
    return Judge(host, 0, reached);
}

bool Authority::IsOwnOrigin(std::string_view origin, const std::string& reached) const
{
    constexpr std::string_view scheme = "http://";
    return origin.size() > scheme.size() && EqualNoCase(origin.substr(0, scheme.size()), scheme) &&
           Judge(origin.substr(scheme.size()), 80, reached) == Verdict::Own;
}

Authority::Verdict Authority::Judge(std::string_view host, std::uint16_t defaultPort, const std::string& reached) const
{
    const bool literal = host.starts_with('[');
    const std::size_t nameEnd = literal ? host.find(']') : std::min(host.find(':'), host.size());
    if (nameEnd == std::string_view::npos) {
        return Verdict::Malformed;
    }
    const std::string_view name = literal ? host.substr(1, nameEnd - 1) : host.substr(0, nameEnd);
    const std::string_view rest = host.substr(nameEnd + (literal ? 1 : 0));
    int port = defaultPort == 0 ? port_ : defaultPort;
    if (!rest.empty()) {
        port = rest.front() == ':' ? ParsePort(rest.substr(1)) : -1;
    }
    if (name.empty() || port < 0 || name.find_first_of(" \t/@?#,") != std::string_view::npos) {
        return Verdict::Malformed;
    }
    if (port != port_) {
        return Verdict::Foreign;
    }
    if (!literal && (name == address_ || EqualNoCase(name, "localhost"))) {
        return Verdict::Own;
    }
    const std::string address = NormalAddress(name);
    if (literal && address.empty()) {
        return Verdict::Malformed;
    }
    return !address.empty() && address == (any_ ? reached : address_) ? Verdict::Own : Verdict::Foreign;
}

}  // namespace VxRest::Http
