#pragma once
// An allocator of which one chosen allocation fails, and that knows what is still allocated. Safe on any thread.

#include <atomic>
#include <cstdlib>

#include <Nucleo/Allocator.h>

namespace VxTestSupport
{

class FailingAllocator final : public Nucleo::Allocator
{
public:
    /// Allocation number `failing` (from 0) fails with ERROR_MEMORY; none does when it is negative.
    explicit FailingAllocator(int failing = -1) : failing_(failing) {}

    Nucleo::Status Allocate(std::size_t size, void** memory) override
    {
        *memory = allocations_++ == failing_ ? nullptr : std::malloc(size != 0 ? size : 1);
        live_ += *memory != nullptr ? 1 : 0;
        return *memory != nullptr ? Nucleo::OK : Nucleo::ERROR_MEMORY;
    }

    Nucleo::Status Free(void* memory) override
    {
        live_ -= memory != nullptr ? 1 : 0;
        std::free(memory);
        return Nucleo::OK;
    }

    /// Blocks that were allocated and not freed.
    int Live() const { return live_; }

    /// Allocations so far, the failed one included.
    int Allocations() const { return allocations_; }

    /// Whether the chosen allocation has been reached: a sweep is over when it has not.
    bool Failed() const { return failing_ >= 0 && allocations_ > failing_; }

private:
    const int failing_;
    std::atomic<int> allocations_{0};
    std::atomic<int> live_{0};
};

}  // namespace VxTestSupport
