#pragma once
// A request's header as the server reads it, independent of the HTTP library.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VxRest::Http
{

enum class Verb
{
    Get,
    Head,
    Put,
    Patch,
    Post,
    Delete,
    Options,
    Other
};

/// The names of all but `Other`, as a field value.
inline constexpr std::string_view AllVerbs = "OPTIONS, GET, HEAD, PUT, PATCH, POST, DELETE";

/// The parts of a header that the server looks at. The views live as long as the parser that they come from. Fields
/// that are missing are absent; `accept` joins all Accept fields.
struct RequestHead
{
    Verb verb = Verb::Other;
    bool http11 = true;
    bool keepAlive = true;
    bool chunked = false;
    std::string_view target;
    std::optional<std::string_view> host;
    std::optional<std::string_view> authorization;
    std::optional<std::string_view> origin;
    std::optional<std::string_view> expect;
    std::optional<std::string_view> contentType;
    std::optional<std::string_view> contentEncoding;
    std::optional<std::string_view> lastEventId;
    std::optional<std::uint64_t> contentLength;
    std::string accept;

    bool HasBody() const { return chunked || contentLength.value_or(0) > 0; }
    bool ChangesState() const { return verb != Verb::Get && verb != Verb::Head && verb != Verb::Options; }
};

}  // namespace VxRest::Http
