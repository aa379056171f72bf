#include <condition_variable>
#include <cstddef>

#include <Nucleo/Lock.h>
#include <VxVision/ProbeHook.h>

using namespace Nucleo::Statuses;

namespace VxVision
{
namespace
{

struct Hook
{
    Nucleo::Mutex mutex;
    std::condition_variable_any changed;
    VvConstructProbeFx callback VX_GUARDED_BY(mutex) = nullptr;
    std::size_t running VX_GUARDED_BY(mutex) = 0;  // Calls that are inside the callback.
};

// Never destroyed: vision code may run while the process ends.
Hook& TheHook()
{
    static auto* hook = new Hook;
    return *hook;
}

thread_local std::size_t inside = 0;  // Calls of this thread that are inside the callback.

}  // namespace

Nucleo::Status VvProbe_SetConstructor(VvConstructProbeFx callback)
{
    Hook& hook = TheHook();
    const Nucleo::MutexGuard guard(hook.mutex);
    if (callback != nullptr && hook.callback != nullptr) {
        return ERROR_ALREADY_EXISTS;
    }
    hook.callback = callback;
    while (callback == nullptr && hook.running != 0 && inside == 0) {
        hook.changed.wait(hook.mutex);
    }
    return OK;
}

Nucleo::Status VvProbe_Construct(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id,
                                 std::uint32_t instance, std::int64_t initial)
{
    *probe = nullptr;
    if (name == nullptr) {
        return ERROR_PARAMETER;
    }
    Hook& hook = TheHook();
    VvConstructProbeFx callback = nullptr;
    {
        const Nucleo::MutexGuard guard(hook.mutex);
        if (hook.callback == nullptr) {
            return ERROR_STATE;
        }
        callback = hook.callback;
        ++hook.running;
    }
    ++inside;
    const Nucleo::Status status = callback(probe, name, id, instance, initial);
    --inside;
    const Nucleo::MutexGuard guard(hook.mutex);
    --hook.running;
    hook.changed.notify_all();
    return status;
}

}  // namespace VxVision
