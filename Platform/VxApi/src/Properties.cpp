#include <array>
#include <charconv>
#include <cmath>
#include <optional>

#include <VxApi/Exception.h>
#include <VxApi/JsonSerializer.h>
#include <VxApi/Logging.h>
#include <VxApi/Properties.h>

namespace Vx::Properties
{
namespace
{

using nlohmann::json;

// Names from outside appear in messages, but not at any length.
constexpr std::size_t MaxShownName = 64;

std::string Shown(const std::string& name)
{
    return '"' + (name.size() <= MaxShownName ? name : name.substr(0, MaxShownName) + "...") + '"';
}

[[noreturn]] void Refuse(std::string message)
{
    throw Exception(VX_HERE, Nucleo::ERROR_PARAMETER, std::move(message));
}

[[noreturn]] void RefuseType(const std::string& path, const char* expected, const json& value)
{
    Refuse((path.empty() ? "The document" : path) + " must be of type " + expected + ", but is " + value.type_name() +
           ".");
}

[[noreturn]] void RefuseNumber(const std::string& path, const std::string& expected, const json& value)
{
    // The JSON library writes what is not finite as null.
    const bool finite = !value.is_number_float() || std::isfinite(value.get<double>());
    Refuse(path + " must be " + expected + ", but is " + (finite ? value.dump() : "not finite") + ".");
}

[[noreturn]] void RefuseUnknown(const std::string& path, const std::string& name, const std::vector<Field*>& fields)
{
    std::string known;
    for (const Field* field : fields) {
        known += (known.empty() ? "" : ", ") + Shown(field->Name());
    }
    Refuse((path.empty() ? "The document" : path) + " has no field " + Shown(name) + "; known are: " + known + ".");
}

bool IsReserved(const std::string& name)
{
    return name == "_links" || name == "_embedded" || name == "_schema";
}

// A whole number of whichever type it is written in, if it lies in [-2^63, 2^64).
struct Whole
{
    bool negative = false;
    std::uint64_t bits = 0;  // In two's complement.
};

std::optional<Whole> ToWhole(const json& value)
{
    if (value.is_number_unsigned()) {
        return Whole{false, value.get<std::uint64_t>()};
    }
    if (value.is_number_integer()) {
        const auto number = value.get<std::int64_t>();
        return Whole{number < 0, static_cast<std::uint64_t>(number)};
    }
    const auto number = value.get<double>();
    if (number != std::trunc(number) || !(number >= -0x1p63 && number < 0x1p64)) {
        return std::nullopt;
    }
    return number < 0 ? Whole{true, static_cast<std::uint64_t>(static_cast<std::int64_t>(number))}
                      : Whole{false, static_cast<std::uint64_t>(number)};
}

}  // namespace

void PendingUpdate::Apply()
{
    for (const auto& set : values) {
        set();
    }
    for (const auto& notify : notices) {
        notify();
    }
}

Field* Structure::Find(std::string_view name) const noexcept
{
    const auto found =
        std::find_if(fields_.begin(), fields_.end(), [name](const Field* field) { return field->Name() == name; });
    return found == fields_.end() ? nullptr : *found;
}

json Structure::ToJson() const
{
    json document = json::object();
    for (const Field* field : fields_) {
        document[field->Name()] = field->ToJson();
    }
    return document;
}

json Structure::Schema() const
{
    json properties = json::object();
    for (const Field* field : fields_) {
        properties[field->Name()] = field->Schema();
    }
    return {{"type", "object"}, {"properties", std::move(properties)}};
}

void Structure::Prepare(const json& value, const std::string& path, const UpdateOptions& options,
                        PendingUpdate& pending)
{
    if (!value.is_object()) {
        RefuseType(path, "object", value);
    }
    for (const auto& [name, member] : value.items()) {
        if (IsReserved(name)) {
            continue;
        }
        try {
            Field* field = Find(name);
            if (field == nullptr) {
                RefuseUnknown(path, name, fields_);
            }
            std::string fieldPath = path.empty() ? path : path + ".";
            fieldPath += name;
            field->Prepare(member, fieldPath, options, pending);
        } catch (const Exception& error) {
            if (!options.lenient) {
                throw;
            }
            Vx_Debug_Log(Warning, "Passed over: %s", error.what());
        }
    }
}

Field::Field(Structure& owner, std::string name, std::string title)
    : name_(std::move(name)), title_(std::move(title)), index_(owner.fields_.size())
{
    if (owner.Find(name_) != nullptr) {
        VX_THROW(Nucleo::ERROR_ALREADY_EXISTS, "The structure has a field %s already.", name_);
    }
    owner.fields_.push_back(this);
}

json Field::Schema() const
{
    json schema = {{"title", Title()}, {"sortOrder", 100 * index_}};
    DescribeType(schema);
    return schema;
}

void Update(Structure& structure, const json& document, const UpdateOptions& options)
{
    PendingUpdate pending;
    structure.Prepare(document, {}, options, pending);
    pending.Apply();
}

namespace Detail
{

bool ReadBoolean(const json& value, const std::string& path)
{
    if (!value.is_boolean()) {
        RefuseType(path, "boolean", value);
    }
    return value.get<bool>();
}

std::int64_t ReadSigned(const json& value, const std::string& path, std::int64_t lowest, std::int64_t highest)
{
    if (!value.is_number()) {
        RefuseType(path, "integer", value);
    }
    const auto whole = ToWhole(value);
    const auto number = whole ? static_cast<std::int64_t>(whole->bits) : 0;
    if (!whole || whole->negative != (number < 0) || number < lowest || number > highest) {
        RefuseNumber(path, "an integer from " + std::to_string(lowest) + " to " + std::to_string(highest), value);
    }
    return number;
}

std::uint64_t ReadUnsigned(const json& value, const std::string& path, std::uint64_t highest)
{
    if (!value.is_number()) {
        RefuseType(path, "integer", value);
    }
    const auto whole = ToWhole(value);
    if (!whole || whole->negative || whole->bits > highest) {
        RefuseNumber(path, "an integer from 0 to " + std::to_string(highest), value);
    }
    return whole->bits;
}

double ReadNumber(const json& value, const std::string& path, double highest)
{
    if (!value.is_number()) {
        RefuseType(path, "number", value);
    }
    const auto number = value.get<double>();
    if (!(std::abs(number) <= highest)) {
        RefuseNumber(path, "a number from " + json(-highest).dump() + " to " + json(highest).dump(), value);
    }
    return number;
}

std::string ReadString(const json& value, const std::string& path)
{
    if (!value.is_string()) {
        RefuseType(path, "string", value);
    }
    return value.get<std::string>();
}

Bytes ReadBinary(const json& value, const std::string& path)
{
    try {
        return JsonSerializer::DecipherBinaryJson(value);
    } catch (const Exception& error) {
        Refuse(path + ": " + error.Message());
    }
}

const json& RequireArray(const json& value, const std::string& path)
{
    if (!value.is_array()) {
        RefuseType(path, "array", value);
    }
    return value;
}

double Widen(float value)
{
    std::array<char, 32> text;
    double wide = value;
    if (std::isfinite(value)) {
        const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
        std::from_chars(text.data(), end, wide);
    }
    return wide;
}

void ThrowNotListed(const std::string& path, const std::string& value, const std::string& listed)
{
    Refuse(path + " must be one of " + listed + ", but is " + value + ".");
}

void ThrowBeyondCount(std::size_t index, std::size_t count)
{
    VX_THROW(Nucleo::ERROR_NOT_FOUND, "There is no element %zu among %zu.", index, count);
}

}  // namespace Detail
}  // namespace Vx::Properties
