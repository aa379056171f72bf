#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace VxHost
{

/// The number that `text` is, in decimal digits; nothing when it is none, or does not fit.
template <class Number>
std::optional<Number> ToNumber(std::string_view text)
{
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

}  // namespace VxHost
