// The reader of format strings: which arguments a format takes, and their texts.

#include <VxCommon/Logger/VcLogger.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>

#include <Nucleo/Utf8.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;

namespace
{

constexpr char placeholder[] = "(?)";

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

const char* SkipDigits(const char* at)
{
    while (IsDigit(*at)) {
        ++at;
    }
    return at;
}

struct LengthModifier
{
    std::string_view text;
    const Nucleo::Type* type;
};

// In the order in which they are tried. The types are the table that readers of structured entries rely on: "hh" is 64
// bits wide, and whatever follows a modifier counts as a signed integer.
const LengthModifier modifiers[] = {
    {"hh", &Nucleo::Int64Type},  {"ll", &Nucleo::Int64Type},  {"h", &Nucleo::Int32Type}, {"l", &Nucleo::Int32Type},
    {"I32", &Nucleo::Int32Type}, {"I64", &Nucleo::Int64Type}, {"I", &Nucleo::Int32Type}, {"q", &Nucleo::Int64Type},
};

const Nucleo::Type& ConversionType(char conversion)
{
    switch (conversion) {
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            return Nucleo::Float64Type;
        case 'c':
            return Nucleo::CharType;
        case 'o':
        case 'u':
            return Nucleo::UInt32Type;
        case 's':
            return Nucleo::StringType;
        default:
            return Nucleo::Int32Type;
    }
}

Status CopyCut(std::string_view text, char* buffer, std::size_t capacity)
{
    if (capacity > 0) {
        buffer[text.copy(buffer, Nucleo::WholeCharacters(text, capacity - 1))] = '\0';
    }
    return OK;
}

Status FormatText(std::uint64_t slot, char* buffer, std::size_t capacity)
{
    const auto* text = reinterpret_cast<const char*>(slot);
    // Not strlen: what lies behind the cut need not be read.
    return CopyCut(text != nullptr ? std::string_view(text, strnlen(text, capacity)) : "(null)", buffer, capacity);
}

Status FormatChar(std::uint64_t slot, char* buffer, std::size_t capacity)
{
    if (capacity < 2) {
        return ERROR_PARAMETER;
    }
    buffer[0] = static_cast<char>(slot);
    buffer[1] = '\0';
    return OK;
}

}  // namespace

Status VcLogger_ParseSpecificer(const char** cursor, const Nucleo::Type** argType)
{
    const char* at = std::strchr(*cursor, '%');
    while (at != nullptr && at[1] == '%') {
        at = std::strchr(at + 2, '%');
    }
    if (at == nullptr) {
        *cursor += std::strlen(*cursor);
        return ERROR_PARAMETER;
    }
    ++at;
    const char* digits = at;
    at = SkipDigits(at);
    if (at == digits || *at == '$') {  // Digits without '$' were the width.
        if (at != digits) {
            ++at;
        }
        if (*at != '\0' && std::strchr(" #+-0", *at) != nullptr) {
            ++at;
        }
        at = SkipDigits(at);
    }
    if (*at == '.') {
        at = SkipDigits(at + 1);
    }
    *cursor = at;
    return VcLogger_ParseSpecType(cursor, argType);
}

Status VcLogger_ParseSpecType(const char** cursor, const Nucleo::Type** argType)
{
    const char* at = *cursor;
    for (const LengthModifier& modifier : modifiers) {
        if (std::strncmp(at, modifier.text.data(), modifier.text.size()) == 0) {
            at += modifier.text.size();
            *cursor = at;
            if (*at == '\0') {
                return ERROR_PARAMETER;
            }
            *cursor = at + 1;
            *argType = modifier.type;
            return OK;
        }
    }
    if (*at == '\0') {
        return ERROR_PARAMETER;
    }
    *cursor = at + 1;
    *argType = &ConversionType(*at);
    return OK;
}

Status VcLogger_FormatArg(Nucleo::ArgCursor* argCursor, const Nucleo::Type* argType, char* buffer, std::size_t capacity)
{
    const bool isText = argType == &Nucleo::StringType;
    const Nucleo::Type* const printed[] = {&Nucleo::Int32Type,  &Nucleo::UInt32Type, &Nucleo::Int64Type,
                                           &Nucleo::UInt64Type, &Nucleo::CharType,   &Nucleo::StringType,
                                           &Nucleo::Float64Type};
    if (std::find(std::begin(printed), std::end(printed), argType) == std::end(printed)) {
        return ERROR_PARAMETER;
    }
    if (argCursor->next >= argCursor->args.slots.size()) {
        return CopyCut(placeholder, buffer, capacity);
    }
    const std::uint64_t slot = argCursor->args.slots[argCursor->next];
    const bool holdsText = argCursor->args.kinds[argCursor->next] == Nucleo::ArgKind::Text;
    ++argCursor->next;
    if (holdsText != isText) {
        return CopyCut(placeholder, buffer, capacity);
    }
    if (isText) {
        return FormatText(slot, buffer, capacity);
    }
    if (argType == &Nucleo::Int32Type) {
        return Nucleo::FormatNumber(static_cast<std::int32_t>(slot), buffer, capacity);
    }
    if (argType == &Nucleo::UInt32Type) {
        return Nucleo::FormatNumber(static_cast<std::uint32_t>(slot), buffer, capacity);
    }
    if (argType == &Nucleo::Int64Type) {
        return Nucleo::FormatNumber(static_cast<std::int64_t>(slot), buffer, capacity);
    }
    if (argType == &Nucleo::UInt64Type) {
        return Nucleo::FormatNumber(slot, buffer, capacity);
    }
    if (argType == &Nucleo::CharType) {
        return FormatChar(slot, buffer, capacity);
    }
    return Nucleo::FormatNumber(std::bit_cast<double>(slot), buffer, capacity);
}
