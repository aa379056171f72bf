#include <limits>

#include <gtest/gtest.h>

#include <Nucleo/ArrayList.h>
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
