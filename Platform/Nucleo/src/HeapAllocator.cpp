#include <utility>

#include <Nucleo/HeapAllocator.h>

namespace Nucleo
{

HeapAllocator::~HeapAllocator()
{
    RemoveRegion();
}

inline void HeapAllocator::Link(std::uint32_t offset) noexcept
{
    Block& block = At(offset);
    const std::uint32_t list = ListOf(block.size);
    block.next = lists_[list];
    block.previous = NoBlock;
    if (block.next != NoBlock) {
        At(block.next).previous = offset;
    }
    lists_[list] = offset;
    filled_ |= std::uint64_t{1} << list;
}

inline void HeapAllocator::Unlink(std::uint32_t offset) noexcept
{
    const Block& block = At(offset);
    if (block.next != NoBlock) {
        At(block.next).previous = block.previous;
    }
    if (block.previous != NoBlock) {
        At(block.previous).next = block.next;
        return;
    }
    const std::uint32_t list = ListOf(block.size);
    lists_[list] = block.next;
    if (block.next == NoBlock) {
        filled_ &= ~(std::uint64_t{1} << list);
    }
}

// Keeps a free block: the larger one of it and the current one becomes the current one, the other goes to its list.
inline void HeapAllocator::Keep(std::uint32_t offset) noexcept
{
    if (At(current_).size < At(offset).size) {
        std::swap(current_, offset);
        following_ = current_ + At(current_).size;
    }
    if (offset != end_) {
        Link(offset);
    }
}

inline void HeapAllocator::Detach(std::uint32_t offset) noexcept
{
    if (offset == current_) {
        current_ = end_;
    } else {
        Unlink(offset);
    }
}

// A free block in the lists of at least `size` bytes, as small as the lists tell; end_ when there is none.
std::uint32_t HeapAllocator::Find(std::uint32_t size) const noexcept
{
    for (std::uint64_t lists = filled_ >> ListOf(size) << ListOf(size); lists != 0; lists &= lists - 1) {
        std::uint32_t offset = lists_[static_cast<std::size_t>(std::countr_zero(lists))];
        while (offset != NoBlock && At(offset).size < size) {
            offset = At(offset).next;
        }
        if (offset != NoBlock) {
            return offset;
        }
    }
    return end_;
}

Status HeapAllocator::AddRegion(void* memory, std::size_t size)
{
    if (base_ != nullptr) {
        return ERROR_STATE;
    }
    // Headers stand right in front of the aligned memory of their blocks; the last one is the sentinel's.
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(memory);
    const std::size_t skipped = (Alignment + HeaderSize - address % Alignment) % Alignment;
    if (memory == nullptr || size > LargestRegion || size < skipped + BlockSize(0) + HeaderSize) {
        return ERROR_PARAMETER;
    }
    base_ = static_cast<std::byte*>(memory) + skipped;
    end_ = static_cast<std::uint32_t>((size - skipped - HeaderSize) / Alignment * Alignment);
    Clear();
    return OK;
}

void HeapAllocator::RemoveRegion() noexcept
{
    Permit(base_, end_);
    base_ = nullptr;
    end_ = 0;
    used_ = 0;
}

void HeapAllocator::SetExhaustedHandler(HeapExhaustedFx handler, void* receiver) noexcept
{
    exhausted_ = handler;
    receiver_ = receiver;
}

void HeapAllocator::Clear() noexcept
{
    used_ = 0;
    if (base_ == nullptr) {
        return;
    }
    filled_ = 0;
    lists_.fill(NoBlock);
    Permit(base_, sizeof(Block));
    Forbid(base_ + sizeof(Block), end_ - sizeof(Block));
    current_ = 0;
    following_ = end_;
    At(0).size = end_;
    At(0).previousSize = 0;
    At(end_).size = UsedBit;
    At(end_).previousSize = end_;
}

// Takes a block from the lists, or the front of one. Null when none is large enough.
void* HeapAllocator::TakeListed(std::uint32_t taken, std::size_t size) noexcept
{
    const std::uint32_t offset = Find(taken);
    if (offset == end_) {
        return nullptr;
    }
    Unlink(offset);
    Block& block = At(offset);
    const std::uint32_t rest = block.size - taken;
    if (rest != 0) {
        Block& remainder = At(offset + taken);
        Permit(&remainder, sizeof(Block));
        remainder.size = rest;
        remainder.previousSize = taken;
        At(offset + taken + rest).previousSize = rest;
        Keep(offset + taken);
    }
    return Use(block, taken, size);
}

Status HeapAllocator::FreeAnywhere(void* memory) noexcept
{
    if (memory == nullptr) {
        return OK;
    }
    const std::uintptr_t distance =
        reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(base_) - HeaderSize;
    if (distance >= end_ || distance % Alignment != 0) {
        return ERROR_PARAMETER;
    }
    const auto offset = static_cast<std::uint32_t>(distance);
    Block& block = At(offset);
    if (IsForbidden(&block) || block.IsFree()) {
        return ERROR_PARAMETER;
    }
    std::uint32_t size = block.size - UsedBit;
    // What lies inside a block is no header: the block behind it hardly ever agrees about the size.
    if (size == 0 || size % Alignment != 0 || size > end_ - offset || At(offset + size).previousSize != size) {
        return ERROR_PARAMETER;
    }
    used_ -= size;
    block.size = size;
    Permit(block.Memory(), sizeof(Block) - HeaderSize);
    Forbid(&block + 1, size - sizeof(Block));

    std::uint32_t joined = offset;
    if (Block& next = At(offset + size); next.IsFree()) {
        Detach(offset + size);
        size += next.size;
        Forbid(&next, sizeof(Block));
    }
    if (const Block& front = At(offset - block.previousSize); offset != 0 && front.IsFree()) {
        joined -= block.previousSize;
        Detach(joined);
        size += front.size;
        Forbid(&block, sizeof(Block));
    }
    At(joined).size = size;
    At(joined + size).previousSize = size;
    Keep(joined);
    return OK;
}

}  // namespace Nucleo
