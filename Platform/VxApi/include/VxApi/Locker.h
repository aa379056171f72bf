#pragma once
// Holds a re-entrant lock for a scope.

#include <Nucleo/Lock.h>

namespace Vx
{

class VX_SCOPED_CAPABILITY Locker
{
public:
    explicit Locker(Nucleo::Lock& lock) VX_ACQUIRE(lock) : lock_(lock) { lock_.Enter(); }
    ~Locker() VX_RELEASE() { lock_.Leave(); }
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;

private:
    // Not defined and never called: it tells the checker what a function that returns a Locker hands over.
    Locker(Locker&& other) noexcept VX_ACQUIRE(other.lock_);  // NOLINT(modernize-use-equals-delete)

    Nucleo::Lock& lock_;
};

}  // namespace Vx
