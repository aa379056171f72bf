#include <Nucleo/Lock.h>

namespace Nucleo
{
namespace
{

// Measured with four threads on two cores that log: from a few dozen tries on hardly anyone has to sleep.
constexpr int tries = 100;

void Pause() noexcept
{
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

void Lock::EnterTaken()
{
    for (int i = 0; i < tries; ++i) {
        Pause();
        if (mutex_.try_lock()) {
            return;
        }
    }
    mutex_.lock();
}

}  // namespace Nucleo
