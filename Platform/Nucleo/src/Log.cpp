#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <new>
#include <vector>

#include <Nucleo/Lock.h>
#include <Nucleo/Log.h>

namespace Nucleo
{
namespace
{

struct Entry
{
    LogHandlerFx handler;
    void* receiver;
    std::atomic<bool> live{true};
    std::atomic<int> running{0};  // Calls of all threads that are inside the handler.
};
using Entries = std::vector<std::shared_ptr<Entry>>;

struct HandlerList
{
    Mutex mutex;
    std::condition_variable_any callEnded;
    std::shared_ptr<const Entries> entries VX_GUARDED_BY(mutex) = std::make_shared<const Entries>();
};

// Never destroyed: threads may log while the process ends.
HandlerList& List()
{
    static auto* list = new HandlerList;
    return *list;
}

// Made when the library is loaded: the first line of all may tell of a want of memory.
[[maybe_unused]] const HandlerList& madeEarly = List();

// The calls that this thread is inside, innermost first: a handler that removes itself must not wait for itself. Kept
// on the stack, so that a line that is logged while memory or the thread ends still finds it.
struct InsideOf
{
    const Entry* entry;
    const InsideOf* outer;
};
constinit thread_local const InsideOf* insideOf = nullptr;

/// How many calls of `entry` this thread is inside.
int CountOwnCalls(const Entry& entry)
{
    int count = 0;
    for (const InsideOf* call = insideOf; call != nullptr; call = call->outer) {
        count += call->entry == &entry ? 1 : 0;
    }
    return count;
}

}  // namespace

Status Log_AddHandler(LogHandlerFx handler, void* receiver)
{
    if (handler == nullptr) {
        return ERROR_PARAMETER;
    }
    HandlerList& list = List();
    const MutexGuard guard(list.mutex);
    for (const auto& entry : *list.entries) {
        if (entry->handler == handler && entry->receiver == receiver) {
            return ERROR_ALREADY_EXISTS;
        }
    }
    try {
        auto entries = std::make_shared<Entries>(*list.entries);
        auto entry = std::make_shared<Entry>();
        entry->handler = handler;
        entry->receiver = receiver;
        entries->push_back(std::move(entry));
        list.entries = std::move(entries);
        return OK;
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    }
}

Status Log_RemoveHandler(LogHandlerFx handler, void* receiver)
{
    HandlerList& list = List();
    const MutexGuard guard(list.mutex);
    const auto found = std::find_if(list.entries->begin(), list.entries->end(), [&](const auto& entry) {
        return entry->handler == handler && entry->receiver == receiver;
    });
    if (found == list.entries->end()) {
        return ERROR_NOT_FOUND;
    }
    try {
        auto entries = std::make_shared<Entries>(*list.entries);
        const auto copied = entries->begin() + (found - list.entries->begin());
        const std::shared_ptr<Entry> removed = *copied;
        entries->erase(copied);
        list.entries = std::move(entries);
        removed->live = false;
        const int own = CountOwnCalls(*removed);
        while (removed->running != own) {
            list.callEnded.wait(list.mutex);
        }
        return OK;
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    }
}

void Log_Write(const LogArgs& record) noexcept
{
    HandlerList& list = List();
    std::shared_ptr<const Entries> entries;
    {
        const MutexGuard guard(list.mutex);
        entries = list.entries;
    }
    for (const auto& entry : *entries) {
        // Counted in before `live` is looked at: a removal that saw no call then knows that none follows.
        ++entry->running;
        if (entry->live) {
            const InsideOf call{entry.get(), insideOf};
            insideOf = &call;
            entry->handler(entry->receiver, record);
            insideOf = call.outer;
        }
        --entry->running;
        if (!entry->live) {
            const MutexGuard guard(list.mutex);
            list.callEnded.notify_all();
        }
    }
}

}  // namespace Nucleo
