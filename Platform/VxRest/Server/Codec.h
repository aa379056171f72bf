#pragma once
// Bodies to JSON values and back. Safe on any thread.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "MediaType.h"

namespace VxRest::Http
{

/// What a body may hold. Checked while it is parsed, before anything deep or large is built.
struct CodecLimits
{
    std::size_t depth = 64;          ///< Objects and arrays inside each other.
    std::size_t values = 1'000'000;  ///< Values, each of which takes many times its two bytes of text.
};

/// The value that a JSON, CBOR or MessagePack body holds. Throws Vx::Exception: ERROR_PARAMETER when it is malformed or
/// nested too deeply, ERROR_LIMIT when it holds too many values.
nlohmann::json DecodeBody(Media media, std::span<const std::uint8_t> body, const CodecLimits& limits);

/// The bytes of an encoded body.
class EncodedBody
{
public:
    EncodedBody() = default;
    explicit EncodedBody(std::string text) : bytes_(std::move(text)) {}
    explicit EncodedBody(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::string_view View() const;

private:
    std::variant<std::string, std::vector<std::uint8_t>> bytes_;
};

/// Writes a value as JSON (binary values as Base64 texts), CBOR or MessagePack. Invalid UTF-8 is replaced.
EncodedBody EncodeBody(nlohmann::json&& value, Media media);

/// Writes an object as JSON, behind members that are written already: `members` is "" or `"name":value`, more of them
/// separated by commas.
EncodedBody EncodeObject(std::string_view members, const nlohmann::json& object);

/// The text with invalid UTF-8 replaced.
std::string CleanText(const std::string& text);

/// Appends a text as JSON.
void AppendText(std::string& out, const std::string& text);

/// The bytes of a document whose only field is binary; null when `document` is not one.
nlohmann::json::binary_t* OnlyBinaryField(nlohmann::json& document);

}  // namespace VxRest::Http
