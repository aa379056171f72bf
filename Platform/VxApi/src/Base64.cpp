#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include <VxApi/Base64.h>

namespace Vx
{
namespace
{

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Two characters for each 12 bits: half as many look-ups as one by one, and still small enough for the first cache.
constexpr auto Pairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t bits = 0; bits < pairs.size(); ++bits) {
        pairs[bits] = {Alphabet[bits >> 6], Alphabet[bits & 63]};
    }
    return pairs;
}();

/// The three bytes that a group of four characters stands for, in the order of memory, and a byte that is not zero when
/// one of the characters is outside the alphabet. As one number: the parts of a group are joined by "or".
using Group = std::uint32_t;
using GroupBytes = std::array<std::uint8_t, 4>;

constexpr Group Bad = std::bit_cast<Group>(GroupBytes{0, 0, 0, 1});

/// What each character contributes at each place of a group.
constexpr auto Places = [] {
    std::array<std::array<Group, 256>, 4> places{};
    for (std::size_t place = 0; place < places.size(); ++place) {
        places[place].fill(Bad);
        for (std::uint32_t value = 0; value < Alphabet.size(); ++value) {
            const std::uint32_t bits = value << (18 - 6 * place);
            places[place][static_cast<std::uint8_t>(Alphabet[value])] = std::bit_cast<Group>(
                GroupBytes{static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 8),
                           static_cast<std::uint8_t>(bits), 0});
        }
    }
    return places;
}();

Group ReadGroup(const char* at)
{
    const auto byte = [at](std::size_t i) { return static_cast<std::uint8_t>(at[i]); };
    return Places[0][byte(0)] | Places[1][byte(1)] | Places[2][byte(2)] | Places[3][byte(3)];
}

bool IsDigit(char c)
{
    return Places[0][static_cast<std::uint8_t>(c)] != Bad;
}

/// How far a text that is not Base64 could still have become one.
std::size_t FirstBad(std::string_view text)
{
    const auto pad = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) - text.begin());
    const std::size_t place = pad % 4;
    if (pad == text.size() || place < 2 || text[pad] != '=') {
        return pad;
    }
    if ((Alphabet.find(text[pad - 1]) & (place == 2 ? 15 : 3)) != 0) {
        return pad - 1;
    }
    return place == 2 && pad + 1 < text.size() && text[pad + 1] == '=' ? pad + 2 : pad + 1;
}

}  // namespace

std::string Base64Encode(std::span<const std::uint8_t> bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4, '=');
    char* out = text.data();
    const std::uint8_t* in = bytes.data();
    std::size_t left = bytes.size();
    for (; left >= 3; left -= 3, in += 3, out += 4) {
        const std::uint32_t bits = std::uint32_t{in[0]} << 16 | std::uint32_t{in[1]} << 8 | in[2];
        std::memcpy(out, Pairs[bits >> 12].data(), 2);
        std::memcpy(out + 2, Pairs[bits & 0xFFF].data(), 2);
    }
    if (left == 1) {
        std::memcpy(out, Pairs[std::size_t{in[0]} << 4].data(), 2);
    } else if (left == 2) {
        const std::uint32_t bits = std::uint32_t{in[0]} << 16 | std::uint32_t{in[1]} << 8;
        std::memcpy(out, Pairs[bits >> 12].data(), 2);
        out[2] = Pairs[bits & 0xFFF][0];
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> Base64Decode(std::string_view text, std::size_t* badPosition)
{
    const auto fail = [text, badPosition] {
        if (badPosition != nullptr) {
            *badPosition = FirstBad(text);
        }
        return std::nullopt;
    };
    if (text.size() % 4 != 0) {
        return fail();
    }
    if (text.empty()) {
        return std::vector<std::uint8_t>();
    }
    // Only the last group may be padded.
    const std::size_t last = text.size() - 4;
    const std::size_t digits = text.ends_with("==") ? 2 : text.ends_with('=') ? 3 : 4;
    std::vector<std::uint8_t> bytes(last / 4 * 3 + digits - 1);
    std::uint8_t* out = bytes.data();
    Group seen = 0;
    for (std::size_t at = 0; at < last; at += 4, out += 3) {
        const Group group = ReadGroup(text.data() + at);
        seen |= group;
        // One byte too many, which the next group overwrites: the last group has at least one byte of its own.
        std::memcpy(out, &group, sizeof group);
    }
    std::array<char, 4> tail = {'A', 'A', 'A', 'A'};
    text.copy(tail.data(), digits, last);
    const Group group = ReadGroup(tail.data());
    const auto ending = std::bit_cast<GroupBytes>(group);
    // Beyond its own bytes the last group holds unused bits, or else the mark of a bad character.
    if (((seen | group) & Bad) != 0 || ending[digits - 1] != 0) {
        return fail();
    }
    std::copy_n(ending.begin(), digits - 1, out);
    return bytes;
}

}  // namespace Vx
