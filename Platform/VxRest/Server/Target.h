#pragma once
// Taking request targets apart. Safe on any thread.

#include <map>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace VxRest::Http
{

/// A request target in its parts.
struct Target
{
    std::string authority;  ///< "host:port" of a target in absolute form, else empty.
    std::string path;       ///< As it came, percent-encoded. "*" for OPTIONS of the whole server.
    nlohmann::json args = nlohmann::json::object();
    std::map<std::string, std::string> texts;  ///< The arguments as they were written, decoded.
    bool schema = false;                       ///< ?schema=true, which is no argument.
};

/// Takes "/path?query", "http://host/path?query" or "*" apart. Throws Refusal (400) when it is malformed or names an
/// argument twice.
Target ParseTarget(std::string_view text);

/// A query argument by its look: a JSON number is a number, "true" and "false" are booleans, anything else a string.
nlohmann::json ValueByLook(std::string text);

}  // namespace VxRest::Http
