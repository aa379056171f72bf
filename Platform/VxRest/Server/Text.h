#pragma once
// Comparing and cutting protocol text, which is ASCII whatever the locale is.

#include <algorithm>
#include <string_view>

namespace VxRest::Http
{

constexpr char ToLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool EqualNoCase(std::string_view left, std::string_view right)
{
    return left.size() == right.size() &&
           std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) { return ToLower(a) == ToLower(b); });
}

/// Without spaces and tabs at both ends.
constexpr std::string_view Trim(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Takes the part before the next `separator` outside quotes off `rest`, trimmed.
constexpr std::string_view NextPart(std::string_view& rest, char separator)
{
    bool quoted = false;
    std::size_t end = 0;
    for (; end < rest.size() && (quoted || rest[end] != separator); ++end) {
        if (rest[end] == '"') {
            quoted = !quoted;
        } else if (quoted && rest[end] == '\\') {
            ++end;
        }
    }
    const std::string_view part = Trim(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return part;
}

}  // namespace VxRest::Http
