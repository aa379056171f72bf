#pragma once
// The runtime's locks. Both are annotated, so that the clang build checks who holds what.

#include <condition_variable>
#include <mutex>

#include <Nucleo/ThreadAnnotations.h>

namespace Nucleo
{

/// A re-entrant lock: the holding thread may take it again and must leave it as often. Who finds it taken tries again
/// for a moment before it sleeps: it is made for holders that take less time than falling asleep does.
class VX_CAPABILITY("mutex") Lock
{
public:
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Enter() VX_ACQUIRE()
    {
        if (!mutex_.try_lock()) {
            EnterTaken();
        }
    }
    void Leave() VX_RELEASE() { mutex_.unlock(); }
    bool TryEnter() VX_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    void EnterTaken();

    std::recursive_mutex mutex_;
};

/// A plain lock that a condition variable can wait with (`std::condition_variable_any` over the mutex itself).
class VX_CAPABILITY("mutex") Mutex
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() VX_ACQUIRE() { mutex_.lock(); }
    void unlock() VX_RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

/// Holds a Mutex for a scope.
class VX_SCOPED_CAPABILITY MutexGuard
{
public:
    explicit MutexGuard(Mutex& mutex) VX_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexGuard() VX_RELEASE() { mutex_.unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace Nucleo
