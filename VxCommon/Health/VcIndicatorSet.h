#pragma once
// A published list of indicators, put together once a cycle: values added directly, then what filters take over from
// the caches of the set's sources, then functions that overwrite single values. Not locked: its owner guards it. See
// Logger/VcLogMsg.h for the rules of the C-style layer; deviating from them, lookups that find nothing leave their out
// argument as it was.
//
// A key that is inserted where it was in the cycle before costs a comparison and the copy of its record. No memory is
// taken unless a cycle has more keys or more sources than all before it.

#include <cstddef>
#include <cstdint>

#include <Nucleo/ArrayList.h>
#include <Nucleo/FlatMap.h>
#include <VxCommon/Health/VcIndicatorCache.h>

/// `keys` says for each key where its one record is in `indicators`. Read through the functions below.
struct VcIndicatorSet final : Nucleo::Object
{
    explicit VcIndicatorSet(Nucleo::Allocator& allocator) noexcept : sources(allocator), keys(allocator) {}
    static const Nucleo::Type& StaticType() noexcept;

    Nucleo::Handle<Nucleo::ArrayList<VcIndicatorFilter>> filters;
    Nucleo::Handle<Nucleo::ArrayList<VcIndicatorSetOverwrite>> overwrites;
    Nucleo::FlatMap<std::int32_t, const VcIndicatorCache*> sources;
    Nucleo::FlatMap<VcHealthId, std::size_t> keys;
    Nucleo::Handle<Nucleo::ArrayList<VcHealthIndicator>> indicators;  ///< In the order in which keys came first.
};

// Functions that add something fail only for want of memory and change nothing then.
extern "C" {

/// An empty set in memory of `allocator` (null: the default one). ERROR_PARAMETER when it cannot hold objects.
VXCOMMON_API Nucleo::Status VcIndicatorSet_Construct(VcIndicatorSet** set, Nucleo::Allocator* allocator);

/// Filters, applied in the order of adding: all instances of an id, one of them, or the ids from `first` to `last`
/// (none when `first` is above `last`). They stay until they are cleared.
VXCOMMON_API Nucleo::Status VcIndicatorSet_AddIdFilter(VcIndicatorSet* set, std::int32_t source, std::uint32_t id);
VXCOMMON_API Nucleo::Status VcIndicatorSet_AddFullFilter(VcIndicatorSet* set, std::int32_t source, std::uint32_t id,
                                                         std::uint32_t instance);
VXCOMMON_API Nucleo::Status VcIndicatorSet_AddRangeFilter(VcIndicatorSet* set, std::int32_t source, std::uint32_t first,
                                                          std::uint32_t last);
VXCOMMON_API Nucleo::Status VcIndicatorSet_ClearFilters(VcIndicatorSet* set);

/// Has `function` called at the end of each cycle in which the key is in the set.
VXCOMMON_API Nucleo::Status VcIndicatorSet_AddOverwrite(VcIndicatorSet* set, std::uint32_t id, std::uint32_t instance,
                                                        VcIndicatorSetOverwriteFx function, void* receiver);

/// Removes the overwrites of an id, whatever their instance, but leaves the one behind each that it removes: of those
/// that follow one another, every second stays. Always OK.
VXCOMMON_API Nucleo::Status VcIndicatorSet_RemoveOverwrite(VcIndicatorSet* set, std::uint32_t id);

/// Starts a cycle: the set is empty and has no sources.
VXCOMMON_API Nucleo::Status VcIndicatorSet_BeginUpdate(VcIndicatorSet* set);

/// Makes `cache` the source of that number in this cycle, in the place of one that had it. The caller keeps the cache
/// alive and unchanged until the cycle has ended.
VXCOMMON_API Nucleo::Status VcIndicatorSet_Update(VcIndicatorSet* set, std::int32_t source,
                                                  const VcIndicatorCache* cache);

/// Puts an indicator into the set, over the one with its key if there is one. Names are cut to 63 bytes; that of a
/// record need not be ended.
VXCOMMON_API Nucleo::Status VcIndicatorSet_AddValue(VcIndicatorSet* set, const char* name, std::uint32_t id,
                                                    std::uint32_t instance, std::int64_t value);
VXCOMMON_API Nucleo::Status VcIndicatorSet_AddIndicator(VcIndicatorSet* set, const VcHealthIndicator* indicator);

/// Ends the cycle: applies the filters, then the overwrites. Filters whose source has no cache are left out. A filter
/// of one instance takes the value of that item and the name of the id's first one. A failing insertion ends it with
/// its status; what was inserted before stays, and no overwrite is called.
VXCOMMON_API Nucleo::Status VcIndicatorSet_EndUpdate(VcIndicatorSet* set);

/// The value, or the name, of a key; ERROR_NOT_FOUND. The name is valid until the set changes.
VXCOMMON_API Nucleo::Status VcIndicatorSet_GetValue(const VcIndicatorSet* set, std::uint32_t id, std::uint32_t instance,
                                                    std::int64_t* value);
VXCOMMON_API Nucleo::Status VcIndicatorSet_GetName(const VcIndicatorSet* set, std::uint32_t id, std::uint32_t instance,
                                                   const char** name);

/// All indicators; the set's own list.
VXCOMMON_API const Nucleo::ArrayList<VcHealthIndicator>* VcIndicatorSet_Indicators(const VcIndicatorSet* set);

/// Registers the class "VcIndicatorSet".
VXCOMMON_API Nucleo::Status xxVcIndicatorSet_Register(Nucleo::Assembly* assembly);

}  // extern "C"
