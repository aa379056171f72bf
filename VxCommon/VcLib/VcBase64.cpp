#include <VxCommon/VcLib/VcBase64.h>

#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <string_view>

using namespace Nucleo::Statuses;
using Nucleo::Status;

namespace
{

using Bytes = Nucleo::ArrayList<std::uint8_t>;

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Two characters for each 12 bits: half as many look-ups as one by one, and still small enough for the first cache.
constexpr auto Pairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t bits = 0; bits < pairs.size(); ++bits) {
        pairs[bits] = {Alphabet[bits >> 6], Alphabet[bits & 63]};
    }
    return pairs;
}();

/// What each character stands for; 0 for those outside the alphabet.
constexpr auto Values = [] {
    std::array<std::uint8_t, 256> values{};
    for (std::size_t value = 0; value < Alphabet.size(); ++value) {
        values[static_cast<std::uint8_t>(Alphabet[value])] = static_cast<std::uint8_t>(value);
    }
    return values;
}();

/// What each character contributes at each of the four places of a group, as the group's bytes lie in memory. The parts
/// of a group are joined by "or".
constexpr auto Places = [] {
    std::array<std::array<std::uint32_t, 256>, 4> places{};
    for (std::size_t place = 0; place < places.size(); ++place) {
        for (std::size_t character = 0; character < Values.size(); ++character) {
            const std::uint32_t bits = std::uint32_t{Values[character]} << (18 - 6 * place);
            const std::array<std::uint8_t, 4> bytes = {static_cast<std::uint8_t>(bits >> 16),
                                                       static_cast<std::uint8_t>(bits >> 8),
                                                       static_cast<std::uint8_t>(bits), 0};
            places[place][character] = std::bit_cast<std::uint32_t>(bytes);
        }
    }
    return places;
}();

void PutPair(char* out, std::uint64_t bits)
{
    std::memcpy(out, Pairs[bits & 0xFFF].data(), 2);
}

/// Written out, because that is what compilers make one load of.
std::uint64_t ReadBigEndian(const std::uint8_t* in)
{
    return std::uint64_t{in[0]} << 56 | std::uint64_t{in[1]} << 48 | std::uint64_t{in[2]} << 40 |
           std::uint64_t{in[3]} << 32 | std::uint64_t{in[4]} << 24 | std::uint64_t{in[5]} << 16 |
           std::uint64_t{in[6]} << 8 | std::uint64_t{in[7]};
}

/// Writes the padded text of `left` bytes.
void Encode(const std::uint8_t* in, std::size_t left, char* out)
{
    for (; left >= 8; left -= 6, in += 6, out += 8) {  // Two bytes of the eight stay for the next turn.
        const std::uint64_t bits = ReadBigEndian(in);
        PutPair(out, bits >> 52);
        PutPair(out + 2, bits >> 40);
        PutPair(out + 4, bits >> 28);
        PutPair(out + 6, bits >> 16);
    }
    for (; left >= 3; left -= 3, in += 3, out += 4) {
        const std::uint32_t bits = std::uint32_t{in[0]} << 16 | std::uint32_t{in[1]} << 8 | in[2];
        PutPair(out, bits >> 12);
        PutPair(out + 2, bits);
    }
    if (left != 0) {
        const std::uint32_t bits = std::uint32_t{in[0]} << 16 | (left == 2 ? std::uint32_t{in[1]} << 8 : 0);
        PutPair(out, bits >> 12);
        PutPair(out + 2, bits);
        std::memset(out + left + 1, '=', 3 - left);
    }
}

std::uint32_t ReadGroup(const std::uint8_t* in)
{
    return Places[0][in[0]] | Places[1][in[1]] | Places[2][in[2]] | Places[3][in[3]];
}

/// Writes the left * 6 / 8 whole bytes of `left` characters.
void Decode(const std::uint8_t* in, std::size_t left, std::uint8_t* out)
{
    // Eight bytes are written for the six of eight characters; from eleven on there is room for them.
    for (; left >= 11; left -= 8, in += 8, out += 6) {
        const std::uint64_t first = ReadGroup(in);
        const std::uint64_t second = ReadGroup(in + 4);
        const bool little = std::endian::native == std::endian::little;
        const std::uint64_t both = little ? first | second << 24 : first << 32 | second << 8;
        std::memcpy(out, &both, sizeof both);
    }
    std::uint32_t bits = 0;
    for (unsigned pending = 0; left != 0; --left) {
        bits = bits << 6 | Values[*in++];
        pending += 6;
        if (pending >= 8) {
            pending -= 8;
            *out++ = static_cast<std::uint8_t>(bits >> pending);
        }
    }
}

}  // namespace

Status VcBase64_Encode(const std::uint8_t* bytes, std::size_t count, Nucleo::String** text,
                       Nucleo::Allocator* allocator)
{
    *text = nullptr;
    if (count / 3 >= std::numeric_limits<std::size_t>::max() / 4) {
        return ERROR_MEMORY;
    }
    Nucleo::Handle<Nucleo::String> made;
    Status status = Nucleo::String::Make(made.Receive(), {}, allocator);
    if (status == OK && (status = made->Resize((count + 2) / 3 * 4)) == OK) {
        Encode(bytes, count, made->Data());
        *text = made.Detach();
    }
    return status;
}

Status VcBase64_Decode(const char* text, Bytes** list, Nucleo::Allocator* allocator)
{
    *list = nullptr;
    // Two searches at memory's speed instead of a question for each character.
    std::string_view characters(text);
    characters = characters.substr(0, characters.find('='));
    const std::size_t count = characters.size() / 4 * 3 + characters.size() % 4 * 6 / 8;
    Nucleo::Handle<Bytes> made;
    Status status = Bytes::Make(made.Receive(), count, allocator);
    if (status == OK && (status = made->Resize(count)) == OK && count != 0) {
        Decode(reinterpret_cast<const std::uint8_t*>(text), characters.size(), &made->At(0));
    }
    if (status == OK) {
        *list = made.Detach();
    }
    return status;
}
