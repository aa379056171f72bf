#pragma once
// Assemblies: what a library announces of its types. Built by one thread, constant after Finalize.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Object.h>

namespace Nucleo
{

/// Four numbers, such as "1.0.0.0".
struct Version
{
    std::uint8_t parts[4];

    bool operator==(const Version&) const = default;
};

/// Reads one to four decimal numbers of 0 to 255 with dots between them; missing ones are 0. ERROR_FORMAT for anything
/// else; `*version` is unchanged then.
Status Version_Parse(std::string_view text, Version* version) noexcept;

/// A field of a plain value.
struct TypeField
{
    const char* name;
    const Type* type;
    std::size_t offset;
    std::size_t count = 1;  ///< More than 1 for an array.
};

/// A virtual operation that a class overrides.
struct TypeOverride
{
    const char* name;
    Status (*function)(Object* object);
};

class Serializer;
class Deserializer;

/// How items of a plain value are serialized in one format, see Serializer.h.
struct ValueFormat
{
    const char* format;    ///< Such as "kdat6".
    Version from;          ///< The first version of the format that writes items so.
    const char* typeName;  ///< What they are called on the stream: 1 to Serializer::MaxText characters.
    std::size_t itemSize;  ///< Bytes of an item on the stream, at least 1.
    /// Write or read `count` items one after the other. The first failure of the serializer ends it and is returned.
    Status (*write)(Serializer& serializer, const void* items, std::size_t count);
    Status (*read)(Deserializer& deserializer, void* items, std::size_t count);
};

/// A registered type.
struct TypeEntry
{
    const Type* type;
    bool isClass;
    std::vector<TypeField> fields;        ///< Of a plain value, in memory order.
    std::vector<TypeOverride> overrides;  ///< Of a class.
    std::vector<ValueFormat> formats{};   ///< Of a plain value that can be serialized.
};

class Assembly final : public Object
{
public:
    /// An empty assembly. On failure `*assembly` is null.
    static Status Make(Assembly** assembly, std::string_view name, Version version, Version platform,
                       Allocator* allocator) noexcept;

    const std::string& Name() const noexcept { return name_; }
    const Version& AssemblyVersion() const noexcept { return version_; }
    const Version& PlatformVersion() const noexcept { return platform_; }

    /// Names another library whose types this one's build on, and keeps a reference to it. ERROR_PARAMETER when that
    /// one is not finalized, so that no two depend on each other.
    Status AddDependency(Assembly& other) noexcept;

    /// Registers a plain value with its fields, which must lie within its size in memory order without overlapping.
    /// Types and names are referred to, not copied: they stay as long as the assembly.
    Status AddValue(const Type& type, std::span<const TypeField> fields) noexcept;

    /// Adds how a value that is registered here is serialized. ERROR_NOT_FOUND when it is not.
    Status AddFormats(const Type& type, std::span<const ValueFormat> formats) noexcept;

    /// Registers a class with what it overrides. Its base must be Object or a class of this assembly or a dependency.
    /// All registrations: ERROR_ALREADY_EXISTS for a name that is taken, ERROR_PARAMETER for one that does not fit,
    /// ERROR_STATE once the assembly is finalized, ERROR_MEMORY; nothing is registered then.
    Status AddClass(const Type& type, std::span<const TypeOverride> overrides) noexcept;

    /// No registrations after this. ERROR_STATE the second time.
    Status Finalize() noexcept;

    /// In the order in which they were registered.
    std::span<const TypeEntry> Types() const noexcept { return types_; }
    std::span<Assembly* const> Dependencies() const noexcept { return dependencies_; }

    /// The registered type of that name; null when there is none.
    const TypeEntry* Find(std::string_view name) const noexcept;

    ~Assembly() override;
    static const Type& StaticType() noexcept;

private:
    template <class T, class... Args>
    friend Status Construct(T** object, Allocator* allocator, Args&&... args) noexcept;
    Assembly(std::string_view name, Version version, Version platform);

    Status CheckName(const Type& type) const noexcept;

    std::string name_;
    Version version_;
    Version platform_;
    std::vector<Assembly*> dependencies_;
    std::vector<TypeEntry> types_;
    bool finalized_ = false;
};

/// The base runtime's own assembly, "Nucleo": always there, finalized.
Assembly& Nucleo_Assembly() noexcept;

}  // namespace Nucleo
