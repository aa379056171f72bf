#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
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

// The calls that this thread is inside, innermost last: a handler that removes itself must not wait for itself.
thread_local std::vector<const Entry*> insideOf;

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
    auto entries = std::make_shared<Entries>(*list.entries);
    auto entry = std::make_shared<Entry>();
    entry->handler = handler;
    entry->receiver = receiver;
    entries->push_back(std::move(entry));
    list.entries = std::move(entries);
    return OK;
}

Status Log_RemoveHandler(LogHandlerFx handler, void* receiver)
{
    HandlerList& list = List();
    std::shared_ptr<Entry> removed;
    list.mutex.lock();
    auto entries = std::make_shared<Entries>(*list.entries);
    const auto found = std::find_if(entries->begin(), entries->end(), [&](const auto& entry) {
        return entry->handler == handler && entry->receiver == receiver;
    });
    if (found == entries->end()) {
        list.mutex.unlock();
        return ERROR_NOT_FOUND;
    }
    removed = *found;
    entries->erase(found);
    list.entries = std::move(entries);
    removed->live = false;
    const auto own = std::count(insideOf.begin(), insideOf.end(), removed.get());
    while (removed->running != own) {
        list.callEnded.wait(list.mutex);
    }
    list.mutex.unlock();
    return OK;
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
            insideOf.push_back(entry.get());
            entry->handler(entry->receiver, record);
            insideOf.pop_back();
        }
        --entry->running;
        if (!entry->live) {
            const MutexGuard guard(list.mutex);
            list.callEnded.notify_all();
        }
    }
}

}  // namespace Nucleo
