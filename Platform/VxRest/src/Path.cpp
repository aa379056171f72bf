#include <algorithm>

#include <VxRest/Path.h>

namespace VxRest::Path
{

namespace
{

constexpr std::string_view HexDigits = "0123456789ABCDEF";

bool IsUnreserved(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

int HexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// Takes the first non-empty segment off `path`; empty when there is none left.
std::string_view NextSegment(std::string_view& path)
{
    const std::size_t begin = path.find_first_not_of('/');
    if (begin == std::string_view::npos) {
        path = {};
        return {};
    }
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string_view segment = path.substr(begin, end - begin);
    path.remove_prefix(end);
    return segment;
}

bool SameSegment(std::string_view left, std::string_view right)
{
    return left == right || Decode(left).value_or(std::string(left)) == Decode(right).value_or(std::string(right));
}

}  // namespace

std::string Format(std::string_view pattern, const std::vector<std::string_view>& values)
{
    std::string path;
    path.reserve(pattern.size() + 32);
    std::size_t used = 0;
    for (std::size_t at = 0; at < pattern.size();) {
        const std::size_t end = std::min(pattern.find('/', at), pattern.size());
        const std::string_view segment = pattern.substr(at, end - at);
        if (segment.starts_with(':') && used < values.size()) {
            path += Encode(values[used++]);
        } else {
            path += segment;
        }
        if (end < pattern.size()) {
            path += '/';
        }
        at = end + 1;
    }
    return path;
}

std::string Format(std::string_view pattern, std::string_view value)
{
    return Format(pattern, std::vector<std::string_view>{value});
}

std::vector<std::string_view> Segments(std::string_view path)
{
    std::vector<std::string_view> segments;
    for (std::string_view segment = NextSegment(path); !segment.empty(); segment = NextSegment(path)) {
        segments.push_back(segment);
    }
    return segments;
}

std::optional<std::string> Decode(std::string_view segment)
{
    std::string text;
    text.reserve(segment.size());
    for (std::size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] != '%') {
            text += segment[i];
            continue;
        }
        if (i + 2 >= segment.size()) {
            return std::nullopt;
        }
        const int high = HexValue(segment[i + 1]);
        const int low = HexValue(segment[i + 2]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        text += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return text;
}

std::string Encode(std::string_view text)
{
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (IsUnreserved(c)) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += '%';
            encoded += HexDigits[byte >> 4];
            encoded += HexDigits[byte & 15U];
        }
    }
    return encoded;
}

bool IsWithin(std::string_view root, std::string_view path)
{
    for (std::string_view segment = NextSegment(root); !segment.empty(); segment = NextSegment(root)) {
        if (!SameSegment(segment, NextSegment(path))) {
            return false;
        }
    }
    return true;
}

}  // namespace VxRest::Path
