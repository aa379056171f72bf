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
    void* memory = nullptr;
    ASSERT_EQ(heap.Allocate(100, &memory), OK);
    std::memset(memory, 7, 100);
    EXPECT_EQ(heap.Free(nullptr), OK);
    auto* block = static_cast<unsigned char*>(memory);
    int local = 0;
    void* const foreign[] = {&local, block + 8, block + 16, block - 16, region + 1024, region + 1008};
    for (void* address : foreign) {
        EXPECT_EQ(heap.Free(address), ERROR_PARAMETER);
    }
    EXPECT_EQ(heap.Used(), HeapAllocator::BlockSize(100));
}

}  // namespace
