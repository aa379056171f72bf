#pragma once
// The records of health: plain values, copied as bytes. See Logger/VcLogMsg.h for the rules of the C-style layer.

#include <cstddef>
#include <cstdint>

#include <Nucleo/Assembly.h>
#include <VxCommon/VcLib/Export.h>

struct VcIndicatorSet;

/// The key of an indicator.
struct VcHealthId
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    std::uint32_t id;
    std::uint32_t instance;

    bool operator==(const VcHealthId&) const = default;
};
static_assert(sizeof(VcHealthId) == 8 && offsetof(VcHealthId, instance) == 4);

/// An indicator: a named counter. A node's report is a list of these.
struct VcHealthIndicator
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    char name[64];  ///< At most 63 bytes and a NUL; in a report the NUL may be missing.
    std::uint32_t id;
    std::uint32_t instance;
    std::int64_t value;
};
static_assert(sizeof(VcHealthIndicator) == 80 && offsetof(VcHealthIndicator, id) == 64 &&
              offsetof(VcHealthIndicator, instance) == 68 && offsetof(VcHealthIndicator, value) == 72);

/// `next` of the last item of an id.
inline constexpr std::size_t VcIndicatorListItem_None = SIZE_MAX;

/// An item of a cache's list, and the handle by which callers walk the items of an id.
struct VcIndicatorListItem
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    std::size_t index;  ///< Its position in the list of indicators; VcIndicatorListItem_None until it is linked.
    std::size_t next;   ///< Of the next item with the same id; VcIndicatorListItem_None at the end.
};
static_assert(sizeof(VcIndicatorListItem) == 16 && offsetof(VcIndicatorListItem, next) == 8);

/// Where the items of an id begin and end.
struct VcIndicatorMapItem
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    std::size_t first;
    std::size_t last;
};
static_assert(sizeof(VcIndicatorMapItem) == 16 && offsetof(VcIndicatorMapItem, last) == 8);

enum VcIndicatorFilterKind : std::uint32_t
{
    VcIndicatorFilterKind_Id = 0,     ///< Uses `id` and `instance`.
    VcIndicatorFilterKind_Range = 1,  ///< Uses `rangeFirst` and `rangeLast`.
};

/// As the instance of a filter: every instance of the id.
inline constexpr std::uint32_t VcIndicatorFilter_AllInstances = 0xFFFFFFFF;

/// What a set takes over from the cache of one of its sources. Fields that its kind does not use are 0.
struct VcIndicatorFilter
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    std::int32_t source;
    std::uint32_t kind;  ///< A VcIndicatorFilterKind.
    std::uint32_t id;
    std::uint32_t instance;
    std::uint32_t rangeFirst;
    std::uint32_t rangeLast;  ///< Belongs to the range.
};
static_assert(sizeof(VcIndicatorFilter) == 24 && offsetof(VcIndicatorFilter, kind) == 4 &&
              offsetof(VcIndicatorFilter, id) == 8 && offsetof(VcIndicatorFilter, instance) == 12 &&
              offsetof(VcIndicatorFilter, rangeFirst) == 16 && offsetof(VcIndicatorFilter, rangeLast) == 20);

/// What an overwrite function is given.
struct VcIndicatorSetOverwriteArgs
{
    VcHealthId key;
    std::int64_t value;  ///< What the indicator has; the function may change it.
};
static_assert(sizeof(VcIndicatorSetOverwriteArgs) == 16 && offsetof(VcIndicatorSetOverwriteArgs, value) == 8);

/// With OK the indicator gets the value that is in `args` then; with any other status, or when it throws, it keeps its
/// own. The function may read the set and change its filters and overwrites, nothing else of it. Overwrites that it
/// adds are called from the next cycle on; of those behind one that it removes one is passed over in this cycle.
using VcIndicatorSetOverwriteFx = Nucleo::Status (*)(void* receiver, VcIndicatorSet* set,
                                                     VcIndicatorSetOverwriteArgs* args);

/// A function that has the last word on an indicator's value.
struct VcIndicatorSetOverwrite
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    std::uint32_t id;
    std::uint32_t instance;
    VcIndicatorSetOverwriteFx function;
    void* receiver;  ///< Handed to the function.
};
static_assert(sizeof(VcIndicatorSetOverwrite) == 24 && offsetof(VcIndicatorSetOverwrite, instance) == 4 &&
              offsetof(VcIndicatorSetOverwrite, function) == 8 && offsetof(VcIndicatorSetOverwrite, receiver) == 16);

extern "C" {

/// Each registers the value of its name with its fields; positions and addresses count as 64-bit numbers. What the
/// assembly answers.
VXCOMMON_API Nucleo::Status xxVcHealthId_Register(Nucleo::Assembly* assembly);
VXCOMMON_API Nucleo::Status xxVcHealthIndicator_Register(Nucleo::Assembly* assembly);
VXCOMMON_API Nucleo::Status xxVcIndicatorFilter_Register(Nucleo::Assembly* assembly);
VXCOMMON_API Nucleo::Status xxVcIndicatorMapItem_Register(Nucleo::Assembly* assembly);
VXCOMMON_API Nucleo::Status xxVcIndicatorListItem_Register(Nucleo::Assembly* assembly);
VXCOMMON_API Nucleo::Status xxVcIndicatorSetOverwrite_Register(Nucleo::Assembly* assembly);

}  // extern "C"
