#include <algorithm>
#include <charconv>
#include <exception>

#include <Nucleo/ArrayList.h>
#include <Nucleo/Assembly.h>
#include <Nucleo/HealthProbe.h>
#include <Nucleo/Serializer.h>
#include <Nucleo/Stream.h>
#include <Nucleo/String.h>

namespace Nucleo
{
namespace
{

/// Whether every name is there and none comes twice.
template <class Item>
bool HaveNames(std::span<const Item> items)
{
    for (auto item = items.begin(); item != items.end(); ++item) {
        const auto same = [item](const Item& other) { return std::string_view(other.name) == item->name; };
        if (item->name == nullptr || std::any_of(items.begin(), item, same)) {
            return false;
        }
    }
    return true;
}

bool FieldsFit(const Type& type, std::span<const TypeField> fields)
{
    std::size_t end = 0;  // Of the field before.
    for (const TypeField& field : fields) {
        if (field.type == nullptr || field.type->size == 0 || field.count == 0 || field.offset < end ||
            field.offset > type.size || field.count > (type.size - field.offset) / field.type->size) {
            return false;
        }
        end = field.offset + field.count * field.type->size;
    }
    return HaveNames(fields);
}

bool HasClass(const Assembly& assembly, const Type* type)
{
    const auto types = assembly.Types();
    return std::any_of(types.begin(), types.end(),
                       [type](const TypeEntry& entry) { return entry.isClass && entry.type == type; });
}

}  // namespace

Status Version_Parse(std::string_view text, Version* version) noexcept
{
    Version read{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::uint8_t& part : read.parts) {
        const auto [next, error] = std::from_chars(at, end, part);
        if (error != std::errc()) {
            return ERROR_FORMAT;
        }
        if (next == end) {
            *version = read;
            return OK;
        }
        if (*next != '.') {
            return ERROR_FORMAT;
        }
        at = next + 1;
    }
    return ERROR_FORMAT;
}

Status Assembly::Make(Assembly** assembly, std::string_view name, Version version, Version platform,
                      Allocator* allocator) noexcept
{
    return Construct(assembly, allocator, name, version, platform);
}

Assembly::Assembly(std::string_view name, Version version, Version platform)
    : name_(name), version_(version), platform_(platform)
{}

Assembly::~Assembly()
{
    for (Assembly* dependency : dependencies_) {
        Destroy(dependency);
    }
}

Status Assembly::AddDependency(Assembly& other) noexcept
{
    if (finalized_) {
        return ERROR_STATE;
    }
    if (!other.finalized_) {
        return ERROR_PARAMETER;
    }
    for (const Assembly* dependency : dependencies_) {
        if (dependency->Name() == other.Name()) {
            return ERROR_ALREADY_EXISTS;
        }
    }
    try {
        dependencies_.push_back(&other);
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
    other.Share();
    return OK;
}

Status Assembly::AddValue(const Type& type, std::span<const TypeField> fields) noexcept
{
    if (const Status status = CheckName(type); status != OK) {
        return status;
    }
    if (!FieldsFit(type, fields)) {
        return ERROR_PARAMETER;
    }
    try {
        types_.push_back({&type, false, {fields.begin(), fields.end()}, {}});
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

Status Assembly::AddFormats(const Type& type, std::span<const ValueFormat> formats) noexcept
{
    if (finalized_) {
        return ERROR_STATE;
    }
    const auto entry = std::find_if(types_.begin(), types_.end(),
                                    [&type](const TypeEntry& item) { return item.type == &type && !item.isClass; });
    if (entry == types_.end()) {
        return ERROR_NOT_FOUND;
    }
    for (const ValueFormat& item : formats) {
        const std::size_t length = item.typeName != nullptr ? std::string_view(item.typeName).size() : 0;
        if (item.format == nullptr || length == 0 || length > Serializer::MaxText || item.itemSize == 0 ||
            item.write == nullptr || item.read == nullptr) {
            return ERROR_PARAMETER;
        }
    }
    try {
        entry->formats.insert(entry->formats.end(), formats.begin(), formats.end());
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

Status Assembly::AddClass(const Type& type, std::span<const TypeOverride> overrides) noexcept
{
    if (const Status status = CheckName(type); status != OK) {
        return status;
    }
    const auto hasBase = [&type](const Assembly* assembly) { return HasClass(*assembly, type.base); };
    const bool known = type.base == &Object::StaticType() || hasBase(this) ||
                       std::any_of(dependencies_.begin(), dependencies_.end(), hasBase);
    const auto isEmpty = [](const TypeOverride& item) { return item.function == nullptr; };
    if (!known || type.size < type.base->size || std::any_of(overrides.begin(), overrides.end(), isEmpty) ||
        !HaveNames(overrides)) {
        return ERROR_PARAMETER;
    }
    try {
        types_.push_back({&type, true, {}, {overrides.begin(), overrides.end()}});
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

Status Assembly::CheckName(const Type& type) const noexcept
{
    if (finalized_) {
        return ERROR_STATE;
    }
    if (type.name == nullptr) {
        return ERROR_PARAMETER;
    }
    return Find(type.name) == nullptr ? OK : ERROR_ALREADY_EXISTS;
}

Status Assembly::Finalize() noexcept
{
    if (finalized_) {
        return ERROR_STATE;
    }
    finalized_ = true;
    return OK;
}

const TypeEntry* Assembly::Find(std::string_view name) const noexcept
{
    for (const TypeEntry& entry : types_) {
        if (entry.type->name == name) {
            return &entry;
        }
    }
    return nullptr;
}

const Type& Assembly::StaticType() noexcept
{
    static const Type type{"Assembly", &Object::StaticType(), sizeof(Assembly)};
    return type;
}

namespace
{

Status Fill(Assembly& assembly) noexcept
{
    for (const Type* type : {&Int32Type, &UInt32Type, &Int64Type, &UInt64Type, &Float32Type, &Float64Type, &CharType,
                             &StringType, &UInt8Type, &ObjectHandleType}) {
        if (const Status status = assembly.AddValue(*type, {}); status != OK) {
            return status;
        }
    }
    for (const Type* type : {&AnyArrayList::StaticType(), &Assembly::StaticType(), &HealthProbe::StaticType(),
                             &Stream::StaticType(), &MemoryStream::StaticType(), &String::StaticType()}) {
        if (const Status status = assembly.AddClass(*type, {}); status != OK) {
            return status;
        }
    }
    return assembly.Finalize();
}

Assembly& MakeNucleoAssembly() noexcept
{
    constexpr Version version{{1, 0, 0, 0}};
    Assembly* assembly = nullptr;
    if (Assembly::Make(&assembly, "Nucleo", version, version, nullptr) != OK || Fill(*assembly) != OK) {
        std::terminate();
    }
    return *assembly;
}

// Made when the library is loaded, so that it lives on the process heap whatever tests put in its place later.
Assembly& nucleoAssembly = MakeNucleoAssembly();

}  // namespace

Assembly& Nucleo_Assembly() noexcept
{
    return nucleoAssembly;
}

}  // namespace Nucleo
