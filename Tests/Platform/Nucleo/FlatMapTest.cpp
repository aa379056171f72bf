#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include <Nucleo/FlatMap.h>
#include <VxTestSupport/AllocationSweep.h>

using namespace Nucleo::Statuses;
using VxTestSupport::FailingAllocator;

namespace
{

using Map = Nucleo::FlatMap<std::uint64_t, int>;
constexpr std::uint64_t keys = 40;

/// A map and what it must hold, in the order of adding.
struct ModelledMap
{
    explicit ModelledMap(FailingAllocator& allocator) : map(allocator) {}

    // Both agree whether the key was there and on its value. Only one allocation fails.
    void Add(std::uint64_t key, int value)
    {
        auto entry = std::find_if(model.begin(), model.end(), [key](const auto& held) { return held.first == key; });
        int* there = nullptr;
        if (map.Add(key, value, &there) != OK) {
            ASSERT_EQ(there, nullptr);
            ASSERT_NO_FATAL_FAILURE(Compare());
            ASSERT_EQ(map.Add(key, value, &there), OK);
        }
        entry = entry == model.end() ? model.insert(entry, {key, value}) : entry;
        ASSERT_EQ(*there, entry->second);
        *there = entry->second += 1000;
    }

    void Compare() const
    {
        ASSERT_EQ(map.Count(), model.size());
        int found = 0;
        for (std::uint64_t key = 0; key < keys; ++key) {
            found += map.Find(key) != nullptr ? 1 : 0;
        }
        ASSERT_EQ(found, model.size());
        for (const auto& [key, value] : model) {
            ASSERT_TRUE(map.Find(key) != nullptr && *map.Find(key) == value) << key;
        }
    }

    Map map;
    std::vector<std::pair<std::uint64_t, int>> model;
};

TEST(FlatMapTest, HoldsWhatItIsRefilledWith)
{
    std::mt19937 random(7);
    const auto below = [&random](std::uint64_t limit) { return random() % limit; };
    FailingAllocator allocator;
    ModelledMap both(allocator);
    ASSERT_EQ(both.map.Find(0), nullptr);
    std::vector<std::uint64_t> sequence;
    for (int round = 0; round < 2000; ++round) {
        // Mostly the sequence of the round before, with a key changed or behind a shorter or a longer one.
        if (below(4) == 0) {
            sequence.resize(below(60), below(keys));
        }
        if (!sequence.empty() && below(4) == 0) {
            sequence[below(sequence.size())] = below(keys);
        }
        both.map.Clear();
        both.model.clear();
        for (const std::uint64_t key : sequence) {
            ASSERT_NO_FATAL_FAILURE(both.Compare());
            ASSERT_NO_FATAL_FAILURE(both.Add(key, round));
            if (below(30) == 0) {
                both.map.DropLast();
                both.model.pop_back();
            }
        }
        ASSERT_NO_FATAL_FAILURE(both.Compare());
        if (round % 500 == 499) {
            ASSERT_EQ(both.map.Release(), OK);
            ASSERT_EQ(allocator.Live(), 0);
        }
    }
}

TEST(FlatMapTest, FindsKeysThatWereChosenToMeetInOneSlot)
{
    std::uint64_t inverse = 0x9E3779B97F4A7C15;  // Of the multiplier that the table begins with.
    for (int i = 0; i < 6; ++i) {
        inverse *= 2 - 0x9E3779B97F4A7C15 * inverse;
    }
    FailingAllocator allocator;
    Map map(allocator);
    int* there = nullptr;
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(map.Add(static_cast<std::uint64_t>(i) * inverse, i, &there), OK);
    }
    for (int i = 0; i < 3000; ++i) {
        const int* value = map.Find(static_cast<std::uint64_t>(i) * inverse);
        ASSERT_TRUE(value != nullptr && *value == i) << i;
    }
    ASSERT_EQ(map.Find(3000 * inverse), nullptr);
}

TEST(FlatMapTest, IsUnchangedByAnAdditionThatFindsNoMemory)
{
    VxTestSupport::SweepFailures([](FailingAllocator& allocator) {
        ModelledMap both(allocator);
        for (std::uint64_t key = 0; key < keys; ++key) {
            ASSERT_NO_FATAL_FAILURE(both.Add(key, 1));
        }
        ASSERT_NO_FATAL_FAILURE(both.Compare());
    });
}

}  // namespace
