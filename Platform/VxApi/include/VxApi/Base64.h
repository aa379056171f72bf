#pragma once
// Base64 texts (RFC 4648, standard alphabet with padding), strictly. All functions may be called from any thread.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Vx
{

/// The padded text of `bytes`, four characters for each three bytes begun; empty for none.
std::string Base64Encode(std::span<const std::uint8_t> bytes);

/// The bytes that `text` stands for. Nothing when it is not exactly what Base64Encode writes for some bytes: a
/// character outside the alphabet (white space included), padding that is missing, superfluous or misplaced, unused
/// bits that are not zero. `badPosition`, if given, is then the offset of the first character that is wrong, or the
/// length of a text that ends too early.
std::optional<std::vector<std::uint8_t>> Base64Decode(std::string_view text, std::size_t* badPosition = nullptr);

}  // namespace Vx
