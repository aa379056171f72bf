#include <VxCommon/Health/VcHealthRecords.h>

#include <Nucleo/ValueTypes.h>

using Nucleo::Int32Type;
using Nucleo::Int64Type;
using Nucleo::Status;
using Nucleo::Type;
using Nucleo::TypeField;
using Nucleo::UInt32Type;
using Nucleo::UInt64Type;

const Type& VcHealthId::StaticType() noexcept
{
    static constexpr Type type{"VcHealthId", nullptr, sizeof(VcHealthId)};
    return type;
}

const Type& VcHealthIndicator::StaticType() noexcept
{
    static constexpr Type type{"VcHealthIndicator", nullptr, sizeof(VcHealthIndicator)};
    return type;
}

const Type& VcIndicatorListItem::StaticType() noexcept
{
    static constexpr Type type{"VcIndicatorListItem", nullptr, sizeof(VcIndicatorListItem)};
    return type;
}

const Type& VcIndicatorMapItem::StaticType() noexcept
{
    static constexpr Type type{"VcIndicatorMapItem", nullptr, sizeof(VcIndicatorMapItem)};
    return type;
}

const Type& VcIndicatorFilter::StaticType() noexcept
{
    static constexpr Type type{"VcIndicatorFilter", nullptr, sizeof(VcIndicatorFilter)};
    return type;
}

const Type& VcIndicatorSetOverwrite::StaticType() noexcept
{
    static constexpr Type type{"VcIndicatorSetOverwrite", nullptr, sizeof(VcIndicatorSetOverwrite)};
    return type;
}

Status xxVcHealthId_Register(Nucleo::Assembly* assembly)
{
    const TypeField fields[] = {{"id", &UInt32Type, offsetof(VcHealthId, id)},
                                {"instance", &UInt32Type, offsetof(VcHealthId, instance)}};
    return assembly->AddValue(VcHealthId::StaticType(), fields);
}

Status xxVcHealthIndicator_Register(Nucleo::Assembly* assembly)
{
    const TypeField fields[] = {
        {"name", &Nucleo::CharType, offsetof(VcHealthIndicator, name), sizeof(VcHealthIndicator::name)},
        {"id", &UInt32Type, offsetof(VcHealthIndicator, id)},
        {"instance", &UInt32Type, offsetof(VcHealthIndicator, instance)},
        {"value", &Int64Type, offsetof(VcHealthIndicator, value)}};
    return assembly->AddValue(VcHealthIndicator::StaticType(), fields);
}

Status xxVcIndicatorFilter_Register(Nucleo::Assembly* assembly)
{
    const TypeField fields[] = {{"source", &Int32Type, offsetof(VcIndicatorFilter, source)},
                                {"kind", &UInt32Type, offsetof(VcIndicatorFilter, kind)},
                                {"id", &UInt32Type, offsetof(VcIndicatorFilter, id)},
                                {"instance", &UInt32Type, offsetof(VcIndicatorFilter, instance)},
                                {"rangeFirst", &UInt32Type, offsetof(VcIndicatorFilter, rangeFirst)},
                                {"rangeLast", &UInt32Type, offsetof(VcIndicatorFilter, rangeLast)}};
    return assembly->AddValue(VcIndicatorFilter::StaticType(), fields);
}

Status xxVcIndicatorMapItem_Register(Nucleo::Assembly* assembly)
{
    const TypeField fields[] = {{"first", &UInt64Type, offsetof(VcIndicatorMapItem, first)},
                                {"last", &UInt64Type, offsetof(VcIndicatorMapItem, last)}};
    return assembly->AddValue(VcIndicatorMapItem::StaticType(), fields);
}

Status xxVcIndicatorListItem_Register(Nucleo::Assembly* assembly)
{
    const TypeField fields[] = {{"index", &UInt64Type, offsetof(VcIndicatorListItem, index)},
                                {"next", &UInt64Type, offsetof(VcIndicatorListItem, next)}};
    return assembly->AddValue(VcIndicatorListItem::StaticType(), fields);
}

Status xxVcIndicatorSetOverwrite_Register(Nucleo::Assembly* assembly)
{
    const TypeField fields[] = {{"id", &UInt32Type, offsetof(VcIndicatorSetOverwrite, id)},
                                {"instance", &UInt32Type, offsetof(VcIndicatorSetOverwrite, instance)},
                                {"function", &UInt64Type, offsetof(VcIndicatorSetOverwrite, function)},
                                {"receiver", &UInt64Type, offsetof(VcIndicatorSetOverwrite, receiver)}};
    return assembly->AddValue(VcIndicatorSetOverwrite::StaticType(), fields);
}
