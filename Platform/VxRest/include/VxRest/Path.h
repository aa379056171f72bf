#pragma once
// Resource paths: "/jobs/files/:jobFile" is a pattern whose segments that begin with ":" are keys. Safe on any thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VxRest::Path
{

/// Puts `values` in the place of the pattern's keys, in order, percent-encoded (all but RFC 3986 unreserved
/// characters), so that the result is a URI path that leads back to the same resource whatever bytes a value holds.
/// Keys beyond the values stay as they are.
std::string Format(std::string_view pattern, const std::vector<std::string_view>& values);
std::string Format(std::string_view pattern, std::string_view value);

/// The non-empty segments of a path, as they stand.
std::vector<std::string_view> Segments(std::string_view path);

/// Percent-decodes one segment. Nothing when a "%" is not followed by two hexadecimal digits. "+" stays "+".
std::optional<std::string> Decode(std::string_view segment);

/// Percent-encodes all bytes but the unreserved characters.
std::string Encode(std::string_view text);

/// True when `path` is `root` or lies below it, segment by segment; an empty root or "/" holds every path.
bool IsWithin(std::string_view root, std::string_view path);

}  // namespace VxRest::Path
