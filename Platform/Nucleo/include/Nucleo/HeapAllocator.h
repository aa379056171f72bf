#pragma once
// A heap over one region of memory that the caller gives it and keeps: it never takes memory from anywhere else.
//
// Blocks are cut off one large free block; when it is too small for a request, a free block of about the right size is
// found through lists by size. Boundary tags let neighbours merge when they are freed. When blocks are freed in the
// order in which they were taken, the large free block follows them around the region and no list is touched; in any
// order an allocation of up to 500 bytes and every free take constant time. That first order is inline, so that whoever
// uses a HeapAllocator by its own type pays for no call. Not locked: its owner lets one thread in at a time.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include <Nucleo/Allocator.h>
#include <Nucleo/MemoryMarks.h>

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
    ~HeapAllocator() override;
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
    static constexpr std::uint32_t UsedBit = 1;

    // Sizes are in bytes and multiples of 16, which leaves the low bit of `size` for the mark of a block in use. The
    // memory that a block offers begins behind the header, where a free block has its links; so the smallest block is
    // 16 bytes long, every remainder is large enough to be a block, and a block takes exactly BlockSize().
    struct Block
    {
        std::uint32_t size;
        std::uint32_t previousSize;  // Of the block in front; 0 in the first one.
        // Only in a free block: its neighbours in its list; NoBlock at the ends.
        std::uint32_t next;
        std::uint32_t previous;

        void* Memory() noexcept { return &next; }
        bool IsFree() const noexcept { return (size & UsedBit) == 0; }
    };

    Block& At(std::uint32_t offset) const noexcept { return *reinterpret_cast<Block*>(base_ + offset); }

    // The list for blocks of `size` bytes: one for each size up to 512, then one for each power of two.
    static std::uint32_t ListOf(std::uint32_t size) noexcept
    {
        constexpr std::uint32_t exactLists = 32;
        const auto units = static_cast<std::uint32_t>(size / Alignment);
        return units <= exactLists ? units - 1 : exactLists + static_cast<std::uint32_t>(std::bit_width(units)) - 6;
    }

    void* Take(std::size_t size) noexcept;
    void* CutCurrent(std::uint32_t taken, std::size_t size) noexcept;
    void* TakeListed(std::uint32_t taken, std::size_t size) noexcept;
    void* Use(Block& block, std::uint32_t taken, std::size_t size) noexcept;
    Status FreeAnywhere(void* memory) noexcept;
    std::uint32_t Find(std::uint32_t size) const noexcept;
    void Keep(std::uint32_t offset) noexcept;
    void Detach(std::uint32_t offset) noexcept;
    void Link(std::uint32_t offset) noexcept;
    void Unlink(std::uint32_t offset) noexcept;

    static constexpr std::uint32_t NoBlock = UINT32_MAX;

    // Blocks are named by their offset from base_, in bytes.
    std::byte* base_ = nullptr;
    std::uint32_t end_ = 0;      // The sentinel's header.
    std::uint32_t current_ = 0;  // The free block that is cut first and is in no list; end_ when there is none.
    // The block behind the current one, which is in use or the sentinel, since free neighbours are one. Where the
    // current one was when there is none any more: then the blocks on both sides are in use until one is freed.
    std::uint32_t following_ = 0;
    std::uint64_t filled_ = 0;               // A bit for each list that is not empty.
    std::array<std::uint32_t, 55> lists_{};  // The first free block of each size class.
    std::size_t used_ = 0;
    HeapExhaustedFx exhausted_ = nullptr;
    void* receiver_ = nullptr;
};

// Marks `taken` bytes from `block` on as a block in use, for a request of `size`.
inline void* HeapAllocator::Use(Block& block, std::uint32_t taken, std::size_t size) noexcept
{
    block.size = taken | UsedBit;
    used_ += taken;
    Forbid(block.Memory(), taken - HeaderSize);
    Permit(block.Memory(), size);
    return block.Memory();
}

// Cuts `taken` bytes, for a request of `size`, off the front of the current block, which is larger: so blocks that are
// freed in the order in which they were taken join the free block in front of them.
inline void* HeapAllocator::CutCurrent(std::uint32_t taken, std::size_t size) noexcept
{
    Block& block = At(current_);
    const std::uint32_t rest = block.size - taken;
    At(current_ + block.size).previousSize = rest;
    current_ += taken;
    Block& remainder = At(current_);
    Permit(&remainder, sizeof(Block));
    remainder.size = rest;
    remainder.previousSize = taken;
    return Use(block, taken, size);
}

// Null when no free block is large enough.
inline void* HeapAllocator::Take(std::size_t size) noexcept
{
    if (size >= end_) {
        return nullptr;  // Also without a region.
    }
    const auto taken = static_cast<std::uint32_t>(BlockSize(size));
    Block& current = At(current_);
    if (current.size > taken) {
        return CutCurrent(taken, size);
    }
    if (current.size == taken) {
        current_ = end_;
        return Use(current, taken, size);
    }
    return filled_ >> ListOf(taken) != 0 ? TakeListed(taken, size) : nullptr;
}

inline Status HeapAllocator::Allocate(std::size_t size, void** memory)
{
    while ((*memory = Take(size)) == nullptr) {
        if (exhausted_ == nullptr || exhausted_(receiver_) != 1) {
            return ERROR_MEMORY;
        }
    }
    return OK;
}

inline Status HeapAllocator::Free(void* memory)
{
    // An address in front of the region wraps around and is found too large.
    const std::uintptr_t distance =
        reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(base_) - HeaderSize;
    if (distance >= end_ || distance != following_) {
        return FreeAnywhere(memory);
    }
    Block& block = At(following_);
    const std::uint32_t size = block.size - UsedBit;
    Block& next = At(following_ + size);
    if (next.IsFree()) {
        return FreeAnywhere(memory);
    }
    std::uint32_t joined = size;
    if (current_ == end_) {
        current_ = following_;
        Permit(block.Memory(), sizeof(Block) - HeaderSize);
        Forbid(&block + 1, size - sizeof(Block));
    } else {
        joined += At(current_).size;
        Forbid(&block, size);
    }
    At(current_).size = joined;
    next.previousSize = joined;
    following_ += size;
    used_ -= size;
    return OK;
}

}  // namespace Nucleo
