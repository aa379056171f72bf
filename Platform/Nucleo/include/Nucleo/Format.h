#pragma once
// Formatted printing over argument lists of 8-byte slots.
//
// A printf-style format is printed with FormatArgs: one 64-bit slot an argument (integers extended by their own
// signedness, the bits of doubles, pointers to NUL-ended strings), made at the call by MakeFormatArgs. Each slot
// carries its kind beside it, so a specifier that does not fit its argument prints "(?)" and is never followed as a
// pointer. Safe on any thread.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include <Nucleo/Status.h>

namespace Nucleo
{

/// What a slot holds.
enum class ArgKind : std::uint8_t
{
    Signed,
    Unsigned,
    Float,
    Text
};

/// An argument list: slots and their kinds, both of the same length, owned by the caller for the length of the call.
struct FormatArgs
{
    std::span<const std::uint64_t> slots;
    std::span<const ArgKind> kinds;
};

namespace Detail
{
template <class T>
constexpr ArgKind KindOf()
{
    if constexpr (std::is_enum_v<T>) {
        return KindOf<std::underlying_type_t<T>>();
    } else if constexpr (std::is_integral_v<T>) {
        return std::is_signed_v<T> ? ArgKind::Signed : ArgKind::Unsigned;
    } else if constexpr (std::is_floating_point_v<T>) {
        return ArgKind::Float;
    } else {
        static_assert(std::is_convertible_v<T, const char*> || std::is_same_v<T, std::string>,
                      "a format argument is a number, an enumeration or a NUL-ended string");
        return ArgKind::Text;
    }
}

template <class T>
std::uint64_t SlotOf(const T& value)
{
    if constexpr (std::is_enum_v<T>) {
        return SlotOf(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<std::uint64_t>(value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return std::bit_cast<std::uint64_t>(static_cast<double>(value));
    } else if constexpr (std::is_same_v<T, std::string>) {
        return reinterpret_cast<std::uint64_t>(value.c_str());
    } else {
        return reinterpret_cast<std::uint64_t>(static_cast<const char*>(value));
    }
}
}  // namespace Detail

/// Storage of an argument list for one call; converts to FormatArgs.
template <std::size_t N>
struct FormatArgsStorage
{
    std::array<std::uint64_t, N> slots;
    std::array<ArgKind, N> kinds;

    operator FormatArgs() const { return {slots, kinds}; }  // NOLINT(google-explicit-constructor)
};

/// The argument list of `args`. Strings are referred to, not copied: use it within the same full expression.
template <class... Args>
FormatArgsStorage<sizeof...(Args)> MakeFormatArgs(const Args&... args)
{
    return {{Detail::SlotOf<std::decay_t<const Args&>>(args)...}, {Detail::KindOf<std::decay_t<const Args&>>()...}};
}

/// A place in an argument list: the reader of the next slot.
struct ArgCursor
{
    FormatArgs args;
    std::size_t next = 0;
};

/// Prints `format` with `args`. Each specifier takes the next slot, whatever its positional marker ("%2$s") says;
/// a specifier without a slot left, one whose slot is of another kind, or one with a width or precision above 2^20
/// prints "(?)"; "%%" prints "%" and takes no slot, also with a marker or width in between. The length modifier decides
/// how many bits of an integer are shown ("%d" shows the low 32). Never fails but for memory.
std::string Print(std::string_view format, FormatArgs args);

/// The same into `capacity` bytes, NUL-ended, without taking memory (but for what the C library may take and give back
/// for a width or precision of many hundreds); `*length` (may be null) is the text's length, up to a NUL that "%c" may
/// have printed. A text that does not fit is ERROR_CAPACITY, and the buffer then holds an empty text (when it has any
/// room).
Status PrintTo(char* buffer, std::size_t capacity, std::size_t* length, std::string_view format,
               FormatArgs args) noexcept;

/// The runtime's number formatters: decimal integers, and floating-point numbers in the shortest form that reads back
/// as the same number ("0.1", "1e+20", "inf", "nan"). NUL-ended; ERROR_CAPACITY, and an empty text, when it does not
/// fit.
Status FormatNumber(std::int32_t value, char* buffer, std::size_t capacity) noexcept;
Status FormatNumber(std::uint32_t value, char* buffer, std::size_t capacity) noexcept;
Status FormatNumber(std::int64_t value, char* buffer, std::size_t capacity) noexcept;
Status FormatNumber(std::uint64_t value, char* buffer, std::size_t capacity) noexcept;
Status FormatNumber(double value, char* buffer, std::size_t capacity) noexcept;

}  // namespace Nucleo
