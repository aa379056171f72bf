#pragma once
// Memory for the runtime's objects.

#include <cstddef>

#include <Nucleo/Status.h>

namespace Nucleo
{

/// What an allocator can be used for.
struct AllocatorTraits
{
    bool holdsObjects = true;  ///< False for allocators whose memory may not carry objects (buffers of a device).
};

/// Source of memory. Implementations are safe to call from any thread unless they say otherwise.
class Allocator
{
public:
    virtual ~Allocator() = default;

    /// Takes `size` bytes, aligned for any type. On failure `*memory` is null and the status says why (ERROR_MEMORY).
    virtual Status Allocate(std::size_t size, void** memory) = 0;

    /// Gives memory of this allocator back. Null is ignored.
    virtual Status Free(void* memory) = 0;

    virtual AllocatorTraits Traits() const { return {}; }
};

/// The process heap, unless replaced. Never null; lives as long as the process.
Allocator& DefaultAllocator() noexcept;

/// Puts `allocator` in the place of the default one (null: the process heap again) and returns the one that was there,
/// null for the process heap. Objects free their memory to the allocator they were made with, so this may be done at
/// any time. Meant for tests that make allocations fail.
Allocator* ReplaceDefaultAllocator(Allocator* allocator) noexcept;

}  // namespace Nucleo
