#include <VxApi/Base64.h>
#include <VxApi/Exception.h>
#include <VxApi/JsonSerializer.h>

namespace Vx::Properties
{
namespace
{

using nlohmann::json;

void CipherAll(json& value)
{
    if (value.is_binary()) {
        value = Base64Encode(value.get_binary());
    } else if (value.is_structured()) {
        for (json& member : value) {
            CipherAll(member);
        }
    }
}

}  // namespace

json JsonSerializer::Serialize(const Node& node)
{
    return node.ToJson();
}

json JsonSerializer::SerializeSchema(const Node& node)
{
    return node.Schema();
}

void JsonSerializer::Deserialize(Structure& structure, const json& document)
{
    Update(structure, document);
}

json JsonSerializer::CipherBinaryJson(std::span<const std::uint8_t> bytes)
{
    return json::binary(Bytes(bytes.begin(), bytes.end()));
}

Bytes JsonSerializer::DecipherBinaryJson(const json& value)
{
    if (value.is_binary()) {
        return value.get_binary();
    }
    if (!value.is_string()) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "Binary data must be a Base64 text, but is %s.", value.type_name());
    }
    const auto& text = value.get_ref<const std::string&>();
    std::size_t bad = 0;
    auto bytes = Base64Decode(text, &bad);
    if (!bytes && bad == text.size()) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "The Base64 text ends too early, after %zu characters.", bad);
    }
    if (!bytes) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "Character %zu of the Base64 text is not valid.", bad + 1);
    }
    return *std::move(bytes);
}

std::string ToJsonText(json document, int indent)
{
    CipherAll(document);
    return document.dump(indent, ' ', false, json::error_handler_t::replace);
}

}  // namespace Vx::Properties
