#pragma once
// The latest report of a node, indexed by indicator id. Not locked: its owner guards it. See Logger/VcLogMsg.h for the
// rules of the C-style layer; deviating from them, lookups that find nothing leave their out argument as it was.
//
// Reports nearly always repeat the ids of the one before, in the same order. An update with such a one copies the
// records and keeps the index; any other one builds the index anew. No memory is taken unless a report has more records
// or more different ids than all before it.

#include <cstddef>
#include <cstdint>

#include <Nucleo/ArrayList.h>
#include <Nucleo/FlatMap.h>
#include <VxCommon/Health/VcHealthRecords.h>

/// For each id, `map` says where its items begin and end; from there `next` leads through all of them, in the order of
/// the report. Read through the functions below.
struct VcIndicatorCache final : Nucleo::Object
{
    explicit VcIndicatorCache(Nucleo::Allocator& allocator) noexcept : map(allocator) {}
    static const Nucleo::Type& StaticType() noexcept;

    Nucleo::FlatMap<std::uint32_t, VcIndicatorMapItem> map;
    Nucleo::Handle<Nucleo::ArrayList<VcHealthIndicator>> items;   ///< The report, all names ended.
    Nucleo::Handle<Nucleo::ArrayList<VcIndicatorListItem>> list;  ///< One for each item, at the same position.
    bool indexed = false;  ///< Whether `map` and `list` hold all items, linked in order.
};

extern "C" {

/// An empty cache in memory of `allocator` (null: the default one). ERROR_PARAMETER when it cannot hold objects.
VXCOMMON_API Nucleo::Status VcIndicatorCache_Construct(VcIndicatorCache** cache, Nucleo::Allocator* allocator);

/// Takes a copy of the report, a list of records with the layout of VcHealthIndicator, whatever their type is called.
/// Names without an end are cut to 63 bytes. ERROR_PARAMETER, and nothing changes, when the records have another size;
/// on failure for want of memory the cache is empty.
VXCOMMON_API Nucleo::Status VcIndicatorCache_Update(VcIndicatorCache* cache, const Nucleo::AnyArrayList* report);

/// The first half of an update: takes the copy but finds no id in it until VcIndicatorCache_InsertNew() has linked its
/// items. On failure the cache is unchanged.
VXCOMMON_API Nucleo::Status VcIndicatorCache_InitUpdate(VcIndicatorCache* cache, const Nucleo::AnyArrayList* report);

/// Links the item at `position` behind those of the id of `item`, which are walked in the order in which they were
/// linked. ERROR_PARAMETER when there is no such position, ERROR_ALREADY_EXISTS when it is linked.
VXCOMMON_API Nucleo::Status VcIndicatorCache_InsertNew(VcIndicatorCache* cache, const VcHealthIndicator* item,
                                                       std::size_t position);

/// The value of the first item with that key; ERROR_NOT_FOUND.
VXCOMMON_API Nucleo::Status VcIndicatorCache_Find(const VcIndicatorCache* cache, std::uint32_t id,
                                                  std::uint32_t instance, std::int64_t* value);

/// The name of the id's first item, whatever its instance; valid until the next update. ERROR_NOT_FOUND.
VXCOMMON_API Nucleo::Status VcIndicatorCache_FindName(const VcIndicatorCache* cache, std::uint32_t id,
                                                      const char** name);

/// The items of an id, in the order of the report; null at the end. A null handle has no next one.
VXCOMMON_API const VcIndicatorListItem* VcIndicatorCache_FirstById(const VcIndicatorCache* cache, std::uint32_t id);
VXCOMMON_API const VcIndicatorListItem* VcIndicatorCache_NextById(const VcIndicatorCache* cache,
                                                                  const VcIndicatorListItem* handle);

/// What the item of a handle holds.
VXCOMMON_API const char* VcIndicatorCache_ItemName(const VcIndicatorCache* cache, const VcIndicatorListItem* handle);
VXCOMMON_API std::uint32_t VcIndicatorCache_ItemInstance(const VcIndicatorCache* cache,
                                                         const VcIndicatorListItem* handle);
VXCOMMON_API std::int64_t VcIndicatorCache_ItemValue(const VcIndicatorCache* cache, const VcIndicatorListItem* handle);

VXCOMMON_API std::size_t VcIndicatorCache_Count(const VcIndicatorCache* cache);

/// The item at a position, which is below VcIndicatorCache_Count(); valid until the next update.
VXCOMMON_API const VcHealthIndicator* VcIndicatorCache_At(const VcIndicatorCache* cache, std::size_t position);

/// The sum, modulo 2^64, of what VcIndicatorCache_Find() gives for each of the ids with that instance.
VXCOMMON_API std::int64_t VcIndicatorCache_Aggregate(const VcIndicatorCache* cache, const std::uint32_t* ids,
                                                     std::uint32_t instance, std::size_t count);

/// Registers the class "VcIndicatorCache".
VXCOMMON_API Nucleo::Status xxVcIndicatorCache_Register(Nucleo::Assembly* assembly);

}  // extern "C"
