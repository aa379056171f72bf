#pragma once
// Who may ask: the checks of host, token and origin that every request passes first. Safe on any thread.

#include <string>

#include "Authority.h"
#include "RequestHead.h"
#include "Target.h"

namespace VxRest::Http
{

class Gate
{
public:
    /// An empty token lets everybody in.
    Gate(Authority authority, std::string token) : authority_(std::move(authority)), token_(std::move(token)) {}

    /// Throws Refusal: 400 for a missing or malformed host, 421 for a foreign one, 401 without the token, 403 for a
    /// state-changing request from a foreign origin. `reached`: the address that the connection came in on.
    void Check(const RequestHead& head, const Target& target, const std::string& reached) const;

private:
    void CheckHost(std::string_view host, const std::string& reached) const;
    void CheckToken(const RequestHead& head) const;

    const Authority authority_;
    const std::string token_;
};

}  // namespace VxRest::Http
