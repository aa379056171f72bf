#include "Gate.h"

#include "Reply.h"
#include "Text.h"

namespace VxRest::Http
{

namespace
{

/// Takes the same time wherever the texts differ; only the token's length could be told from it.
bool SameSecret(std::string_view given, std::string_view secret)
{
    unsigned difference = given.size() == secret.size() ? 0U : 1U;
    for (std::size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i]) ^ static_cast<unsigned char>(secret[i % secret.size()]);
    }
    volatile unsigned result = difference;
    return result == 0;
}

}  // namespace

void Gate::Check(const RequestHead& head, const Target& target, const std::string& reached) const
{
    // HTTP/1.0 knows no Host; the browsers that the rule is about always send one.
    if (head.host) {
        CheckHost(*head.host, reached);
    } else if (head.http11) {
        throw Refusal(400, "the request has no Host");
    }
    if (!target.authority.empty()) {
        CheckHost(target.authority, reached);
    }
    if (!token_.empty()) {
        CheckToken(head);
    }
    if (head.origin && head.ChangesState() && !authority_.IsOwnOrigin(*head.origin, reached)) {
        throw Refusal(403, "a request that changes something must not come from the foreign origin \"" +
                               std::string(*head.origin) + "\"");
    }
}

void Gate::CheckHost(std::string_view host, const std::string& reached) const
{
    switch (authority_.Host(host, reached)) {
        case Authority::Verdict::Own:
            return;
        case Authority::Verdict::Foreign:
            throw Refusal(421, "the host \"" + std::string(host) + "\" is not this server");
        case Authority::Verdict::Malformed:
            throw Refusal(400, "the host \"" + std::string(host) + "\" is malformed");
    }
}

void Gate::CheckToken(const RequestHead& head) const
{
    constexpr std::string_view scheme = "Bearer ";
    const std::string_view given = head.authorization.value_or(std::string_view());
    const bool bearer = given.size() > scheme.size() && EqualNoCase(given.substr(0, scheme.size()), scheme);
    if (!bearer) {
        throw Refusal(401, "a bearer token is needed").With("WWW-Authenticate", "Bearer realm=\"VxRest\"");
    }
    if (!SameSecret(Trim(given.substr(scheme.size())), token_)) {
        throw Refusal(401, "the bearer token is not the right one")
            .With("WWW-Authenticate", "Bearer realm=\"VxRest\", error=\"invalid_token\"");
    }
}

}  // namespace VxRest::Http
