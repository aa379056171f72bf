#pragma once
// A heap over one region of memory that the caller gives it and keeps: it never takes memory from anywhere else.
//
// Blocks are cut off one large free block; when it is too small for a request, a free block of about the right size is
// found through lists by size. Boundary tags let neighbours merge when they are freed. When blocks are freed in the
// order in which they were taken, the large free block follows them around the region and no list is touched; in any
// order an allocation of up to 500 bytes and every free take constant time. Not locked: its owner lets one thread in at
// a time.

#include <array>
#include <cstddef>
#include <cstdint>

#include <Nucleo/Allocator.h>

namespace Nucleo
{

/// Called when a request cannot be met. May free blocks of the heap; answers 1 to have the request tried again. With
/// any other answer the request fails with ERROR_MEMORY.
using HeapExhaustedFx = Status (*)(void* receiver);

class HeapAllocator final : public Allocator
{
public:
    static constexpr std::size_t Alignment = 16;                        ///< Of every block's memory.
    static constexpr std::size_t HeaderSize = 8;                        ///< What the heap keeps in front of it.
    static constexpr std::size_t LargestRegion = std::size_t{1} << 31;  ///< In bytes.

    /// Bytes of the region that a block of `size` bytes takes.
    static constexpr std::size_t BlockSize(std::size_t size)
    {
        return (size + HeaderSize + Alignment - 1) / Alignment * Alignment;
    }

    HeapAllocator() = default;
    ~HeapAllocator() override { RemoveRegion(); }
    HeapAllocator(const HeapAllocator&) = delete;
    HeapAllocator& operator=(const HeapAllocator&) = delete;

    /// Gives the heap its one region, which must outlive it. ERROR_STATE when it has one, ERROR_PARAMETER when the
    /// region is too small for one block or larger than LargestRegion.
    Status AddRegion(void* memory, std::size_t size);

    /// Gives the region up, with all blocks in it, so that its memory may be used otherwise or given back before the
    /// heap is destroyed. The handler stays.
    void RemoveRegion() noexcept;

    /// Sets what is called when a request cannot be met; null: nothing, the request fails.
    void SetExhaustedHandler(HeapExhaustedFx handler, void* receiver) noexcept;

    /// Fails with ERROR_MEMORY when there is no room, also before AddRegion. A request that is larger than the whole
    /// region asks the handler like every other: it is the handler's answer that ends it.
    Status Allocate(std::size_t size, void** memory) override;

    /// ERROR_PARAMETER, and nothing happens, for an address outside the region or of no block, such as one that is
    /// free already.
    Status Free(void* memory) override;

    /// Frees all blocks at once, in constant time; none of them may be freed afterwards. Region and handler stay.
    void Clear() noexcept;

    /// Bytes of the region that blocks take now, headers included.
    std::size_t Used() const noexcept { return used_; }

private:
    struct Block;

    Block& At(std::uint32_t offset) const noexcept;
    void* Take(std::size_t size) noexcept;
    std::uint32_t Find(std::uint32_t size) const noexcept;
    void Keep(std::uint32_t offset) noexcept;
    void Detach(std::uint32_t offset) noexcept;
    void Link(std::uint32_t offset) noexcept;
    void Unlink(std::uint32_t offset) noexcept;
    static std::uint32_t ListOf(std::uint32_t size) noexcept;

    static constexpr std::uint32_t NoBlock = UINT32_MAX;

    // Blocks are named by their offset from base_, in bytes.
    std::byte* base_ = nullptr;
    std::uint32_t end_ = 0;      // The sentinel's header.
    std::uint32_t current_ = 0;  // The free block that is cut first and is in no list; end_ when there is none.
    std::uint64_t filled_ = 0;   // A bit for each list that is not empty.
    std::array<std::uint32_t, 55> lists_{};  // The first free block of each size class.
    std::size_t used_ = 0;
    HeapExhaustedFx exhausted_ = nullptr;
    void* receiver_ = nullptr;
};

}  // namespace Nucleo
