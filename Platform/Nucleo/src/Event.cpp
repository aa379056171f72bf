#include <new>

#include <Nucleo/Event.h>

namespace Nucleo
{

struct Event::Entry
{
    EventHandlerFx handler;  // Null once it was removed while the event was raised: unlinked when that is over.
    void* receiver;
    Entry* next;
};

Event::~Event()
{
    while (first_ != nullptr) {
        Entry* next = first_->next;
        allocator_.Free(first_);
        first_ = next;
    }
}

Status Event::Add(EventHandlerFx handler, void* receiver)
{
    if (handler == nullptr) {
        return ERROR_PARAMETER;
    }
    Entry** end = &first_;
    for (; *end != nullptr; end = &(*end)->next) {
        if ((*end)->handler == handler && (*end)->receiver == receiver) {
            return ERROR_ALREADY_EXISTS;
        }
    }
    void* memory = nullptr;
    if (const Status status = allocator_.Allocate(sizeof(Entry), &memory); status != OK) {
        return status;
    }
    *end = ::new (memory) Entry{handler, receiver, nullptr};
    return OK;
}

Status Event::Remove(EventHandlerFx handler, void* receiver)
{
    if (handler == nullptr) {
        return ERROR_NOT_FOUND;
    }
    for (Entry** link = &first_; *link != nullptr; link = &(*link)->next) {
        Entry& entry = **link;
        if (entry.handler != handler || entry.receiver != receiver) {
            continue;
        }
        if (raising_ != 0) {
            entry.handler = nullptr;
            hasRemoved_ = true;
        } else {
            *link = entry.next;
            allocator_.Free(&entry);
        }
        return OK;
    }
    return ERROR_NOT_FOUND;
}

void Event::RaiseAll(void* sender, void* args)
{
    // What is added from now on comes behind this one, which stays linked until the outermost raise is over.
    const Entry* last = first_;
    while (last->next != nullptr) {
        last = last->next;
    }
    ++raising_;
    for (const Entry* entry = first_;; entry = entry->next) {
        if (entry->handler != nullptr) {
            entry->handler(entry->receiver, sender, args);
        }
        if (entry == last) {
            break;
        }
    }
    if (--raising_ == 0 && hasRemoved_) {
        FreeRemoved();
    }
}

void Event::FreeRemoved() noexcept
{
    for (Entry** link = &first_; *link != nullptr;) {
        Entry* entry = *link;
        if (entry->handler == nullptr) {
            *link = entry->next;
            allocator_.Free(entry);
        } else {
            link = &entry->next;
        }
    }
    hasRemoved_ = false;
}

std::size_t Event::Count() const noexcept
{
    std::size_t count = 0;
    for (const Entry* entry = first_; entry != nullptr; entry = entry->next) {
        count += entry->handler != nullptr ? 1 : 0;
    }
    return count;
}

}  // namespace Nucleo
