#include <cstring>

#include <gtest/gtest.h>

#include <Nucleo/HeapAllocator.h>

namespace
{

using namespace Nucleo::Statuses;
using Nucleo::HeapAllocator;

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
    alignas(16) unsigned char region[1024];
    HeapAllocator heap;
    ASSERT_EQ(heap.AddRegion(region, sizeof region), OK);
    void* memory[4];
    for (void*& block : memory) {
        ASSERT_EQ(heap.Allocate(100, &block), OK);
        std::memset(block, 7, 100);
    }
    EXPECT_EQ(heap.Free(nullptr), OK);
    auto* first = static_cast<unsigned char*>(memory[0]);
    int local = 0;
    void* const foreign[] = {&local, first + 8, first + 16, first - 16, region + 1024, region + 1008};
    for (void* address : foreign) {
        EXPECT_EQ(heap.Free(address), ERROR_PARAMETER);
    }
    // Twice: alone, joined to the block in front, and with both neighbours.
    for (const std::size_t i : {0u, 1u, 3u, 2u}) {
        EXPECT_EQ(heap.Free(memory[i]), OK);
        EXPECT_EQ(heap.Free(memory[i]), ERROR_PARAMETER) << i;
    }
    EXPECT_EQ(heap.Used(), 0u);
}

}  // namespace
