// Printing over slots, and the reader of specifiers. A format of valid specifiers prints what the C library prints, and
// its arguments are read one by one as the C library prints them by the types of the reader's table. Any other format
// is printed alike into every room, and reading it ends.

#include <bit>
#include <string>
#include <vector>

#include <Nucleo/Format.h>
#include <VxCommon/Logger/VcLogger.h>

#include "FuzzSupport.h"

#pragma GCC diagnostic ignored "-Wformat-nonliteral"

using namespace Nucleo::Statuses;
using Nucleo::ArgKind;

namespace
{

struct Case
{
    std::string format = "100%% ";
    std::string printed = "100% ";
    std::vector<std::uint64_t> slots;
    std::vector<ArgKind> kinds;
    std::vector<std::string> read;  // A floating-point number with all its digits.
    bool readable = true;           // No specifier has more than one flag, which is what the reader knows.
};

/// What the C library prints.
template <class T>
std::string Printed(const std::string& specifier, T value)
{
    char text[1024];
    const int length = std::snprintf(text, sizeof text, specifier.c_str(), value);
    return {text, std::size_t(length)};
}

void AddSpecifier(Choices& choices, Case& made)
{
    static const char* const lengths[] = {"", "", "", "l", "h", "hh", "ll", "q"};
    static const char* const texts[] = {"", "text", "\xE2\x82\xAC and %d", "a longer text, without any \xFF sense"};
    const std::uint8_t shape = choices.Byte();
    std::string specifier = (shape & 16) != 0 ? "%2$" : "%";
    const std::size_t marker = specifier.size();
    for (int flags = shape & 3; flags > 0; --flags) {
        specifier += " #+-0"[choices.Byte() % 5];
    }
    made.readable &= (shape & 3) < 2;
    specifier += (shape & 4) != 0 ? std::to_string(1 + choices.Byte() % 64) : "";
    specifier += (shape & 8) != 0 ? "." + std::to_string(choices.Byte() % 64) : "";
    const char conversion = "diuoxXcseEfFgGaA"[choices.Byte() & 15];
    const bool isInteger = std::string_view("diuoxX").find(conversion) != std::string_view::npos;
    const bool isFloat = !isInteger && conversion != 's' && conversion != 'c';
    const std::string length = isInteger || (isFloat && shape >> 5 == 3) ? lengths[shape >> 5] : "";
    specifier += length + conversion;
    made.format += specifier;
    specifier.replace(0, marker, "%");
    std::uint64_t slot = 0;
    for (int bytes = (choices.Byte() & 7) + 1; bytes > 0; --bytes) {
        slot = slot << 8 | choices.Byte();
    }
    const char* text = texts[slot % 4];
    const auto number = static_cast<int>(slot);
    const bool prints64 = length.starts_with('l') || length == "q";
    made.slots.push_back(conversion == 's' ? reinterpret_cast<std::uint64_t>(text) : slot);
    made.kinds.push_back(conversion == 's' ? ArgKind::Text
                         : isFloat         ? ArgKind::Float
                         : slot % 2 != 0   ? ArgKind::Signed
                                           : ArgKind::Unsigned);
    made.printed += conversion == 's' ? Printed(specifier, text)
                    : isFloat         ? Printed(specifier, std::bit_cast<double>(slot))
                    : prints64        ? Printed(specifier, slot)
                                      : Printed(specifier, number);
    made.read.push_back(conversion == 's'                     ? text
                        : conversion == 'c'                   ? Printed("%c", number).c_str()
                        : isFloat && length.empty()           ? Printed("%.17g", std::bit_cast<double>(slot))
                        : length.size() == 2 || length == "q" ? Printed("%lld", slot)
                        : length.empty() && (conversion == 'o' || conversion == 'u') ? Printed("%u", number)
                                                                                     : Printed("%d", number));
}

/// The arguments of a format as they are read; reading ends where the format does.
std::vector<std::string> Read(const std::string& format, const Nucleo::FormatArgs& args)
{
    std::vector<std::string> texts;
    Nucleo::ArgCursor argCursor{args};
    const char* cursor = format.c_str();
    const Nucleo::Type* type = nullptr;
    for (const char* before = cursor; VcLogger_ParseSpecificer(&cursor, &type) == OK; before = cursor) {
        char text[256];
        Require(cursor > before + 1 && cursor <= format.c_str() + format.size());
        Require(VcLogger_FormatArg(&argCursor, type, text, sizeof text) == OK);
        texts.push_back(type == &Nucleo::Float64Type ? Printed("%.17g", std::strtod(text, nullptr)) : text);
    }
    Require(cursor == format.c_str() + format.size());
    return texts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Choices choices(data, size);
    Case made;
    for (int count = choices.Byte() % 5; count > 0; --count) {
        AddSpecifier(choices, made);
    }
    const Nucleo::FormatArgs args{made.slots, made.kinds};
    Require(Nucleo::Print(made.format, args) == made.printed);
    Require(Read(made.format, args) == made.read || !made.readable);

    const std::string any = (made.format + std::string(choices.Rest())).c_str();
    Read(any, args);
    char text[1024];
    std::size_t length = 0;
    const Nucleo::Status status = Nucleo::PrintTo(text, sizeof text, &length, any, args);
    const std::string whole = Nucleo::Print(any, args);
    Require(status == (whole.size() < sizeof text ? OK : ERROR_CAPACITY));
    Require(status == OK ? whole.c_str() == std::string(text, length) : length == 0);
    return 0;
}
