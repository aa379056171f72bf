#pragma once
// The events of the C-style layer: handlers with a receiver, called in the order in which they were added.
// Not locked: the event's owner says which lock guards it; handlers run under that lock and may add and remove.

#include <cstddef>

#include <Nucleo/Allocator.h>

namespace Nucleo
{

/// A handler: `receiver` as it was added with, `sender` and `args` as the event's owner documents them. Must not throw.
using EventHandlerFx = Status (*)(void* receiver, void* sender, void* args);

class Event
{
public:
    /// The list of handlers is kept in memory of `allocator`, which must outlive the event.
    explicit Event(Allocator& allocator) noexcept : allocator_(allocator) {}
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    /// Adds a handler at the end. ERROR_ALREADY_EXISTS when the same pair is there, ERROR_PARAMETER for a null handler,
    /// ERROR_MEMORY. One that is added while the event is raised is called from the next time on.
    Status Add(EventHandlerFx handler, void* receiver);

    /// Removes a handler; ERROR_NOT_FOUND when the pair is not there. One that is removed while the event is raised is
    /// not called any more.
    Status Remove(EventHandlerFx handler, void* receiver);

    /// Calls every handler; what they answer is not looked at. Takes no memory. May be called from inside a handler.
    void Raise(void* sender, void* args)
    {
        if (first_ != nullptr) {
            RaiseAll(sender, args);
        }
    }

    /// Handlers that the next raise calls.
    std::size_t Count() const noexcept;

private:
    struct Entry;
    void RaiseAll(void* sender, void* args);
    void FreeRemoved() noexcept;

    Allocator& allocator_;
    Entry* first_ = nullptr;
    std::size_t raising_ = 0;  // Raises that are running, one inside the other.
    bool hasRemoved_ = false;  // Entries were removed meanwhile and are still linked.
};

}  // namespace Nucleo
