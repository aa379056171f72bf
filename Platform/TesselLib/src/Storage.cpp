#include <cstdint>

#include <TesselLib/Storage.h>

namespace TesselLib
{
namespace
{

constexpr std::string_view userPrefix = "/user/";
constexpr std::size_t maxNameLength = 255;

/// Length of the well-formed UTF-8 character at the start of `text` (the table of the Unicode standard: no overlong
/// forms, no surrogates, nothing above U+10FFFF); 0 when there is none.
std::size_t CharacterLength(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    std::uint8_t low = 0x80;  // Bounds of the second byte; the later ones are 0x80 to 0xBF.
    std::uint8_t high = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        low = first == 0xE0 ? 0xA0 : low;
        high = first == 0xED ? 0x9F : high;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        low = first == 0xF0 ? 0x90 : low;
        high = first == 0xF4 ? 0x8F : high;
    }
    if (length == 0 || length > text.size() || byte(1) < low || byte(1) > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

bool IsUtf8(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t length = CharacterLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

}  // namespace

Nucleo::Status Storage::Move(std::string_view /*from*/, std::string_view /*to*/)
{
    return Nucleo::ERROR_UNSUPPORTED;
}

bool IsStorageName(std::string_view name) noexcept
{
    constexpr std::string_view refused{"\0/", 2};
    return !name.empty() && name.size() <= maxNameLength && name != "." && name != ".." &&
           name.find_first_of(refused) == std::string_view::npos && IsUtf8(name);
}

std::string_view StorageName(std::string_view path) noexcept
{
    if (path.starts_with(userPrefix)) {
        path.remove_prefix(userPrefix.size());
    }
    return IsStorageName(path) ? path : std::string_view{};
}

}  // namespace TesselLib
