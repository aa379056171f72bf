#include <VxCommon/Health/VcIndicatorCache.h>

#include <cstring>

using namespace Nucleo::Statuses;
using Nucleo::Allocator;
using Nucleo::AnyArrayList;
using Nucleo::Status;

namespace
{

using Items = Nucleo::ArrayList<VcHealthIndicator>;
constexpr std::size_t none = VcIndicatorListItem_None;

Status VcIndicatorCache_VRelease(Nucleo::Object* object)
{
    auto& cache = static_cast<VcIndicatorCache&>(*object);
    cache.items = {};
    cache.list = {};
    return cache.map.Release();
}

/// A report as bytes: its records have the layout of an indicator but may be of another type.
const std::byte* RecordsOf(const AnyArrayList& report)
{
    return static_cast<const std::byte*>(report.ItemData());
}

bool HasIndicatorLayout(const AnyArrayList& report)
{
    return report.ItemType().size == sizeof(VcHealthIndicator);
}

void CopyItem(VcHealthIndicator& item, const std::byte* record)
{
    std::memcpy(&item, record, sizeof item);
    item.name[sizeof item.name - 1] = '\0';
}

// Copies a report over one of the same length. Whether the ids are what they were, so that the index holds for it.
bool CopyOver(Items& items, const AnyArrayList& report)
{
    std::uint32_t difference = 0;
    const std::byte* record = RecordsOf(report);
    for (std::size_t i = 0; i < items.Count(); ++i, record += sizeof(VcHealthIndicator)) {
        VcHealthIndicator& item = items.At(i);
        const std::uint32_t id = item.id;
        CopyItem(item, record);
        difference |= id ^ item.id;
    }
    return difference == 0;
}

// Forgets which items belong to which id.
void Unlink(VcIndicatorCache& cache)
{
    cache.indexed = false;
    cache.map.Clear();
    for (std::size_t i = 0; i < cache.list->Count(); ++i) {
        cache.list->At(i) = {none, none};
    }
}

// Makes the copy and one list item for each.
Status TakeCopy(VcIndicatorCache& cache, const AnyArrayList& report)
{
    const std::size_t count = report.ItemCount();
    Status status = cache.list->Reserve(count);
    status = status == OK ? cache.items->Resize(count) : status;
    if (status != OK) {
        return status;
    }
    const std::byte* record = RecordsOf(report);
    for (std::size_t i = 0; i < count; ++i, record += sizeof(VcHealthIndicator)) {
        CopyItem(cache.items->At(i), record);
    }
    return cache.list->Resize(count);  // The room is there.
}

// Puts the item at `position` behind those of the id.
inline Status Link(VcIndicatorCache& cache, VcIndicatorListItem* list, std::uint32_t id, std::size_t position)
{
    VcIndicatorMapItem* chain = nullptr;
    if (const Status status = cache.map.Add(id, {position, position}, &chain); status != OK) {
        return status;
    }
    if (chain->last != position) {
        list[chain->last].next = position;
        chain->last = position;
    }
    list[position] = {position, none};
    return OK;
}

Status LinkAll(VcIndicatorCache& cache)
{
    cache.map.Clear();
    const auto items = cache.items->Items();
    cache.indexed = items.empty();
    if (cache.indexed) {
        return OK;
    }
    VcIndicatorListItem* list = &cache.list->At(0);
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (const Status status = Link(cache, list, items[i].id, i); status != OK) {
            return status;
        }
    }
    cache.indexed = true;
    return OK;
}

inline const VcHealthIndicator* FindItem(const VcIndicatorCache& cache, std::uint32_t id, std::uint32_t instance)
{
    const VcIndicatorMapItem* chain = cache.map.Find(id);
    if (chain == nullptr) {
        return nullptr;
    }
    const VcHealthIndicator* items = cache.items->Items().data();
    const VcIndicatorListItem* list = cache.list->Items().data();
    std::size_t position = chain->first;
    while (items[position].instance != instance) {
        position = list[position].next;
        if (position == none) {
            return nullptr;
        }
    }
    return &items[position];
}

}  // namespace

const Nucleo::Type& VcIndicatorCache::StaticType() noexcept
{
    static const Nucleo::Type type{"VcIndicatorCache", &Nucleo::Object::StaticType(), sizeof(VcIndicatorCache),
                                   &VcIndicatorCache_VRelease};
    return type;
}

Status VcIndicatorCache_Construct(VcIndicatorCache** cache, Allocator* allocator)
{
    Allocator& source = allocator != nullptr ? *allocator : Nucleo::DefaultAllocator();
    Nucleo::Handle<VcIndicatorCache> made;
    Status status = Nucleo::Construct(made.Receive(), &source, source);
    status = status == OK ? Items::Make(made->items.Receive(), 0, &source) : status;
    status = status == OK ? Nucleo::ArrayList<VcIndicatorListItem>::Make(made->list.Receive(), 0, &source) : status;
    *cache = status == OK ? made.Detach() : nullptr;
    return status;
}

Status VcIndicatorCache_Update(VcIndicatorCache* cache, const AnyArrayList* report)
{
    if (!HasIndicatorLayout(*report)) {
        return ERROR_PARAMETER;
    }
    Status status = OK;
    if (cache->indexed && cache->items->Count() == report->ItemCount()) {
        if (CopyOver(*cache->items, *report)) {
            return OK;
        }
    } else {
        status = TakeCopy(*cache, *report);
    }
    status = status == OK ? LinkAll(*cache) : status;
    if (status != OK) {
        cache->items->Clear();
        cache->list->Clear();
        Unlink(*cache);
    }
    return status;
}

Status VcIndicatorCache_InitUpdate(VcIndicatorCache* cache, const AnyArrayList* report)
{
    const Status status = HasIndicatorLayout(*report) ? TakeCopy(*cache, *report) : ERROR_PARAMETER;
    if (status == OK) {
        Unlink(*cache);
    }
    return status;
}

Status VcIndicatorCache_InsertNew(VcIndicatorCache* cache, const VcHealthIndicator* item, std::size_t position)
{
    if (position >= cache->list->Count()) {
        return ERROR_PARAMETER;
    }
    if (cache->list->At(position).index != none) {
        return ERROR_ALREADY_EXISTS;
    }
    return Link(*cache, &cache->list->At(0), item->id, position);
}

Status VcIndicatorCache_Find(const VcIndicatorCache* cache, std::uint32_t id, std::uint32_t instance,
                             std::int64_t* value)
{
    const VcHealthIndicator* item = FindItem(*cache, id, instance);
    if (item == nullptr) {
        return ERROR_NOT_FOUND;
    }
    *value = item->value;
    return OK;
}

Status VcIndicatorCache_FindName(const VcIndicatorCache* cache, std::uint32_t id, const char** name)
{
    const VcIndicatorMapItem* chain = cache->map.Find(id);
    if (chain == nullptr) {
        return ERROR_NOT_FOUND;
    }
    *name = cache->items->At(chain->first).name;
    return OK;
}

const VcIndicatorListItem* VcIndicatorCache_FirstById(const VcIndicatorCache* cache, std::uint32_t id)
{
    const VcIndicatorMapItem* chain = cache->map.Find(id);
    return chain != nullptr ? &cache->list->At(chain->first) : nullptr;
}

const VcIndicatorListItem* VcIndicatorCache_NextById(const VcIndicatorCache* cache, const VcIndicatorListItem* handle)
{
    return handle != nullptr && handle->next != none ? &cache->list->At(handle->next) : nullptr;
}

const char* VcIndicatorCache_ItemName(const VcIndicatorCache* cache, const VcIndicatorListItem* handle)
{
    return cache->items->At(handle->index).name;
}

std::uint32_t VcIndicatorCache_ItemInstance(const VcIndicatorCache* cache, const VcIndicatorListItem* handle)
{
    return cache->items->At(handle->index).instance;
}

std::int64_t VcIndicatorCache_ItemValue(const VcIndicatorCache* cache, const VcIndicatorListItem* handle)
{
    return cache->items->At(handle->index).value;
}

std::size_t VcIndicatorCache_Count(const VcIndicatorCache* cache)
{
    return cache->items->Count();
}

const VcHealthIndicator* VcIndicatorCache_At(const VcIndicatorCache* cache, std::size_t position)
{
    return &cache->items->At(position);
}

std::int64_t VcIndicatorCache_Aggregate(const VcIndicatorCache* cache, const std::uint32_t* ids, std::uint32_t instance,
                                        std::size_t count)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const VcHealthIndicator* item = FindItem(*cache, ids[i], instance);
        sum += item != nullptr ? static_cast<std::uint64_t>(item->value) : 0;
    }
    return static_cast<std::int64_t>(sum);
}

Status xxVcIndicatorCache_Register(Nucleo::Assembly* assembly)
{
    const Nucleo::TypeOverride overrides[] = {{"VRelease", &VcIndicatorCache_VRelease}};
    return assembly->AddClass(VcIndicatorCache::StaticType(), overrides);
}
