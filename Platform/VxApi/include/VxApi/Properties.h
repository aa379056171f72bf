#pragma once
// Structures of named typed fields: the values, arrays and documents that an application shows as JSON.
//
// A structure is a class whose members register with it as they are constructed, in that order:
//
//     struct Reading : Vx::Properties::Structure
//     {
//         Vx::Properties::Value<std::string> text{*this, "text"};
//         Vx::Properties::Value<std::uint64_t> time{*this, "time"};
//     };
//
// A structure and its fields are used by one thread at a time; whoever shares one guards it.

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <VxApi/Event.h>
#include <nlohmann/json.hpp>

namespace Vx::Properties
{

using Bytes = std::vector<std::uint8_t>;

/// Lists the values of an enumeration that is used as a field. Specialize it with
///     static std::vector<std::pair<E, std::string>> Values();   // each value with its title for people
template <class E>
struct EnumTraits;

/// How Update treats what it is given.
struct UpdateOptions
{
    /// Takes read-only fields too: for the owner, who restores what it saved.
    bool includeReadOnly = false;
    /// Passes over members that are unknown or unusable, each with a line in the private log, instead of refusing all:
    /// for data that another version saved.
    bool lenient = false;
};

/// A checked update that has not happened yet. First every value is set, which cannot fail, then listeners hear of it.
struct PendingUpdate
{
    std::vector<std::function<void()>> values;
    std::vector<std::function<void()>> notices;

    void Apply();
};

/// Whatever has a JSON form: a structure or a field.
class Node
{
public:
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    virtual ~Node() = default;

    /// The value. Binary values are binary values of the JSON library; see ToJsonText for their text.
    virtual nlohmann::json ToJson() const = 0;

    /// What the value may be.
    virtual nlohmann::json Schema() const = 0;

    /// Checks `value` and adds what setting it takes to `pending`; changes nothing itself. `path` names the value in
    /// messages. Throws Exception with ERROR_PARAMETER, saying what was expected and what came.
    virtual void Prepare(const nlohmann::json& value, const std::string& path, const UpdateOptions& options,
                         PendingUpdate& pending) = 0;

protected:
    Node() = default;
};

class Field;

/// Named fields in the order in which they were registered. JSON: an object with a member for each field.
class Structure : public Node
{
public:
    const std::vector<Field*>& Fields() const noexcept { return fields_; }

    /// The field of that name; null when there is none.
    Field* Find(std::string_view name) const noexcept;

    nlohmann::json ToJson() const override;

    /// {"type": "object", "properties": {name: schema of the field, ...}}
    nlohmann::json Schema() const override;

    void Prepare(const nlohmann::json& value, const std::string& path, const UpdateOptions& options,
                 PendingUpdate& pending) override;

private:
    friend class Field;

    std::vector<Field*> fields_;
};

/// A member of a structure: the part of a field that does not depend on its type.
class Field : public Node
{
public:
    const std::string& Name() const noexcept { return name_; }

    /// For people; the name when no title was given.
    const std::string& Title() const noexcept { return title_.empty() ? name_ : title_; }

    /// "type", "title" and "sortOrder" (0 for a structure's first field, 100 more for each one after it).
    nlohmann::json Schema() const override;

protected:
    /// Registers with `owner`, which contains the field. Throws Exception with ERROR_ALREADY_EXISTS when it has a field
    /// of that name.
    Field(Structure& owner, std::string name, std::string title = {});

    /// A field that belongs to no structure.
    Field() = default;

    /// Adds "type" and what else the type says to a schema.
    virtual void DescribeType(nlohmann::json& schema) const = 0;

private:
    std::string name_;
    std::string title_;
    std::size_t index_ = 0;
};

/// Sets fields from the members of `document`, all or nothing; fields without a member keep their values. Throws
/// Exception with ERROR_PARAMETER, and changes nothing, when the document is not an object, has a member that is no
/// field, or a value that its field does not take. Members that the REST library adds to documents ("_links",
/// "_embedded", "_schema") are passed over.
void Update(Structure& structure, const nlohmann::json& document, const UpdateOptions& options = {});

namespace Detail
{

// Each reader throws Exception with ERROR_PARAMETER, naming `path`, when `value` is of another type or out of range.
// A whole number may be written as a floating-point number ("7.0"); it is never rounded or wrapped. No number is
// infinite or NaN.
bool ReadBoolean(const nlohmann::json& value, const std::string& path);
std::int64_t ReadSigned(const nlohmann::json& value, const std::string& path, std::int64_t lowest,
                        std::int64_t highest);
std::uint64_t ReadUnsigned(const nlohmann::json& value, const std::string& path, std::uint64_t highest);
double ReadNumber(const nlohmann::json& value, const std::string& path, double highest);
std::string ReadString(const nlohmann::json& value, const std::string& path);
Bytes ReadBinary(const nlohmann::json& value, const std::string& path);
const nlohmann::json& RequireArray(const nlohmann::json& value, const std::string& path);

/// The number whose shortest text is that of `value`, so that 0.1f is shown as 0.1.
double Widen(float value);

[[noreturn]] void ThrowNotListed(const std::string& path, const std::string& value, const std::string& listed);
[[noreturn]] void ThrowBeyondCount(std::size_t index, std::size_t count);

/// The titles of an enumeration's values: "0 (Potential), 1 (Blocking)".
template <class E>
std::string ListOf()
{
    std::string list;
    for (const auto& [value, title] : EnumTraits<E>::Values()) {
        list += (list.empty() ? "" : ", ") + std::to_string(static_cast<std::underlying_type_t<E>>(value)) + " (" +
                title + ")";
    }
    return list;
}

template <class T>
T Read(const nlohmann::json& value, const std::string& path)
{
    if constexpr (std::is_same_v<T, bool>) {
        return ReadBoolean(value, path);
    } else if constexpr (std::is_enum_v<T>) {
        const auto number = Read<std::underlying_type_t<T>>(value, path);
        for (const auto& [listed, title] : EnumTraits<T>::Values()) {
            if (static_cast<std::underlying_type_t<T>>(listed) == number) {
                return listed;
            }
        }
        ThrowNotListed(path, std::to_string(number), ListOf<T>());
    } else if constexpr (std::signed_integral<T>) {
        return static_cast<T>(ReadSigned(value, path, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
    } else if constexpr (std::unsigned_integral<T>) {
        return static_cast<T>(ReadUnsigned(value, path, std::numeric_limits<T>::max()));
    } else if constexpr (std::floating_point<T>) {
        return static_cast<T>(ReadNumber(value, path, static_cast<double>(std::numeric_limits<T>::max())));
    } else if constexpr (std::is_same_v<T, std::string>) {
        return ReadString(value, path);
    } else {
        static_assert(std::is_same_v<T, Bytes>, "not a type of fields");
        return ReadBinary(value, path);
    }
}

template <class T>
nlohmann::json Write(const T& value)
{
    if constexpr (std::is_enum_v<T>) {
        return static_cast<std::underlying_type_t<T>>(value);
    } else if constexpr (std::is_same_v<T, float>) {
        return Widen(value);
    } else if constexpr (std::is_same_v<T, Bytes>) {
        return nlohmann::json::binary(value);
    } else {
        return value;
    }
}

template <class T>
constexpr const char* TypeName()
{
    if constexpr (std::is_same_v<T, bool>) {
        return "boolean";
    } else if constexpr (std::integral<T> || std::is_enum_v<T>) {
        return "integer";
    } else if constexpr (std::floating_point<T>) {
        return "number";
    } else {
        return std::is_same_v<T, std::string> ? "string" : "binary";
    }
}

}  // namespace Detail

/// A field that holds a T: bool, an integer, float, double, std::string, Bytes, or an enumeration with EnumTraits.
/// Number and text of the JSON form follow the type; enumerations travel as numbers and their schema lists values and
/// titles
/// ("oneOf": [{"const": 0, "title": ...}, ...]). What is set may differ from the values listed; what is read may not.
template <class T>
class TypedField : public Field
{
public:
    const T& Get() const noexcept { return value_; }

    nlohmann::json ToJson() const override { return Detail::Write(value_); }

    void Prepare(const nlohmann::json& value, const std::string& path, const UpdateOptions&,
                 PendingUpdate& pending) override
    {
        T read = Detail::Read<T>(value, path);
        Validate(read);
        pending.values.emplace_back([this, read = std::move(read)]() mutable { value_ = std::move(read); });
    }

protected:
    TypedField(Structure& owner, std::string name, std::string title, T initial)
        : Field(owner, std::move(name), std::move(title)), value_(std::move(initial))
    {}

    /// Throws when the field does not take `value`.
    virtual void Validate(const T& value) const { static_cast<void>(value); }

    void DescribeType(nlohmann::json& schema) const override
    {
        schema["type"] = Detail::TypeName<T>();
        if constexpr (std::is_enum_v<T>) {
            auto& list = schema["oneOf"] = nlohmann::json::array();
            for (const auto& [value, title] : EnumTraits<T>::Values()) {
                list.push_back({{"const", Detail::Write(value)}, {"title", title}});
            }
        }
    }

    T value_;
};

/// A field that takes every value of its type.
template <class T>
class Value : public TypedField<T>
{
public:
    Value(Structure& owner, std::string name, T initial = {})
        : TypedField<T>(owner, std::move(name), std::string(), std::move(initial))
    {}

    void Set(T value) { this->value_ = std::move(value); }
};

/// A list of structures of one kind, with or without a place in a structure. JSON: an array of objects. Elements stay
/// where they are until they are removed.
template <std::derived_from<Structure> S>
class Array : public Field
{
public:
    Array() = default;
    Array(Structure& owner, std::string name) : Field(owner, std::move(name)) {}

    std::size_t Count() const noexcept { return items_.size(); }

    /// Throws Exception with ERROR_NOT_FOUND for an index that is not below Count().
    S& At(std::size_t index) { return *items_[Checked(index)]; }
    const S& At(std::size_t index) const { return *items_[Checked(index)]; }

    /// Adds an element with default values at the end.
    S& Add()
    {
        S& added = *items_.emplace_back(std::make_unique<S>());
        changed_.Raise();
        return added;
    }

    /// Removes elements at the end or adds elements with default values there.
    void Resize(std::size_t count)
    {
        if (count == items_.size()) {
            return;
        }
        Items added;
        while (items_.size() + added.size() < count) {
            added.push_back(std::make_unique<S>());
        }
        items_.reserve(count);
        items_.resize(count - added.size());
        std::move(added.begin(), added.end(), std::back_inserter(items_));
        changed_.Raise();
    }

    void Clear() { Resize(0); }

    /// Raised after each change of the elements' number: once for Add, Resize, Clear and a reading from JSON. Changes
    /// inside an element do not raise it. A listener does not change the elements' number.
    Event<>& ChangedEvent() noexcept { return changed_; }

    nlohmann::json ToJson() const override
    {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& item : items_) {
            list.push_back(item->ToJson());
        }
        return list;
    }

    /// Replaces the elements.
    void Prepare(const nlohmann::json& value, const std::string& path, const UpdateOptions& options,
                 PendingUpdate& pending) override
    {
        Items items;
        for (const nlohmann::json& element : Detail::RequireArray(value, path)) {
            PendingUpdate inside;
            items.push_back(std::make_unique<S>());
            items.back()->Prepare(element, path + "[" + std::to_string(items.size() - 1) + "]", options, inside);
            inside.Apply();
        }
        // std::function takes copyable callables only.
        auto shared = std::make_shared<Items>(std::move(items));
        pending.values.emplace_back([this, shared] { items_ = std::move(*shared); });
        pending.notices.emplace_back([this] { changed_.Raise(); });
    }

protected:
    /// {"type": "array", "items": schema of an element}
    void DescribeType(nlohmann::json& schema) const override
    {
        schema["type"] = "array";
        schema["items"] = S().Schema();
    }

private:
    using Items = std::vector<std::unique_ptr<S>>;

    std::size_t Checked(std::size_t index) const
    {
        if (index >= items_.size()) {
            Detail::ThrowBeyondCount(index, items_.size());
        }
        return index;
    }

    Items items_;
    Event<> changed_;
};

}  // namespace Vx::Properties
