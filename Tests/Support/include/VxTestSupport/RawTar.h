#pragma once
// Tar archives by hand.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>

namespace VxTestSupport
{

/// What ends an archive.
inline const std::string tarEnd(1024, '\0');

/// Puts the checksum of a header of 512 bytes into it.
inline void SealTarHeader(char* header)
{
    std::memset(header + 148, ' ', 8);
    const unsigned sum = std::accumulate(
        header, header + 512, 0U, [](unsigned before, char c) { return before + static_cast<unsigned char>(c); });
    std::snprintf(header + 148, 8, "%06o", sum);
}

/// A tar entry, byte for byte what the writer makes of a file, or what it refuses to write.
inline std::string RawTar(std::string_view name, char type, std::string_view data,
                          std::optional<std::uint64_t> claimedSize = {})
{
    std::string header(512, '\0');
    const auto put = [&](std::size_t at, std::string_view text) { header.replace(at, text.size(), text); };
    const auto octal = [&](std::size_t at, int digits, std::uint64_t value) {
        char text[16];
        std::snprintf(text, sizeof text, "%0*llo ", digits, static_cast<unsigned long long>(value));
        put(at, text);
    };
    put(0, name);
    octal(100, 6, 0644);
    const std::uint64_t size = claimedSize.value_or(data.size());
    if (size >> 36 == 0) {
        octal(124, 11, size);
    } else {  // More than octal digits can say: binary, the highest byte first.
        put(124, std::string("\x80\0\0\0", 4));
        for (std::size_t i = 0; i < 8; ++i) {
            header[135 - i] = static_cast<char>(size >> (8 * i));
        }
    }
    octal(136, 11, 0);
    for (const std::size_t none : {108U, 116U, 329U, 337U}) {  // owner, group and device
        octal(none, 6, 0);
    }
    header[156] = type;
    put(157, type == '1' || type == '2' ? "a" : "");
    put(257, "ustar");
    put(263, "00");
    SealTarHeader(header.data());
    return header + std::string(data) + std::string((512 - data.size() % 512) % 512, '\0');
}

}  // namespace VxTestSupport
