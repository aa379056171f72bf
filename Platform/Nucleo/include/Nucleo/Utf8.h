#pragma once
// Where a UTF-8 text may be cut.

#include <cstddef>
#include <string_view>

namespace Nucleo
{

/// How many bytes of `text` are kept when there is room for `limit`: all, or as many as end between two characters.
/// Bytes that are no UTF-8 are cut anywhere. Safe on any thread.
inline std::size_t WholeCharacters(std::string_view text, std::size_t limit) noexcept
{
    if (text.size() <= limit) {
        return text.size();
    }
    const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    std::size_t end = limit;
    while (end > 0 && limit - end < 3 && (byte(end) & 0xC0U) == 0x80) {
        --end;
    }
    return byte(end) >= 0xC0 ? end : limit;
}

}  // namespace Nucleo
