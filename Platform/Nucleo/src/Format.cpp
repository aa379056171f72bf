#include <cstdio>

#include <Nucleo/Format.h>

namespace Nucleo
{
namespace
{

constexpr std::string_view unfit = "(?)";

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// One specifier taken apart: "%" [position "$"] [flags] [width] ["." precision] [length] conversion.
struct Specifier
{
    std::string_view flagsToPrecision;
    int bits = 32;         // Of an integer, by the length modifier.
    char conversion = 0;   // 0: the format ended inside the specifier.
    std::size_t size = 0;  // Characters after the "%".
};

Specifier ReadSpecifier(std::string_view text)
{
    Specifier specifier;
    std::size_t at = 0;
    while (at < text.size() && IsDigit(text[at])) {
        ++at;
    }
    if (at == 0 || at == text.size() || text[at] != '$') {
        at = 0;  // No position: the digits are flags and width.
    } else {
        ++at;
    }
    const std::size_t begin = at;
    while (at < text.size() && std::string_view(" #+-0").find(text[at]) != std::string_view::npos) {
        ++at;
    }
    while (at < text.size() && IsDigit(text[at])) {
        ++at;
    }
    if (at < text.size() && text[at] == '.') {
        ++at;
        while (at < text.size() && IsDigit(text[at])) {
            ++at;
        }
    }
    specifier.flagsToPrecision = text.substr(begin, at - begin);
    while (at < text.size() && std::string_view("hlqjzt").find(text[at]) != std::string_view::npos) {
        specifier.bits = text[at] == 'h' ? specifier.bits / 2 : 64;
        ++at;
    }
    if (at < text.size()) {
        specifier.conversion = text[at++];
    }
    specifier.size = at;
    return specifier;
}

template <class T>
void Append(std::string& out, const Specifier& specifier, std::string_view conversion, T value)
{
    // Widths from a format of ours are small; the bound keeps a wrong one from printing megabytes.
    char format[48];
    if (specifier.flagsToPrecision.size() > 32) {
        out += unfit;
        return;
    }
    std::size_t length = 0;
    format[length++] = '%';
    length += specifier.flagsToPrecision.copy(format + length, specifier.flagsToPrecision.size());
    length += conversion.copy(format + length, conversion.size());
    format[length] = '\0';
    char small[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int needed = std::snprintf(small, sizeof small, format, value);
    if (needed < 0 || needed > 1 << 20) {
        out += unfit;
    } else if (static_cast<std::size_t>(needed) < sizeof small) {
        out.append(small, static_cast<std::size_t>(needed));
    } else {
        const std::size_t old = out.size();
        out.resize(old + static_cast<std::size_t>(needed) + 1);
        std::snprintf(out.data() + old, static_cast<std::size_t>(needed) + 1, format, value);
        out.pop_back();
    }
#pragma GCC diagnostic pop
}

void AppendInteger(std::string& out, const Specifier& specifier, std::uint64_t slot)
{
    const bool isSigned = specifier.conversion == 'd' || specifier.conversion == 'i';
    if (isSigned) {
        long long value = static_cast<long long>(slot);
        if (specifier.bits == 32) {
            value = static_cast<std::int32_t>(slot);
        } else if (specifier.bits == 16) {
            value = static_cast<std::int16_t>(slot);
        } else if (specifier.bits == 8) {
            value = static_cast<std::int8_t>(slot);
        }
        Append(out, specifier, "lld", value);
    } else {
        const unsigned long long value = specifier.bits == 64 ? slot : slot & ((1ULL << specifier.bits) - 1);
        const char conversion[] = {'l', 'l', specifier.conversion};
        Append(out, specifier, {conversion, 3}, value);
    }
}

void AppendSlot(std::string& out, const Specifier& specifier, std::uint64_t slot, ArgKind kind)
{
    const bool isInteger = kind == ArgKind::Signed || kind == ArgKind::Unsigned;
    switch (specifier.conversion) {
        case 's':
            if (kind == ArgKind::Text) {
                const auto* text = reinterpret_cast<const char*>(slot);
                Append(out, specifier, "s", text != nullptr ? text : "(null)");
                return;
            }
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            if (isInteger) {
                AppendInteger(out, specifier, slot);
                return;
            }
            break;
        case 'c':
            if (isInteger) {
                Append(out, specifier, "c", static_cast<int>(slot));
                return;
            }
            break;
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            if (kind == ArgKind::Float) {
                Append(out, specifier, {&specifier.conversion, 1}, std::bit_cast<double>(slot));
                return;
            }
            break;
        default:
            break;
    }
    out += unfit;
}

}  // namespace

std::string Print(std::string_view format, FormatArgs args)
{
    std::string out;
    out.reserve(format.size() + 16 * args.slots.size());
    std::size_t next = 0;
    std::size_t at = 0;
    while (at < format.size()) {
        const std::size_t percent = format.find('%', at);
        out += format.substr(at, percent - at);
        if (percent == std::string_view::npos) {
            break;
        }
        at = percent + 1;
        if (at < format.size() && format[at] == '%') {
            out += '%';
            ++at;
            continue;
        }
        const Specifier specifier = ReadSpecifier(format.substr(at));
        at += specifier.size;
        if (specifier.conversion == 0 || next >= args.slots.size()) {
            out += unfit;
        } else {
            AppendSlot(out, specifier, args.slots[next], args.kinds[next]);
            ++next;
        }
    }
    return out;
}

}  // namespace Nucleo
