#include <atomic>
#include <cstdlib>

#include <Nucleo/Allocator.h>

namespace Nucleo
{
namespace
{

class HeapAllocation final : public Allocator
{
public:
    Status Allocate(std::size_t size, void** memory) override
    {
        *memory = std::malloc(size != 0 ? size : 1);
        return *memory != nullptr ? OK : ERROR_MEMORY;
    }

    Status Free(void* memory) override
    {
        std::free(memory);
        return OK;
    }
};

HeapAllocation processHeap;
std::atomic<Allocator*> replacement{nullptr};

}  // namespace

Allocator& DefaultAllocator() noexcept
{
    Allocator* replaced = replacement.load(std::memory_order_acquire);
    return replaced != nullptr ? *replaced : processHeap;
}

Allocator* ReplaceDefaultAllocator(Allocator* allocator) noexcept
{
    return replacement.exchange(allocator, std::memory_order_acq_rel);
}

}  // namespace Nucleo
