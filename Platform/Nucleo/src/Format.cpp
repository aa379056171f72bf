#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include <Nucleo/Format.h>

namespace Nucleo
{
namespace
{

constexpr std::string_view unfit = "(?)";

// Widths and precisions from a format of ours are small; the bounds keep a wrong one from printing gigabytes.
constexpr std::size_t widest = std::size_t{1} << 20;
constexpr std::size_t longestFlagsToPrecision = 32;

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool IsFlag(char c)
{
    return c == ' ' || c == '#' || c == '+' || c == '-' || c == '0';
}

bool IsLength(char c)
{
    return c == 'h' || c == 'l' || c == 'q' || c == 'j' || c == 'z' || c == 't' || c == 'L' || c == 'I';
}

// Where the text goes: keeps what fits and counts all of it.
class Sink
{
public:
    Sink(char* buffer, std::size_t capacity) : begin_(buffer), end_(buffer), last_(buffer + capacity) {}

    std::size_t Length() const { return static_cast<std::size_t>(end_ - begin_) + lost_; }
    char* End() { return end_; }
    std::size_t Room() const { return static_cast<std::size_t>(last_ - end_); }

    void Put(const char* text, std::size_t size)
    {
        std::memcpy(end_, text, std::min(size, Room()));
        Advance(size);
    }
    void Put(std::string_view text) { Put(text.data(), text.size()); }
    // Puts the first `size` bytes of `text`. Most pieces of formats are short: these are copied in one go together with
    // what follows them, where that can be read and there is room for it, which saves a call for each.
    void PutFrontOf(std::string_view text, std::size_t size)
    {
        constexpr std::size_t oneGo = 32;
        if (size <= oneGo && text.size() >= oneGo && Room() >= oneGo) {
            std::memcpy(end_, text.data(), oneGo);
            end_ += size;
        } else {
            Put(text.data(), size);
        }
    }
    // Counts what was written at End(), or would have been, had there been room.
    void Advance(std::size_t size)
    {
        const std::size_t kept = std::min(size, Room());
        end_ += kept;
        lost_ += size - kept;
    }

    // A NUL was put: the text ends there for those who read it as a C string.
    void MarkNul() { hasNul_ = true; }
    bool HasNul() const { return hasNul_; }

private:
    bool hasNul_ = false;
    char* begin_;
    char* end_;   // Of the text so far.
    char* last_;  // Where it has to end.
    std::size_t lost_ = 0;
};

// One specifier taken apart: "%" [position "$"] [flags] [width] ["." precision] [length] conversion.
struct Specifier
{
    std::string_view flagsToPrecision;
    bool tooWide = false;
    int bits = 32;         // Of an integer, by the length modifier.
    char conversion = 0;   // 0: the format ended inside the specifier.
    std::size_t size = 0;  // Characters after the "%".

    bool IsPlain() const { return flagsToPrecision.empty(); }
};

// Skips a number; whether it is within the bound.
bool SkipNumber(std::string_view text, std::size_t& at)
{
    std::size_t value = 0;
    for (; at < text.size() && IsDigit(text[at]); ++at) {
        value = std::min(value * 10 + static_cast<std::size_t>(text[at] - '0'), widest + 1);
    }
    return value <= widest;
}

// Of a positional marker ("2$") at the beginning; 0 when there is none, so that digits are flags and width.
std::size_t MarkerSize(std::string_view text)
{
    std::size_t at = 0;
    while (at < text.size() && IsDigit(text[at])) {
        ++at;
    }
    return at != 0 && at < text.size() && text[at] == '$' ? at + 1 : 0;
}

Specifier ReadSpecifier(std::string_view text)
{
    Specifier specifier;
    std::size_t at = 0;
    while (const std::size_t marker = MarkerSize(text.substr(at))) {
        at += marker;
    }
    const std::size_t begin = at;
    while (at < text.size() && IsFlag(text[at])) {
        ++at;
    }
    specifier.tooWide = !SkipNumber(text, at);
    if (at < text.size() && text[at] == '.') {
        ++at;
        specifier.tooWide |= !SkipNumber(text, at);
    }
    specifier.flagsToPrecision = text.substr(begin, at - begin);
    specifier.tooWide |= specifier.flagsToPrecision.size() > longestFlagsToPrecision;
    while (at < text.size() && IsLength(text[at])) {
        if (text[at] == 'I') {  // "I32", "I64", or "I" alone for 32 bits.
            const std::string_view width = text.substr(at + 1, 2);
            specifier.bits = width == "64" ? 64 : 32;
            at += width == "64" || width == "32" ? 2 : 0;
        } else {
            specifier.bits = text[at] == 'h' ? specifier.bits / 2 : 64;
        }
        ++at;
    }
    if (at < text.size()) {
        specifier.conversion = text[at++];
    }
    specifier.size = at;
    return specifier;
}

// The way of every specifier that is not plain.
template <class T>
void PutFormatted(Sink& out, const Specifier& specifier, std::string_view conversion, T value)
{
    if (specifier.tooWide) {
        out.Put(unfit);
        return;
    }
    char format[longestFlagsToPrecision + 8];
    std::size_t length = 0;
    format[length++] = '%';
    length += specifier.flagsToPrecision.copy(format + length, specifier.flagsToPrecision.size());
    length += conversion.copy(format + length, conversion.size());
    format[length] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    // The sinks have one byte more than their capacity, for the NUL.
    const int needed = std::snprintf(out.End(), out.Room() + 1, format, value);
#pragma GCC diagnostic pop
    if (needed < 0) {
        out.Put(unfit);
    } else {
        out.Advance(static_cast<std::size_t>(needed));
    }
}

// `write` is std::to_chars with all but the buffer bound; false when 32 bytes are too few for it.
template <class Write>
bool PutNumber(Sink& out, Write write)
{
    char small[32];
    char* const begin = out.Room() >= sizeof small ? out.End() : small;
    const std::to_chars_result result = write(begin, begin + sizeof small);
    if (result.ec != std::errc()) {
        return false;
    }
    const auto size = static_cast<std::size_t>(result.ptr - begin);
    if (begin == small) {
        out.Put(small, size);
    } else {
        out.Advance(size);
    }
    return true;
}

template <class T>
bool PutDecimal(Sink& out, T value)
{
    return PutNumber(out, [value](char* begin, char* end) { return std::to_chars(begin, end, value); });
}

const char* TextOf(std::uint64_t slot)
{
    const auto* text = reinterpret_cast<const char*>(slot);
    return text != nullptr ? text : "(null)";
}

void PutInteger(Sink& out, const Specifier& specifier, std::uint64_t slot)
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
        if (specifier.IsPlain()) {
            PutDecimal(out, value);
        } else {
            PutFormatted(out, specifier, "lld", value);
        }
        return;
    }
    const unsigned long long value = specifier.bits == 64 ? slot : slot & ((1ULL << specifier.bits) - 1);
    if (specifier.IsPlain() && specifier.conversion != 'X') {
        const int base = specifier.conversion == 'u' ? 10 : specifier.conversion == 'x' ? 16 : 8;
        PutNumber(out, [value, base](char* begin, char* end) { return std::to_chars(begin, end, value, base); });
    } else {
        const char conversion[] = {'l', 'l', specifier.conversion};
        PutFormatted(out, specifier, {conversion, 3}, value);
    }
}

// A plain "%f", "%e" or "%g": false when it is another or its text is long.
bool PutPlainFloat(Sink& out, const Specifier& specifier, double value)
{
    constexpr int precision = 6;  // Of a specifier that names none.
    std::chars_format style = std::chars_format::general;
    if (!specifier.IsPlain()) {
        return false;
    }
    switch (specifier.conversion) {
        case 'f':
            style = std::chars_format::fixed;
            break;
        case 'e':
            style = std::chars_format::scientific;
            break;
        case 'g':
            break;
        default:
            return false;
    }
    return PutNumber(
        out, [value, style](char* begin, char* end) { return std::to_chars(begin, end, value, style, precision); });
}

void PutSlot(Sink& out, const Specifier& specifier, std::uint64_t slot, ArgKind kind)
{
    const bool isInteger = kind == ArgKind::Signed || kind == ArgKind::Unsigned;
    switch (specifier.conversion) {
        case 's':
            if (kind == ArgKind::Text) {
                if (specifier.IsPlain()) {
                    out.Put(TextOf(slot));
                } else {
                    PutFormatted(out, specifier, "s", TextOf(slot));
                }
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
                PutInteger(out, specifier, slot);
                return;
            }
            break;
        case 'c':
            if (isInteger) {
                PutFormatted(out, specifier, "c", static_cast<int>(slot));
                if (static_cast<char>(slot) == '\0') {
                    out.MarkNul();
                }
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
                const auto value = std::bit_cast<double>(slot);
                if (!PutPlainFloat(out, specifier, value)) {
                    PutFormatted(out, specifier, {&specifier.conversion, 1}, value);
                }
                return;
            }
            break;
        default:
            break;
    }
    out.Put(unfit);
}

// "%d", "%u" or "%s" with nothing in between, as most specifiers are: they need not be taken apart. False when the
// conversion or its slot is another.
bool PutPlain(Sink& out, char conversion, std::uint64_t slot, ArgKind kind)
{
    const bool isInteger = kind == ArgKind::Signed || kind == ArgKind::Unsigned;
    if (conversion == 'd' && isInteger) {
        return PutDecimal(out, static_cast<std::int32_t>(slot));
    }
    if (conversion == 'u' && isInteger) {
        return PutDecimal(out, static_cast<std::uint32_t>(slot));
    }
    if (conversion == 's' && kind == ArgKind::Text) {
        out.Put(TextOf(slot));
        return true;
    }
    return false;
}

void PrintInto(Sink& out, std::string_view format, FormatArgs args)
{
    std::size_t next = 0;
    std::size_t at = 0;
    while (at < format.size()) {
        const std::size_t percent = std::min(format.find('%', at), format.size());
        out.PutFrontOf(format.substr(at), percent - at);
        if (percent == format.size()) {
            break;
        }
        at = percent + 1;
        const char conversion = at < format.size() ? format[at] : '\0';
        const bool hasSlot = next < args.slots.size();
        if (hasSlot && PutPlain(out, conversion, args.slots[next], args.kinds[next])) {
            ++at;
            ++next;
        } else {
            const Specifier specifier = ReadSpecifier(format.substr(at));
            at += specifier.size;
            if (specifier.conversion == '%') {
                out.Put("%");
            } else if (specifier.conversion == 0 || !hasSlot) {
                out.Put(unfit);
            } else {
                PutSlot(out, specifier, args.slots[next], args.kinds[next]);
                ++next;
            }
        }
    }
}

template <class T>
Status FormatInto(char* buffer, std::size_t capacity, T value) noexcept
{
    if (capacity == 0) {
        return ERROR_CAPACITY;
    }
    const std::to_chars_result result = std::to_chars(buffer, buffer + capacity - 1, value);
    const bool fits = result.ec == std::errc();
    *(fits ? result.ptr : buffer) = '\0';
    return fits ? OK : ERROR_CAPACITY;
}

}  // namespace

std::string Print(std::string_view format, FormatArgs args)
{
    char small[512];
    Sink first(small, sizeof small - 1);
    PrintInto(first, format, args);
    if (first.Length() < sizeof small) {
        return {small, first.Length()};
    }
    std::string text(first.Length(), '\0');
    Sink again(text.data(), text.size());
    PrintInto(again, format, args);
    return text;
}

Status PrintTo(char* buffer, std::size_t capacity, std::size_t* length, std::string_view format,
               FormatArgs args) noexcept
{
    std::size_t printed = 0;
    Status status = ERROR_CAPACITY;
    if (capacity != 0) {
        Sink out(buffer, capacity - 1);
        PrintInto(out, format, args);
        if (out.Length() < capacity) {
            *out.End() = '\0';
            printed = out.HasNul() ? std::strlen(buffer) : out.Length();
            status = OK;
        } else {
            buffer[0] = '\0';
        }
    }
    if (length != nullptr) {
        *length = printed;
    }
    return status;
}

Status FormatNumber(std::int32_t value, char* buffer, std::size_t capacity) noexcept
{
    return FormatInto(buffer, capacity, value);
}

Status FormatNumber(std::uint32_t value, char* buffer, std::size_t capacity) noexcept
{
    return FormatInto(buffer, capacity, value);
}

Status FormatNumber(std::int64_t value, char* buffer, std::size_t capacity) noexcept
{
    return FormatInto(buffer, capacity, value);
}

Status FormatNumber(std::uint64_t value, char* buffer, std::size_t capacity) noexcept
{
    return FormatInto(buffer, capacity, value);
}

Status FormatNumber(double value, char* buffer, std::size_t capacity) noexcept
{
    return FormatInto(buffer, capacity, value);
}

}  // namespace Nucleo
