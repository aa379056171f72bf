#pragma once
// Which names of hosts and origins mean this server. A page of a foreign site that reaches the server through a name of
// its own (DNS rebinding) or from its own origin (cross-site request) is told apart here. Safe on any thread.

#include <cstdint>
#include <string>
#include <string_view>

namespace VxRest::Http
{

class Authority
{
public:
    enum class Verdict
    {
        Own,
        Foreign,
        Malformed
    };

    /// `address`: what the server listens on, an IP address as text.
    Authority(const std::string& address, std::uint16_t port);

    /// Judges "host" or "host:port". Own: the listening address or "localhost", with the server's port if one is given.
    /// `reached`: the address that this connection came in on, which is what a server that listens on all answers to.
    Verdict Host(std::string_view host, const std::string& reached) const;

    /// Whether an Origin value is "http://" and this server's own host and port.
    bool IsOwnOrigin(std::string_view origin, const std::string& reached) const;

private:
    /// `defaultPort`: what a missing port means; 0: any.
    Verdict Judge(std::string_view host, std::uint16_t defaultPort, const std::string& reached) const;

    std::string address_;
    std::uint16_t port_;
    bool any_;  ///< Listens on all addresses.
};

/// Puts an IP address into its usual form (an IPv4 address inside IPv6 becomes plain); empty when `text` is none.
std::string NormalAddress(std::string_view text);

/// Whether an address as text is a loopback address.
bool IsLoopback(const std::string& address);

}  // namespace VxRest::Http
