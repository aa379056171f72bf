#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Nucleo/FlatMap.h>
#include <VxTestSupport/AllocationSweep.h>

using namespace Nucleo::Statuses;
using VxTestSupport::FailingAllocator;

namespace
{

using Map = Nucleo::FlatMap<std::uint64_t, int>;
using Model = std::vector<std::pair<std::uint64_t, int>>;

Model::iterator Find(Model& model, std::uint64_t key)
{
    return std::find_if(model.begin(), model.end(), [key](const auto& entry) { return entry.first == key; });
}

// Adds to both; they agree whether it was there and on its value.
void Add(Map& map, Model& model, std::uint64_t key, int value)
{
    auto entry = Find(model, key);
    if (entry == model.end()) {
        entry = model.insert(entry, {key, value});
    }
    int* there = nullptr;
    ASSERT_EQ(map.Add(key, value, &there), OK);
    ASSERT_EQ(*there, entry->second);
    *there = entry->second += 1000;
}

void ExpectSame(const Map& map, Model& model, std::uint64_t keys)
{
    ASSERT_EQ(map.Count(), model.size());
    for (std::uint64_t key = 0; key < keys; ++key) {
        const auto entry = Find(model, key);
        const int* value = map.Find(key);
        ASSERT_EQ(value != nullptr, entry != model.end()) << key;
        ASSERT_TRUE(value == nullptr || *value == entry->second) << key;
    }
}

TEST(FlatMapTest, HoldsWhatItIsRefilledWith)
{
    constexpr std::uint64_t keys = 40;
    std::mt19937 random(7);
    const auto below = [&random](std::uint64_t limit) { return random() % limit; };
    FailingAllocator allocator;
    Map map(allocator);
    ASSERT_EQ(map.Find(0), nullptr);
    std::vector<std::uint64_t> sequence;
    for (int round = 0; round < 2000; ++round) {
        // Mostly the sequence of the round before, with a key changed or behind a shorter or a longer one.
        if (below(4) == 0) {
            sequence.resize(below(60), below(keys));
        }
        if (!sequence.empty() && below(4) == 0) {
            sequence[below(sequence.size())] = below(keys);
        }
        map.Clear();
        Model model;
        ASSERT_NO_FATAL_FAILURE(ExpectSame(map, model, keys));
        for (std::size_t i = 0; i < sequence.size(); ++i) {
            ASSERT_NO_FATAL_FAILURE(Add(map, model, sequence[i], static_cast<int>(i)));
            if (below(30) == 0) {
                map.DropLast();
                model.pop_back();
            }
            if (below(10) == 0) {
                ASSERT_NO_FATAL_FAILURE(ExpectSame(map, model, keys));
            }
        }
        ASSERT_NO_FATAL_FAILURE(ExpectSame(map, model, keys));
        if (round % 500 == 499) {
            ASSERT_EQ(map.Release(), OK);
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
        Map map(allocator);
        Model model;
        for (std::uint64_t key = 0; key < 40; ++key) {
            int* there = nullptr;
            if (map.Add(key, 1, &there) != OK) {
                ASSERT_EQ(there, nullptr);
                ASSERT_NO_FATAL_FAILURE(ExpectSame(map, model, 40));
                ASSERT_EQ(map.Add(key, 1, &there), OK);
            }
            model.emplace_back(key, 1);
        }
        ASSERT_NO_FATAL_FAILURE(ExpectSame(map, model, 40));
    });
}

}  // namespace
