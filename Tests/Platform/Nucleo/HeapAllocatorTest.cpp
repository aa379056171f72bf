#include <algorithm>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <Nucleo/HeapAllocator.h>

namespace
{

using namespace Nucleo::Statuses;
using Nucleo::HeapAllocator;
using Nucleo::Status;

constexpr std::size_t overhead = 16;  // Of an aligned region: in front of the first block and behind the last one.

struct Taken
{
    unsigned char* memory;
    std::size_t size;
    unsigned char fill;
};

// A heap and what it must hold: the blocks by age, each filled with a byte of its own.
struct ModelledHeap
{
    explicit ModelledHeap(std::size_t regionSize) : region(regionSize)
    {
        EXPECT_EQ(heap.AddRegion(region.data(), regionSize), OK);
        heap.SetExhaustedHandler(&OnExhausted, this);
    }

    void Allocate(std::size_t size)
    {
        wanted = size;
        void* memory = nullptr;
        const Status status = heap.Allocate(size, &memory);
        if (HeapAllocator::BlockSize(size) > region.size() - overhead) {
            EXPECT_EQ(status, ERROR_MEMORY);
            EXPECT_EQ(memory, nullptr);
            EXPECT_TRUE(blocks.empty()) << "the handler was not asked to the end";
            return;
        }
        ASSERT_EQ(status, OK);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % HeapAllocator::Alignment, 0u);
        auto* bytes = static_cast<unsigned char*>(memory);
        std::memset(bytes, ++lastFill, size);
        blocks.push_back({bytes, size, lastFill});
        used += HeapAllocator::BlockSize(size);
        EXPECT_EQ(heap.Used(), used);
    }

    void Free(std::list<Taken>::iterator block)
    {
        EXPECT_EQ(std::count(block->memory, block->memory + block->size, block->fill), std::ptrdiff_t(block->size));
        EXPECT_EQ(heap.Free(block->memory), OK);
        used -= HeapAllocator::BlockSize(block->size);
        EXPECT_EQ(heap.Used(), used);
        blocks.erase(block);
    }

    void Clear()
    {
        heap.Clear();
        blocks.clear();
        used = 0;
        EXPECT_EQ(heap.Used(), 0u);
    }

    std::size_t LargestGap() const
    {
        std::map<const unsigned char*, std::size_t> byAddress;
        for (const Taken& block : blocks) {
            byAddress[block.memory - HeapAllocator::HeaderSize] = HeapAllocator::BlockSize(block.size);
        }
        std::size_t largest = 0;
        const unsigned char* end = region.data() + overhead - HeapAllocator::HeaderSize;
        for (const auto& [address, size] : byAddress) {
            EXPECT_GE(address, end) << "blocks overlap";
            largest = std::max(largest, std::size_t(address - end));
            end = address + size;
        }
        return std::max(largest, std::size_t(region.data() + region.size() - HeapAllocator::HeaderSize - end));
    }

    static Status OnExhausted(void* receiver)
    {
        auto& model = *static_cast<ModelledHeap*>(receiver);
        EXPECT_LT(model.LargestGap(), HeapAllocator::BlockSize(model.wanted)) << "there is room";
        if (model.blocks.empty()) {
            return 0;
        }
        model.Free(model.blocks.begin());
        return 1;
    }

    std::vector<unsigned char> region;
    HeapAllocator heap;
    std::list<Taken> blocks;  // Oldest first.
    std::size_t used = 0;
    std::size_t wanted = 0;
    unsigned char lastFill = 0;
};

TEST(HeapAllocatorTest, AgreesWithAModelInAnyOrderOfFreeing)
{
    std::mt19937 random(7);
    for (const std::size_t regionSize : {512u, 2048u, 16384u}) {
        ModelledHeap model(regionSize);
        for (int step = 0; step < 5'000; ++step) {
            if (random() % 1'000 == 0) {
                model.Clear();
            } else if (random() % 4 == 0 && !model.blocks.empty()) {
                model.Free(std::next(model.blocks.begin(), std::ptrdiff_t(random() % model.blocks.size())));
            } else {
                // Mostly small, now and then of any size up to more than the region.
                model.Allocate(random() % (random() % 64 == 0 ? regionSize * 5 / 4 : 100));
            }
            ASSERT_FALSE(HasFailure()) << "region " << regionSize << ", step " << step;
        }
        while (!model.blocks.empty()) {
            model.Free(std::next(model.blocks.begin(), std::ptrdiff_t(random() % model.blocks.size())));
        }
        // One block again that takes all.
        model.Allocate(regionSize - overhead - HeapAllocator::HeaderSize);
        EXPECT_EQ(model.heap.Used(), regionSize - overhead);
        model.Allocate(regionSize);  // Too large for ever: asks until nothing is left.
    }
}

TEST(HeapAllocatorTest, TakesARegionOfAnyAlignmentOnce)
{
    alignas(16) unsigned char memory[64];
    void* block = nullptr;
    for (std::size_t offset = 0; offset < 16; ++offset) {
        const std::size_t smallest = (24 - offset) % 16 + 16 + 8;
        HeapAllocator heap;
        EXPECT_EQ(heap.Allocate(0, &block), ERROR_MEMORY);
        EXPECT_EQ(heap.AddRegion(memory + offset, smallest - 1), ERROR_PARAMETER);
        EXPECT_EQ(heap.AddRegion(memory + offset, smallest), OK);
        EXPECT_EQ(heap.AddRegion(memory + offset, smallest), ERROR_STATE);
        ASSERT_EQ(heap.Allocate(8, &block), OK);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u);
        EXPECT_EQ(heap.Allocate(0, &block), ERROR_MEMORY);
        heap.RemoveRegion();
        EXPECT_EQ(heap.Used(), 0u);
        std::memset(memory, 0, sizeof memory);  // It is the caller's again.
    }
    HeapAllocator heap;
    EXPECT_EQ(heap.AddRegion(memory, HeapAllocator::LargestRegion + 1), ERROR_PARAMETER);
    EXPECT_EQ(heap.AddRegion(nullptr, 64), ERROR_PARAMETER);
    EXPECT_EQ(heap.Allocate(SIZE_MAX, &block), ERROR_MEMORY);
}

TEST(HeapAllocatorTest, FreesOnlyWhatIsABlock)
{
    ModelledHeap model(1024);
    for (int i = 0; i < 4; ++i) {
        model.Allocate(100);
    }
    std::vector<unsigned char*> blocks;
    for (const Taken& block : model.blocks) {
        blocks.push_back(block.memory);
    }
    EXPECT_EQ(model.heap.Free(nullptr), OK);
    int local = 0;
    void* const foreign[] = {
        &local, blocks[0] + 8, blocks[0] + 16, blocks[0] - 16, model.region.data() + 1024, model.region.data() + 1008};
    for (void* address : foreign) {
        EXPECT_EQ(model.heap.Free(address), ERROR_PARAMETER);
    }
    // Twice: alone, joined to the block in front, and with both neighbours.
    for (const std::size_t i : {0u, 1u, 3u, 2u}) {
        EXPECT_EQ(model.heap.Free(blocks[i]), OK);
        EXPECT_EQ(model.heap.Free(blocks[i]), ERROR_PARAMETER) << i;
    }
    EXPECT_EQ(model.heap.Used(), 0u);
}

}  // namespace
