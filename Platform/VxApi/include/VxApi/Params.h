#pragma once
// Parameter structures: fields with bounds, units and access, which clients read, are told the schema of, and change.
//
//     struct Acquisition : Vx::Params::Group
//     {
//         Acquisition() : Group("Acquisition") {}
//         Vx::Params::Value<double> exposure{*this, "exposure", {.initial = 100, .units = "us", .minimum = 5, .maximum
//         = 1e6}}; Vx::Params::Value<std::uint64_t> frames{*this, "frames", {.readOnly = true}};
//     };
//
// Clients change fields with Set and Update. A field that is read-only to them is filled by its owner: Fill, or Update
// with includeReadOnly. Threads as for properties: one at a time.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include <VxApi/Properties.h>
#include <nlohmann/json.hpp>

namespace Vx::Params
{

using Properties::Bytes;
using Properties::Update;
using Properties::UpdateOptions;

/// What is known of a number beside its name. Units are a text for people, such as "mm".
template <class T>
struct Options
{
    T initial{};
    std::string title{};
    std::string units{};
    bool readOnly = false;
    std::optional<T> minimum{};
    std::optional<T> maximum{};
    std::optional<T> exclusiveMinimum{};
    std::optional<T> exclusiveMaximum{};
};

// GCC 12 fails on a default member of a type whose noexcept it has not looked at yet.
static_assert(std::is_nothrow_default_constructible_v<Bytes>);

/// What is known of a text (lengths in characters) or of binary data (lengths in bytes).
template <class T>
requires std::is_same_v<T, std::string> || std::is_same_v<T, Bytes>
struct Options<T>
{
    T initial{};
    std::string title{};
    bool readOnly = false;
    std::optional<std::size_t> minLength{};
    std::optional<std::size_t> maxLength{};
};

/// What is known of a truth value or of an enumeration.
template <class T>
requires std::is_same_v<T, bool> || std::is_enum_v<T>
struct Options<T>
{
    T initial{};
    std::string title{};
    bool readOnly = false;
};

namespace Detail
{
/// Logs "<name> was set to be <what>." under "Params validation" and throws it as Exception with ERROR_PARAMETER.
[[noreturn]] void Reject(const std::string& name, const char* what);

/// Throws Exception with ERROR_PARAMETER.
[[noreturn]] void RejectReadOnly(const std::string& name);

std::size_t Length(const std::string& text) noexcept;
inline std::size_t Length(const Bytes& bytes) noexcept
{
    return bytes.size();
}
}  // namespace Detail

/// The base of parameter structures. Its schema carries "title" and "extendedType" beside that of Structure.
class Group : public Properties::Structure
{
public:
    explicit Group(std::string title = {}, std::string extendedType = {});

    nlohmann::json Schema() const override;

private:
    std::string title_;
    std::string extendedType_;
};

/// A field of a group that takes what its options allow.
template <class T>
class Value : public Properties::TypedField<T>
{
public:
    /// Throws Exception with ERROR_PARAMETER when the initial value is out of bounds.
    Value(Group& owner, std::string name, Options<T> options = {})
        : Properties::TypedField<T>(owner, std::move(name), options.title, options.initial),
          options_(std::move(options))
    {
        CheckValidation(this->value_);
    }

    bool IsReadOnly() const noexcept { return options_.readOnly; }

    /// Sets the value for a client. Throws Exception with ERROR_PARAMETER when the field is read-only or the value out
    /// of bounds; the field keeps its value then.
    void Set(T value)
    {
        if (options_.readOnly) {
            Detail::RejectReadOnly(this->Name());
        }
        Fill(std::move(value));
    }

    /// Sets the value as the owner of the group, who may fill read-only fields too. Bounds hold all the same.
    void Fill(T value)
    {
        Validate(value);
        this->value_ = std::move(value);
    }

    /// Throws Exception with ERROR_PARAMETER, and logs under "Params validation", when `value` is out of bounds or not
    /// finite.
    void CheckValidation(const T& value) const
    {
        const std::string& name = this->Name();
        if constexpr (std::is_floating_point_v<T>) {
            if (!std::isfinite(value)) {
                Detail::Reject(name, "not a finite number");
            }
        }
        if constexpr (HasBounds) {
            if (options_.minimum && value < *options_.minimum) {
                Detail::Reject(name, "less than its minimum");
            }
            if (options_.maximum && value > *options_.maximum) {
                Detail::Reject(name, "greater than its maximum");
            }
            if (options_.exclusiveMinimum && value <= *options_.exclusiveMinimum) {
                Detail::Reject(name, "less than or equal to its exclusive minimum");
            }
            if (options_.exclusiveMaximum && value >= *options_.exclusiveMaximum) {
                Detail::Reject(name, "greater than or equal to its exclusive maximum");
            }
        } else if constexpr (HasLengths) {
            if (options_.minLength && Detail::Length(value) < *options_.minLength) {
                Detail::Reject(name, "shorter than its minimum length");
            }
            if (options_.maxLength && Detail::Length(value) > *options_.maxLength) {
                Detail::Reject(name, "longer than its maximum length");
            }
        }
    }

    /// The schema of the field, with "readOnly": true where it is, and the bounds and units that are set.
    nlohmann::json Schema() const override
    {
        nlohmann::json schema = Properties::TypedField<T>::Schema();
        if (options_.readOnly) {
            schema["readOnly"] = true;
        }
        const auto add = [&schema](const char* key, const auto& bound) {
            if (bound) {
                schema[key] = Properties::Detail::Write(*bound);
            }
        };
        if constexpr (HasBounds) {
            if (!options_.units.empty()) {
                schema["units"] = options_.units;
            }
            add("minimum", options_.minimum);
            add("maximum", options_.maximum);
            add("exclusiveMinimum", options_.exclusiveMinimum);
            add("exclusiveMaximum", options_.exclusiveMaximum);
        } else if constexpr (HasLengths) {
            add("minLength", options_.minLength);
            add("maxLength", options_.maxLength);
        }
        return schema;
    }

    void Prepare(const nlohmann::json& value, const std::string& path, const UpdateOptions& options,
                 Properties::PendingUpdate& pending) override
    {
        if (options_.readOnly && !options.includeReadOnly) {
            Detail::RejectReadOnly(this->Name());
        }
        Properties::TypedField<T>::Prepare(value, path, options, pending);
    }

protected:
    /// Asked on every way into the field, but not for the initial value. A derived class that demands more than bounds
    /// overrides it and throws Exception with ERROR_PARAMETER.
    void Validate(const T& value) const override { CheckValidation(value); }

private:
    static constexpr bool HasBounds = std::is_arithmetic_v<T> && !std::is_same_v<T, bool>;
    static constexpr bool HasLengths = std::is_same_v<T, std::string> || std::is_same_v<T, Bytes>;

    Options<T> options_;
};

/// The JSON document of a group.
nlohmann::json NodeToJson(const Group& group);

}  // namespace Vx::Params
