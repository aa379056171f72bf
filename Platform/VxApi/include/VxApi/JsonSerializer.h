#pragma once
// Structures and binary values to JSON and back. All functions may be called from any thread, on objects that no other
// thread changes meanwhile.

#include <cstdint>
#include <span>
#include <string>

#include <VxApi/Properties.h>
#include <nlohmann/json.hpp>

namespace Vx::Properties
{

class JsonSerializer
{
public:
    /// The JSON form of a structure, a value or an array.
    static nlohmann::json Serialize(const Node& node);

    /// The schema of a structure, a value or an array.
    static nlohmann::json SerializeSchema(const Node& node);

    /// Sets a structure from its JSON form; see Update.
    static void Deserialize(Structure& structure, const nlohmann::json& document);

    /// The JSON form of bytes: a binary value of the JSON library, which CBOR and MessagePack write as a byte string
    /// and ToJsonText as Base64. (The JSON library's own dump() has no text for it that can be read back.)
    static nlohmann::json CipherBinaryJson(std::span<const std::uint8_t> bytes);

    /// The bytes of a binary value or of a Base64 text. Throws Exception with ERROR_PARAMETER for a text that is not
    /// strict Base64, naming the place of the first bad character counted from 1, and for a value of another type.
    static Bytes DecipherBinaryJson(const nlohmann::json& value);
};

/// A document as JSON text: binary values as Base64, invalid UTF-8 replaced by U+FFFD, numbers that are not finite as
/// null. `indent`: spaces a level; -1 for one line.
std::string ToJsonText(nlohmann::json document, int indent = -1);

}  // namespace Vx::Properties
