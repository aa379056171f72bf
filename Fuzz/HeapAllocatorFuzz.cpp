// Any order of taking and freeing: blocks lie apart in the region and keep what is put into them, a request fails only
// while no gap is large enough for it, and in the end one block takes everything.

#include <algorithm>
#include <deque>
#include <span>
#include <vector>

#include <Nucleo/HeapAllocator.h>

#include "FuzzSupport.h"

using namespace Nucleo::Statuses;
using Nucleo::HeapAllocator;

namespace
{

constexpr std::size_t unit = HeapAllocator::Alignment;

/// A heap, its blocks by age, and which units of its region they must take.
struct ModelledHeap
{
    using Block = std::span<std::uint8_t>;

    // Memory is aligned, so half a unit is lost in front of the first header and the other half behind the last block.
    explicit ModelledHeap(std::size_t size) : region(size), taken(size / unit - 1)
    {
        Require(heap.AddRegion(region.data(), size) == OK);
        heap.SetExhaustedHandler(&FreeOldest, this);
    }

    static std::uint8_t Fill(Block block) { return reinterpret_cast<std::uintptr_t>(block.data()) / unit & 0xff; }

    void Allocate(std::size_t size)
    {
        wanted = HeapAllocator::BlockSize(size) / unit;
        void* memory = nullptr;
        if (heap.Allocate(size, &memory) == OK) {
            blocks.emplace_back(static_cast<std::uint8_t*>(memory), size);
            Mark(blocks.back(), true);
            std::fill(blocks.back().begin(), blocks.back().end(), Fill(blocks.back()));
        } else {
            Require(memory == nullptr && blocks.empty() && wanted > taken.size());
        }
    }

    void Free(std::size_t index)
    {
        const Block block = blocks[index];
        Require(std::count(block.begin(), block.end(), Fill(block)) == std::ptrdiff_t(block.size()));
        Require(heap.Free(block.data() + unit / 2) == ERROR_PARAMETER);
        Require(heap.Free(block.data()) == OK && heap.Free(block.data()) == ERROR_PARAMETER);
        Mark(block, false);
        blocks.erase(blocks.begin() + std::ptrdiff_t(index));
    }

    void Mark(Block block, bool take)
    {
        const std::size_t offset = std::size_t(block.data() - region.data()) - unit;
        const auto first = taken.begin() + std::ptrdiff_t(offset / unit);
        const auto end = first + std::ptrdiff_t(HeapAllocator::BlockSize(block.size()) / unit);
        Require(offset % unit == 0 && end <= taken.end() && std::count(first, end, take) == 0);
        std::fill(first, end, take);
        Require(heap.Used() == unit * std::size_t(std::count(taken.begin(), taken.end(), true)));
    }

    static Nucleo::Status FreeOldest(void* receiver)
    {
        auto& self = *static_cast<ModelledHeap*>(receiver);
        Require(std::search_n(self.taken.begin(), self.taken.end(), self.wanted, false) == self.taken.end());
        if (self.blocks.empty()) {
            return 0;
        }
        self.Free(0);
        return 1;
    }

    std::vector<std::uint8_t> region;
    std::vector<bool> taken;
    HeapAllocator heap;
    std::deque<Block> blocks;
    std::size_t wanted = 0;  // Units of the present request.
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Choices choices(data, size);
    const std::size_t regionSize = std::size_t{512} << choices.Byte() % 6;
    ModelledHeap model(regionSize);
    while (!choices.Empty()) {
        const std::uint8_t choice = choices.Byte();
        if (choice == 0xff) {
            model.heap.Clear();
            model.blocks.clear();
            model.taken.assign(model.taken.size(), false);
        } else if (choice >= 0xc0 && !model.blocks.empty()) {
            model.Free(choices.Byte() % model.blocks.size());
        } else {
            // Mostly small, now and then of any size up to more than the region.
            model.Allocate(choice < 0xb8 ? choice % 100 : choices.Word() % (regionSize * 5 / 4));
        }
    }
    while (!model.blocks.empty()) {
        model.Free(size % model.blocks.size());
    }
    model.Allocate(model.taken.size() * unit - HeapAllocator::HeaderSize);
    Require(model.blocks.size() == 1);
    return 0;
}
