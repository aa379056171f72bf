#include <VxCommon/Health/VcIndicatorSet.h>

#include <cstring>

using namespace Nucleo::Statuses;
using Nucleo::Allocator;
using Nucleo::Status;

namespace
{

template <class T>
using List = Nucleo::ArrayList<T>;

Status VcIndicatorSet_VRelease(Nucleo::Object* object)
{
    auto& set = static_cast<VcIndicatorSet&>(*object);
    set.filters = {};
    set.overwrites = {};
    set.indicators = {};
    const Status status = set.sources.Release();
    return status == OK ? set.keys.Release() : status;
}

void SetName(VcHealthIndicator& record, const char* name)
{
    std::strncpy(record.name, name, sizeof record.name - 1);
    record.name[sizeof record.name - 1] = '\0';
}

// The name is ended.
inline Status Insert(VcIndicatorSet& set, const VcHealthIndicator& record)
{
    const std::size_t count = set.indicators->Count();
    std::size_t* position = nullptr;
    Status status = set.keys.Add({record.id, record.instance}, count, &position);
    if (status != OK) {
        return status;
    }
    if (*position < count) {
        set.indicators->At(*position) = record;
        return OK;
    }
    status = set.indicators->Append(record);
    if (status != OK) {
        set.keys.DropLast();
    }
    return status;
}

Status AddCacheValuesById(VcIndicatorSet& set, const VcIndicatorCache& cache, std::uint32_t id)
{
    const VcIndicatorMapItem* chain = cache.map.Find(id);
    std::size_t position = chain != nullptr ? chain->first : VcIndicatorListItem_None;
    for (; position != VcIndicatorListItem_None; position = cache.list->At(position).next) {
        if (const Status status = Insert(set, cache.items->At(position)); status != OK) {
            return status;
        }
    }
    return OK;
}

Status AddCacheValuesByIdInstance(VcIndicatorSet& set, const VcIndicatorCache& cache, std::uint32_t id,
                                  std::uint32_t instance)
{
    VcHealthIndicator record{{}, id, instance, 0};
    const char* name = nullptr;
    if (VcIndicatorCache_Find(&cache, id, instance, &record.value) != OK ||
        VcIndicatorCache_FindName(&cache, id, &name) != OK) {
        return OK;
    }
    SetName(record, name);
    return Insert(set, record);
}

Status AddCacheValuesByIdRange(VcIndicatorSet& set, const VcIndicatorCache& cache, std::uint32_t first,
                               std::uint32_t last)
{
    for (const VcHealthIndicator& item : cache.items->Items()) {
        if (item.id < first || item.id > last) {
            continue;
        }
        if (const Status status = Insert(set, item); status != OK) {
            return status;
        }
    }
    return OK;
}

Status Apply(VcIndicatorSet& set, const VcIndicatorFilter& filter)
{
    const VcIndicatorCache* const* cache = set.sources.Find(filter.source);
    if (cache == nullptr) {
        return OK;
    }
    if (filter.kind == VcIndicatorFilterKind_Range) {
        return AddCacheValuesByIdRange(set, **cache, filter.rangeFirst, filter.rangeLast);
    }
    if (filter.instance == VcIndicatorFilter_AllInstances) {
        return AddCacheValuesById(set, **cache, filter.id);
    }
    return AddCacheValuesByIdInstance(set, **cache, filter.id, filter.instance);
}

Status Call(const VcIndicatorSetOverwrite& overwrite, VcIndicatorSet& set, VcIndicatorSetOverwriteArgs& args)
{
    try {
        return overwrite.function(overwrite.receiver, &set, &args);
    } catch (...) {
        return ERROR_STATE;
    }
}

void OverrideValues(VcIndicatorSet& set)
{
    const std::size_t count = set.overwrites->Count();  // Without those that the functions add.
    for (std::size_t i = 0; i < count && i < set.overwrites->Count(); ++i) {
        const VcIndicatorSetOverwrite overwrite = set.overwrites->At(i);  // A copy: the function may remove it.
        const VcHealthId key{overwrite.id, overwrite.instance};
        const std::size_t* position = set.keys.Find(key);
        if (position == nullptr) {
            continue;
        }
        VcHealthIndicator& indicator = set.indicators->At(*position);
        VcIndicatorSetOverwriteArgs args{key, indicator.value};
        if (Call(overwrite, set, args) == OK) {
            indicator.value = args.value;
        }
    }
}

const VcHealthIndicator* FindIndicator(const VcIndicatorSet& set, std::uint32_t id, std::uint32_t instance)
{
    const std::size_t* position = set.keys.Find({id, instance});
    return position != nullptr ? &set.indicators->At(*position) : nullptr;
}

}  // namespace

const Nucleo::Type& VcIndicatorSet::StaticType() noexcept
{
    static const Nucleo::Type type{"VcIndicatorSet", &Nucleo::Object::StaticType(), sizeof(VcIndicatorSet),
                                   &VcIndicatorSet_VRelease};
    return type;
}

Status VcIndicatorSet_Construct(VcIndicatorSet** set, Allocator* allocator)
{
    Allocator& source = allocator != nullptr ? *allocator : Nucleo::DefaultAllocator();
    Nucleo::Handle<VcIndicatorSet> made;
    Status status = Nucleo::Construct(made.Receive(), &source, source);
    status = status == OK ? List<VcIndicatorFilter>::Make(made->filters.Receive(), 0, &source) : status;
    status = status == OK ? List<VcIndicatorSetOverwrite>::Make(made->overwrites.Receive(), 0, &source) : status;
    status = status == OK ? List<VcHealthIndicator>::Make(made->indicators.Receive(), 0, &source) : status;
    *set = status == OK ? made.Detach() : nullptr;
    return status;
}

Status VcIndicatorSet_AddIdFilter(VcIndicatorSet* set, std::int32_t source, std::uint32_t id)
{
    return VcIndicatorSet_AddFullFilter(set, source, id, VcIndicatorFilter_AllInstances);
}

Status VcIndicatorSet_AddFullFilter(VcIndicatorSet* set, std::int32_t source, std::uint32_t id, std::uint32_t instance)
{
    return set->filters->Append({source, VcIndicatorFilterKind_Id, id, instance, 0, 0});
}

Status VcIndicatorSet_AddRangeFilter(VcIndicatorSet* set, std::int32_t source, std::uint32_t first, std::uint32_t last)
{
    return set->filters->Append({source, VcIndicatorFilterKind_Range, 0, 0, first, last});
}

Status VcIndicatorSet_ClearFilters(VcIndicatorSet* set)
{
    set->filters->Clear();
    return OK;
}

Status VcIndicatorSet_AddOverwrite(VcIndicatorSet* set, std::uint32_t id, std::uint32_t instance,
                                   VcIndicatorSetOverwriteFx function, void* receiver)
{
    return set->overwrites->Append({id, instance, function, receiver});
}

Status VcIndicatorSet_RemoveOverwrite(VcIndicatorSet* set, std::uint32_t id)
{
    List<VcIndicatorSetOverwrite>& overwrites = *set->overwrites;
    for (std::size_t i = 0; i < overwrites.Count(); ++i) {  // Steps over what moves into a removed one's place.
        if (overwrites.At(i).id != id) {
            continue;
        }
        for (std::size_t next = i + 1; next < overwrites.Count(); ++next) {
            overwrites.At(next - 1) = overwrites.At(next);
        }
        overwrites.Resize(overwrites.Count() - 1);
    }
    return OK;
}

Status VcIndicatorSet_BeginUpdate(VcIndicatorSet* set)
{
    set->sources.Clear();
    set->indicators->Clear();
    set->keys.Clear();
    return OK;
}

Status VcIndicatorSet_Update(VcIndicatorSet* set, std::int32_t source, const VcIndicatorCache* cache)
{
    const VcIndicatorCache** there = nullptr;
    const Status status = set->sources.Add(source, cache, &there);
    if (status == OK) {
        *there = cache;
    }
    return status;
}

Status VcIndicatorSet_AddValue(VcIndicatorSet* set, const char* name, std::uint32_t id, std::uint32_t instance,
                               std::int64_t value)
{
    VcHealthIndicator record{{}, id, instance, value};
    SetName(record, name);
    return Insert(*set, record);
}

Status VcIndicatorSet_AddIndicator(VcIndicatorSet* set, const VcHealthIndicator* indicator)
{
    VcHealthIndicator record = *indicator;
    record.name[sizeof record.name - 1] = '\0';
    return Insert(*set, record);
}

Status VcIndicatorSet_EndUpdate(VcIndicatorSet* set)
{
    for (const VcIndicatorFilter& filter : set->filters->Items()) {
        if (const Status status = Apply(*set, filter); status != OK) {
            return status;
        }
    }
    OverrideValues(*set);
    return OK;
}

Status VcIndicatorSet_GetValue(const VcIndicatorSet* set, std::uint32_t id, std::uint32_t instance, std::int64_t* value)
{
    const VcHealthIndicator* indicator = FindIndicator(*set, id, instance);
    if (indicator == nullptr) {
        return ERROR_NOT_FOUND;
    }
    *value = indicator->value;
    return OK;
}

Status VcIndicatorSet_GetName(const VcIndicatorSet* set, std::uint32_t id, std::uint32_t instance, const char** name)
{
    const VcHealthIndicator* indicator = FindIndicator(*set, id, instance);
    if (indicator == nullptr) {
        return ERROR_NOT_FOUND;
    }
    *name = indicator->name;
    return OK;
}

const List<VcHealthIndicator>* VcIndicatorSet_Indicators(const VcIndicatorSet* set)
{
    return set->indicators.Get();
}

Status xxVcIndicatorSet_Register(Nucleo::Assembly* assembly)
{
    const Nucleo::TypeOverride overrides[] = {{"VRelease", &VcIndicatorSet_VRelease}};
    return assembly->AddClass(VcIndicatorSet::StaticType(), overrides);
}
