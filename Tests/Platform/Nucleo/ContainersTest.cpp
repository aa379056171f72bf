#include <algorithm>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <Nucleo/ArrayList.h>
#include <Nucleo/FlatMap.h>
#include <Nucleo/HealthProbe.h>
#include <Nucleo/RingList.h>
#include <Nucleo/String.h>
#include <Nucleo/StringSet.h>
#include <VxTestSupport/AllocationSweep.h>

using namespace Nucleo::Statuses;
using Nucleo::HealthProbe;
using VxTestSupport::FailingAllocator;
using VxTestSupport::SweepFailures;

namespace
{

const std::string longText(100, 'x');

TEST(ContainersTest, AStringSetIsUnchangedByAnAdditionThatFindsNoMemory)
{
    SweepFailures([](FailingAllocator& allocator) {
        Nucleo::StringSet set(allocator);
        for (std::size_t i = 0; i < 40; ++i) {  // The table grows meanwhile.
            const std::string text = longText + std::to_string(i);
            if (const bool failed = allocator.Failed(); set.Add(text) != OK) {
                ASSERT_TRUE(allocator.Failed() && !failed);
                ASSERT_FALSE(set.Contains(text));
                ASSERT_EQ(set.Count(), i);
                ASSERT_EQ(set.Add(text), OK);
            }
            ASSERT_EQ(set.Add(text), OK);
            ASSERT_TRUE(set.Contains(text));
            ASSERT_EQ(set.Count(), i + 1);
        }
        ASSERT_FALSE(set.Contains(longText));
        ASSERT_EQ(allocator.Live(), 81);  // 40 nodes with a text each, and the table.
    });
}

TEST(ContainersTest, AStringKeepsItsTextWhenThereIsNoRoom)
{
    SweepFailures([](FailingAllocator& allocator) {
        Nucleo::Handle<Nucleo::String> string;
        if (Nucleo::String::Make(string.Receive(), longText, &allocator) != OK) {
            ASSERT_FALSE(string);
            return;
        }
        const Nucleo::Status status = string->Append(longText + longText);
        EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
        EXPECT_EQ(allocator.Live(), 2);
        EXPECT_EQ(string->View(), status == OK ? longText + longText + longText : longText);
    });
}

TEST(ContainersTest, AnArrayListKeepsItsItemsWhenThereIsNoRoom)
{
    SweepFailures([](FailingAllocator& allocator) {
        Nucleo::Handle<Nucleo::ArrayList<std::uint32_t>> list;
        if (Nucleo::ArrayList<std::uint32_t>::Make(list.Receive(), 1, &allocator) != OK) {
            ASSERT_FALSE(list);
            return;
        }
        for (std::uint32_t i = 0; i < 100; ++i) {
            if (list->Append(i) != OK) {
                ASSERT_EQ(list->Count(), i);
                ASSERT_EQ(list->Append(i), OK);  // Only one allocation fails.
            }
        }
        for (std::uint32_t i = 0; i < 100; ++i) {
            ASSERT_EQ(list->Items()[i], i);
        }
        EXPECT_EQ(list->Reserve(std::numeric_limits<std::size_t>::max() / 2), ERROR_MEMORY);
        const Nucleo::Object& object = *list;
        EXPECT_EQ(&dynamic_cast<const Nucleo::AnyArrayList&>(object).ItemType(), &Nucleo::UInt32Type);
    });
}

TEST(ContainersTest, ARingListIsAQueueOfLimitedLength)
{
    FailingAllocator allocator(0);
    Nucleo::RingList<int> ring;
    EXPECT_EQ(ring.Init(3, allocator), ERROR_MEMORY);
    EXPECT_EQ(ring.Append(1), ERROR_CAPACITY);
    ASSERT_EQ(ring.Init(3, allocator), OK);
    EXPECT_EQ(ring.Init(3, allocator), ERROR_STATE);
    ASSERT_TRUE(ring.Append(0) == OK && ring.Append(1) == OK);
    for (int i = 0; i < 20; ++i) {  // More than once around its room.
        ASSERT_EQ(ring.Append(i + 2), OK);
        ASSERT_EQ(ring.Append(99), ERROR_CAPACITY);
        ASSERT_EQ(ring.At(0) * 10'000 + ring.At(1) * 100 + ring.At(2), i * 10'101 + 102);
        ASSERT_EQ(ring.TakeFirst(), i);
        ASSERT_EQ(ring.Count(), 2U);
    }
    EXPECT_EQ(ring.Release(), OK);
    EXPECT_EQ(allocator.Live(), 0);
}

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
    SweepFailures([](FailingAllocator& allocator) {
        ModelledMap both(allocator);
        for (std::uint64_t key = 0; key < keys; ++key) {
            ASSERT_NO_FATAL_FAILURE(both.Add(key, 1));
        }
        ASSERT_NO_FATAL_FAILURE(both.Compare());
    });
}

TEST(HealthProbeTest, IsListedWithWhatItShowsAsLongAsItLives)
{
    Nucleo::Handle<HealthProbe> probes[2];
    const auto make = [&](std::size_t index, const char* name, std::int64_t offset, std::int64_t multiplier) {
        return HealthProbe::Make(probes[index].Receive(), name, 7, 8, 10, offset, multiplier, nullptr);
    };
    const std::string longest(63, 'n');
    EXPECT_EQ(make(0, nullptr, 0, 1), ERROR_PARAMETER);
    EXPECT_EQ(make(0, (longest + "n").c_str(), 0, 1), ERROR_PARAMETER);
    ASSERT_EQ(make(0, longest.c_str(), 5, -2), OK);
    ASSERT_EQ(make(1, "last", std::numeric_limits<std::int64_t>::max(), 1), OK);
    probes[0]->Add(-11);
    const auto readings = HealthProbe::ListLive();
    ASSERT_EQ(readings.size(), 2U);
    EXPECT_EQ(readings[0].name, longest);
    EXPECT_EQ(readings[0].id * 10 + readings[0].instance, 78U);
    EXPECT_EQ(readings[0].value, 7);
    EXPECT_EQ(readings[1].value, std::numeric_limits<std::int64_t>::min() + 9);
    EXPECT_EQ(probes[1]->Reset(-1), OK);
    probes[0] = {};
    ASSERT_EQ(HealthProbe::ListLive().size(), 1U);
    EXPECT_EQ(HealthProbe::ListLive()[0].value, std::numeric_limits<std::int64_t>::max() - 1);
}

}  // namespace
