#include "Codec.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include <VxApi/Base64.h>
#include <VxApi/Exception.h>

#include "CborCheck.h"
#include "JsonBuilder.h"

namespace VxRest::Http
{

namespace
{

using nlohmann::json;
constexpr auto ReplaceInvalid = json::error_handler_t::replace;

/// What most answers fit into.
constexpr std::size_t TypicalBytes = 512;

json::input_format_t FormatOf(Media media)
{
    switch (media) {
        case Media::Cbor:
            return json::input_format_t::cbor;
        case Media::MsgPack:
            return json::input_format_t::msgpack;
        default:
            return json::input_format_t::json;
    }
}

bool IsAscii(const std::string& text)
{
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

template <class Number>
void AppendNumber(std::string& out, Number number)
{
    std::array<char, 32> digits{};
    out.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

/// A number that reads back as the same double and as no integer; null for those that JSON has no form for.
void AppendFloat(std::string& out, double number)
{
    if (!std::isfinite(number)) {
        out += "null";
        return;
    }
    const std::size_t begin = out.size();
    AppendNumber(out, number);
    if (out.find_first_of(".e", begin) == std::string::npos) {
        out += ".0";
    }
}

void AppendJson(std::string& out, const json& value);

/// Appends the members of an object and its end. `separator` goes before the first of them.
void AppendMembers(std::string& out, const json& object, std::string_view separator)
{
    for (const auto& [name, member] : object.get_ref<const json::object_t&>()) {
        out += separator;
        AppendText(out, name);
        out += ':';
        AppendJson(out, member);
        separator = ",";
    }
    out += '}';
}

/// Appends a value as JSON, binary values as Base64 texts. The library's own writer has no such form for them, and
/// takes several times as long for the small documents that make up most answers.
void AppendJson(std::string& out, const json& value)
{
    switch (value.type()) {
        case json::value_t::object:
            out += '{';
            AppendMembers(out, value, {});
            break;
        case json::value_t::array:
            out += '[';
            for (std::size_t i = 0; i < value.size(); ++i) {
                if (i > 0) {
                    out += ',';
                }
                AppendJson(out, value[i]);
            }
            out += ']';
            break;
        case json::value_t::string:
            AppendText(out, value.get_ref<const std::string&>());
            break;
        case json::value_t::binary:
            out += '"';
            out += Vx::Base64Encode(value.get_binary());
            out += '"';
            break;
        case json::value_t::boolean:
            out += value.get<bool>() ? "true" : "false";
            break;
        case json::value_t::number_unsigned:
            AppendNumber(out, value.get<std::uint64_t>());
            break;
        case json::value_t::number_integer:
            AppendNumber(out, value.get<std::int64_t>());
            break;
        case json::value_t::number_float:
            AppendFloat(out, value.get<double>());
            break;
        default:
            out += "null";
            break;
    }
}

json CleanTexts(json&& value)
{
    if (value.is_object()) {
        json::object_t clean;
        for (auto& [name, member] : value.get_ref<json::object_t&>()) {
            clean.insert_or_assign(CleanText(name), CleanTexts(std::move(member)));
        }
        return clean;
    }
    if (value.is_array()) {
        for (json& element : value) {
            element = CleanTexts(std::move(element));
        }
    } else if (value.is_string()) {
        value = CleanText(value.get_ref<const std::string&>());
    }
    return std::move(value);
}

}  // namespace

std::string CleanText(const std::string& text)
{
    // JSON's writer replaces invalid UTF-8; the binary formats' writers pass it on.
    return IsAscii(text) ? text : json::parse(json(text).dump(-1, ' ', false, ReplaceInvalid)).get<std::string>();
}

void AppendText(std::string& out, const std::string& text)
{
    // Most texts are plain; the library writes those that need an escape or may be invalid UTF-8.
    const bool plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; });
    if (plain) {
        out += '"';
        out += text;
        out += '"';
    } else {
        out += json(text).dump(-1, ' ', false, ReplaceInvalid);
    }
}

json DecodeBody(Media media, std::span<const std::uint8_t> body, const CodecLimits& limits)
{
    if (media == Media::Cbor) {
        CheckCbor(body, limits.depth);
    }
    JsonBuilder builder(limits, body.size());
    if (!json::sax_parse(body.begin(), body.end(), &builder, FormatOf(media))) {
        const bool tooMany = builder.Reason() == JsonBuilder::Failure::TooMany;
        throw Vx::Exception(VX_HERE, tooMany ? Nucleo::ERROR_LIMIT : Nucleo::ERROR_PARAMETER, builder.Message());
    }
    return std::move(builder.Value());
}

std::string_view EncodedBody::View() const
{
    if (const auto* text = std::get_if<std::string>(&bytes_)) {
        return *text;
    }
    const auto& bytes = std::get<std::vector<std::uint8_t>>(bytes_);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

EncodedBody EncodeBody(json&& value, Media media)
{
    if (media == Media::Cbor || media == Media::MsgPack) {
        const json clean = CleanTexts(std::move(value));
        return EncodedBody(media == Media::Cbor ? json::to_cbor(clean) : json::to_msgpack(clean));
    }
    std::string text;
    text.reserve(TypicalBytes);
    AppendJson(text, value);
    return EncodedBody(std::move(text));
}

EncodedBody EncodeObject(std::string_view members, const json& object)
{
    std::string text;
    text.reserve(TypicalBytes + members.size());
    text += '{';
    text += members;
    AppendMembers(text, object, members.empty() ? "" : ",");
    return EncodedBody(std::move(text));
}

json::binary_t* OnlyBinaryField(json& document)
{
    if (!document.is_object() || document.size() != 1 || !document.begin()->is_binary()) {
        return nullptr;
    }
    return &document.begin()->get_binary();
}

}  // namespace VxRest::Http
