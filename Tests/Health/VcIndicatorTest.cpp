// Caches and sets of indicators: what each operation does, and that nothing depends on what was there before.

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <VxCommon/Health/VcIndicatorCache.h>
#include <VxCommon/Health/VcIndicatorSet.h>
#include <VxTestSupport/AllocationSweep.h>

#include "Indicators.h"

using namespace Nucleo::Statuses;
using Nucleo::Handle;
using Nucleo::Status;
using testing::ElementsAre;
using VxTestSupport::FailingAllocator;
using namespace VxCommonTest;

namespace
{

constexpr std::uint32_t highest = std::numeric_limits<std::uint32_t>::max();

// A name of 64 bytes has no end.
VcHealthIndicator Record(const std::string& name, std::uint32_t id, std::uint32_t instance, std::int64_t value)
{
    VcHealthIndicator record{{}, id, instance, value};
    name.copy(record.name, sizeof record.name);
    return record;
}

std::string Shown(const VcHealthIndicator& record)
{
    return std::to_string(record.id) + "/" + std::to_string(record.instance) + "=" + std::to_string(record.value) +
           " " + std::string(record.name, strnlen(record.name, sizeof record.name));
}

template <class List>
std::vector<std::string> ShowAll(const List& records)
{
    std::vector<std::string> shown;
    for (const VcHealthIndicator& record : records) {
        shown.push_back(Shown(record));
    }
    return shown;
}

// Halves even values and refuses odd ones.
Status Adjust(void* /*receiver*/, VcIndicatorSet* set, VcIndicatorSetOverwriteArgs* args)
{
    std::int64_t current = 0;
    EXPECT_EQ(VcIndicatorSet_GetValue(set, args->key.id, args->key.instance, &current), OK);
    EXPECT_EQ(args->value, current);
    args->value = current % 2 == 0 ? current / 2 : -1;
    return current % 2 == 0 ? OK : ERROR_BUSY;
}

Records SampleReport()
{
    return {Record("a0", 1, 0, 10), Record("a1", 1, 1, 11), Record("a0 again", 1, 0, 12), Record("b", 2, 0, 20),
            Record(std::string(64, 'n'), 3, 5, 30)};
}

/// What a cache finds of an id: its name, its items in order, the value of each of its instances.
std::string Found(const VcIndicatorCache* cache, std::uint32_t id)
{
    const char* name = "none";
    const Status named = VcIndicatorCache_FindName(cache, id, &name);
    std::string found = std::to_string(named) + " " + name + ":";
    for (const VcIndicatorListItem* item = VcIndicatorCache_FirstById(cache, id); item != nullptr;
         item = VcIndicatorCache_NextById(cache, item)) {
        found += std::string(" ") + VcIndicatorCache_ItemName(cache, item) + " " +
                 std::to_string(VcIndicatorCache_ItemInstance(cache, item)) + "=" +
                 std::to_string(VcIndicatorCache_ItemValue(cache, item));
    }
    for (const std::uint32_t instance : {0U, 1U, 5U}) {
        std::int64_t value = -7;
        const Status status = VcIndicatorCache_Find(cache, id, instance, &value);
        found += (instance == 0 ? ", " : " ") + (status == OK ? std::to_string(value) : value == -7 ? "-" : "?");
    }
    return found;
}

TEST(VcIndicatorCacheTest, FindsTheItemsOfAnIdInTheirOrder)
{
    const Records records = SampleReport();
    const Handle<VcIndicatorCache> cache = MakeCache(records);
    const std::string longest(63, 'n');
    EXPECT_EQ(VcIndicatorCache_Count(cache.Get()), 5U);
    EXPECT_EQ(Shown(*VcIndicatorCache_At(cache.Get(), 4)), "3/5=30 " + longest);
    EXPECT_EQ(Found(cache.Get(), 1), "1 a0: a0 0=10 a1 1=11 a0 again 0=12, 10 11 -");
    EXPECT_EQ(Found(cache.Get(), 2), "1 b: b 0=20, 20 - -");
    EXPECT_EQ(Found(cache.Get(), 3), "1 " + longest + ": " + longest + " 5=30, - - 30");
    EXPECT_EQ(Found(cache.Get(), 4), "-999 none:, - - -");
    const std::uint32_t ids[] = {2, 1, 4, 3, 2};
    EXPECT_EQ(VcIndicatorCache_Aggregate(cache.Get(), ids, 0, 5), 50);
    EXPECT_EQ(VcIndicatorCache_Aggregate(cache.Get(), ids, 5, 5), 30);
    EXPECT_EQ(VcIndicatorCache_Aggregate(cache.Get(), ids, 0, 2), 30);
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(VcIndicatorCache_Aggregate(MakeCache({Record("", 1, 0, most), Record("", 2, 0, 2)}).Get(), ids, 0, 2),
              std::numeric_limits<std::int64_t>::min() + 1);
    EXPECT_EQ(VcIndicatorCache_NextById(cache.Get(), nullptr), nullptr);

    // Step by step.
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[0], 0), ERROR_ALREADY_EXISTS);
    ASSERT_EQ(VcIndicatorCache_InitUpdate(cache.Get(), MakeReport(records).Get()), OK);
    EXPECT_EQ(Found(cache.Get(), 1), "-999 none:, - - -");
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[2], 2), OK);
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[0], 0), OK);
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[0], 5), ERROR_PARAMETER);
    EXPECT_EQ(Found(cache.Get(), 1), "1 a0 again: a0 again 0=12 a0 0=10, 12 - -");
    EXPECT_EQ(cache->list->At(2).next, 0U);
}

// Adds the number that the receiver points to.
Status Increase(void* receiver, VcIndicatorSet* /*set*/, VcIndicatorSetOverwriteArgs* args)
{
    args->value += *static_cast<int*>(receiver);
    return OK;
}

Handle<VcIndicatorSet> MakeSet()
{
    Handle<VcIndicatorSet> set;
    EXPECT_EQ(VcIndicatorSet_Construct(set.Receive(), nullptr), OK);
    return set;
}

// What is in the set after a cycle in which it is configured.
std::vector<std::string> Cycle(
    VcIndicatorSet* set, const VcIndicatorCache* cache,
    const std::function<void(VcIndicatorSet*)>& configure = [](auto*) {})
{
    EXPECT_EQ(VcIndicatorSet_BeginUpdate(set), OK);
    EXPECT_EQ(VcIndicatorSet_Update(set, 0, cache), OK);
    configure(set);
    EXPECT_EQ(VcIndicatorSet_EndUpdate(set), OK);
    return ShowAll(VcIndicatorSet_Indicators(set)->Items());
}

TEST(VcIndicatorSetTest, Cycles)
{
    int hundred = 100;
    const Handle<VcIndicatorCache> cache = MakeCache(SampleReport());
    // What is in a new set after a cycle in which the source 0 is known.
    const auto cycle = [&cache](const std::function<void(VcIndicatorSet*)>& configure) {
        return Cycle(MakeSet().Get(), cache.Get(), configure);
    };
    const std::string n63 = " " + std::string(63, 'n');

    // One instance, under the name of the id's first one.
    const auto fullFilters = [](auto* set) {
        for (const auto& [id, instance] : {std::pair{3U, 5U}, {1U, 1U}, {1U, 0U}, {2U, 7U}, {9U, 0U}}) {
            VcIndicatorSet_AddFullFilter(set, 0, id, instance);
        }
    };
    EXPECT_THAT(cycle(fullFilters), ElementsAre("3/5=30" + n63, "1/1=11 a0", "1/0=10 a0"));

    // Ranges with both ends, in the order of the report; no source without a cache, no filter that was cleared.
    const auto ranges = [](auto* set) {
        VcIndicatorSet_AddIdFilter(set, 0, 1);
        VcIndicatorSet_ClearFilters(set);
        VcIndicatorSet_AddRangeFilter(set, 0, 2, 3);
        VcIndicatorSet_AddRangeFilter(set, 0, 3, 1);
        VcIndicatorSet_AddRangeFilter(set, -1, 0, highest);
        VcIndicatorSet_AddIdFilter(set, 0, 9);
    };
    EXPECT_THAT(cycle(ranges), ElementsAre("2/0=20 b", "3/5=30" + n63));

    // Added values, of which filters replace those with the same key.
    const auto values = [](auto* set) {
        const VcHealthIndicator long64 = Record(std::string(64, 'n'), 7, 0, 1);
        VcIndicatorSet_AddIdFilter(set, 0, 2);
        VcIndicatorSet_AddValue(set, "own", 2, 0, 1);
        VcIndicatorSet_AddIndicator(set, &long64);
        VcIndicatorSet_AddValue(set, std::string(70, 'n').c_str(), 8, 0, 3);
        VcIndicatorSet_AddValue(set, "later", 7, 1, 4);
        VcIndicatorSet_AddValue(set, "last", 7, 1, 5);
    };
    EXPECT_THAT(cycle(values), ElementsAre("2/0=20 b", "7/0=1" + n63, "8/0=3" + n63, "7/1=5 last"));

    // The last cache of a source.
    const Handle<VcIndicatorCache> other = MakeCache({Record("other", 1, 0, 1)});
    const auto twoCaches = [&](auto* set) {
        VcIndicatorSet_Update(set, 0, other.Get());
        VcIndicatorSet_AddIdFilter(set, 0, 1);
    };
    EXPECT_THAT(cycle(twoCaches), ElementsAre("1/0=1 other"));

    // They see what those before them made of the final value.
    const auto inTurn = [&](auto* set) {
        VcIndicatorSet_AddValue(set, "", 1, 0, 5);
        VcIndicatorSet_AddOverwrite(set, 1, 0, &Increase, &hundred);
        VcIndicatorSet_AddOverwrite(set, 1, 0, &Adjust, nullptr);
        VcIndicatorSet_AddIdFilter(set, 0, 1);
    };
    EXPECT_THAT(cycle(inTurn), ElementsAre("1/0=56 a0 again", "1/1=11 a1"));

    // They act on exactly their key until they are removed: of those that follow one another every second stays. One
    // that fails or throws changes nothing and stops nothing. One may remove itself, and the next moves into its place.
    const auto several = [&](auto* set) {
        VcIndicatorSet_AddRangeFilter(set, 0, 1, 3);
        for (const auto& [id, instance] : {std::pair{1U, 0U}, {1U, 2U}, {1U, 0U}, {1U, 0U}, {9U, 0U}, {1U, 1U}}) {
            VcIndicatorSet_AddOverwrite(set, id, instance, &Increase, &hundred);
        }
        VcIndicatorSet_RemoveOverwrite(set, 1);
        const auto refuse = [](void*, VcIndicatorSet*, VcIndicatorSetOverwriteArgs* args) {
            args->value = 7;
            return Status{0};
        };
        const auto fail = [](void*, VcIndicatorSet*, VcIndicatorSetOverwriteArgs* args) -> Status {
            args->value = 8;
            throw std::runtime_error("no");
        };
        const auto removeItself = [](void*, VcIndicatorSet* called, VcIndicatorSetOverwriteArgs* args) {
            args->value = 1;
            return VcIndicatorSet_RemoveOverwrite(called, args->key.id);
        };
        VcIndicatorSet_AddOverwrite(set, 2, 0, refuse, nullptr);
        VcIndicatorSet_AddOverwrite(set, 2, 0, fail, nullptr);
        VcIndicatorSet_AddOverwrite(set, 2, 1, fail, nullptr);
        VcIndicatorSet_AddOverwrite(set, 2, 0, &Increase, &hundred);
        VcIndicatorSet_AddOverwrite(set, 3, 5, removeItself, nullptr);
        VcIndicatorSet_AddOverwrite(set, 3, 5, &Increase, &hundred);
    };
    EXPECT_THAT(cycle(several), ElementsAre("1/0=112 a0 again", "1/1=11 a1", "2/0=120 b", "3/5=1" + n63));
}

TEST(VcIndicatorSetTest, WhatIsNotFoundChangesNoName)
{
    const Handle<VcIndicatorSet> set = MakeSet();
    const char* name = "unchanged";
    VcIndicatorSet_AddValue(set.Get(), "another instance", 1, 0, 3);
    EXPECT_EQ(VcIndicatorSet_GetName(set.Get(), 1, 2, &name), ERROR_NOT_FOUND);
    EXPECT_STREQ(name, "unchanged");
}

// Report after report, against a cache and a set that have seen nothing else.
TEST(VcIndicatorTest, NothingDependsOnWhatWasThereBefore)
{
    const auto makeSet = [] {
        Handle<VcIndicatorSet> set = MakeSet();
        VcIndicatorSet_AddRangeFilter(set.Get(), 0, 2, 9);
        VcIndicatorSet_AddIdFilter(set.Get(), 0, 1);
        return set;
    };
    Records values = SampleReport();  // The same keys, other names and values.
    for (VcHealthIndicator& record : values) {
        record = Record("other", record.id, record.instance, record.value + 500);
    }
    const Records instances = {Record("", 1, 1, 1), Record("", 1, 0, 2), Record("", 1, 5, 3), Record("", 2, 5, 4),
                               Record("", 3, 0, 5)};
    const Records turned(values.rbegin(), values.rend());
    const Records lastId = {values[0], values[1], values[2], values[3], Record("", 9, 5, 6)};
    const Records reports[] = {SampleReport(), values,      instances,   turned, lastId, {},
                               values,         {values[1]}, {values[3]}, turned};
    for (const std::size_t linked : {0U, 1U, 5U, 9U}) {  // How many items of each report are linked by hand before.
        const Handle<VcIndicatorCache> cache = MakeCache({});
        const Handle<VcIndicatorSet> set = makeSet();
        for (const Records& records : reports) {
            const Handle<Report> report = MakeReport(records);
            if (linked != 9) {
                ASSERT_EQ(VcIndicatorCache_InitUpdate(cache.Get(), report.Get()), OK);
                for (std::size_t i = 0; i < std::min(linked, records.size()); ++i) {
                    ASSERT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[i], i), OK);
                }
            }
            if (linked != 5) {
                ASSERT_EQ(VcIndicatorCache_Update(cache.Get(), report.Get()), OK);
            }
            const Handle<VcIndicatorCache> fresh = MakeCache(records);
            for (const std::uint32_t id : {1U, 2U, 3U, 9U}) {
                EXPECT_EQ(Found(cache.Get(), id), Found(fresh.Get(), id));
            }
            EXPECT_EQ(Cycle(set.Get(), cache.Get()), Cycle(makeSet().Get(), fresh.Get()));
        }
    }
}

Records LongReport(std::uint32_t count, std::uint32_t firstId)
{
    Records records;
    for (std::uint32_t i = 0; i < count; ++i) {
        records.push_back(Record("name", firstId + i / 2, i % 2, i));
    }
    return records;
}

TEST(VcIndicatorTest, EachFailingAllocationIsReportedAndRepairedByTheNextUpdate)
{
    VxTestSupport::NoObjects noObjects;
    VcIndicatorCache* cache = nullptr;
    VcIndicatorSet* set = nullptr;
    EXPECT_EQ(VcIndicatorCache_Construct(&cache, &noObjects), ERROR_PARAMETER);
    EXPECT_EQ(VcIndicatorSet_Construct(&set, &noObjects), ERROR_PARAMETER);

    const Handle<Report> small = MakeReport(LongReport(10, 1));
    const Handle<Report> large = MakeReport(LongReport(40, 3));
    VxTestSupport::SweepFailures([&](FailingAllocator& allocator) {
        // Runs an operation, and once more when it is the one that fails.
        const auto run = [&allocator](const auto& operation, const auto& expectFailed) {
            const bool failed = allocator.Failed();
            Status status = operation();
            if (status != OK) {
                EXPECT_EQ(status, ERROR_MEMORY);
                EXPECT_TRUE(!failed && allocator.Failed());
                expectFailed();
                status = operation();
            }
            ASSERT_EQ(status, OK);
        };
        const auto isEmpty = [&] {
            EXPECT_EQ(VcIndicatorCache_Count(cache), 0U);
            EXPECT_EQ(VcIndicatorCache_FirstById(cache, 3), nullptr);
        };
        run([&] { return VcIndicatorCache_Construct(&cache, &allocator); }, [&] { EXPECT_EQ(cache, nullptr); });
        run([&] { return VcIndicatorSet_Construct(&set, &allocator); }, [&] { EXPECT_EQ(set, nullptr); });
        run([&] { return VcIndicatorSet_AddRangeFilter(set, 0, 0, highest); },
            [&] { EXPECT_EQ(set->filters->Count(), 0U); });
        run([&] { return VcIndicatorSet_AddOverwrite(set, 3, 0, &Adjust, nullptr); },
            [&] { EXPECT_EQ(set->overwrites->Count(), 0U); });
        run([&] { return VcIndicatorCache_Update(cache, small.Get()); }, isEmpty);
        run([&] { return VcIndicatorCache_InitUpdate(cache, large.Get()); },
            [&] { EXPECT_EQ(ShowAll(cache->items->Items()), ShowAll(small->Items())); });
        run([&] { return VcIndicatorCache_Update(cache, large.Get()); }, isEmpty);
        VcIndicatorSet_BeginUpdate(set);
        run([&] { return VcIndicatorSet_Update(set, 0, cache); }, [] {});
        run([&] { return VcIndicatorSet_AddValue(set, "name", 3, 0, 1); },
            [&] {
                std::int64_t value = 0;
                EXPECT_EQ(VcIndicatorSet_GetValue(set, 3, 0, &value), ERROR_NOT_FOUND);
            });
        run([&] { return VcIndicatorSet_EndUpdate(set); },
            [&] {
                const auto* indicators = VcIndicatorSet_Indicators(set);
                EXPECT_EQ(set->keys.Count(), indicators->Count());
                EXPECT_GE(indicators->Count(), 8U);
            });
        EXPECT_EQ(ShowAll(VcIndicatorSet_Indicators(set)->Items()), ShowAll(large->Items()));
        EXPECT_EQ(Nucleo::Destroy(set), OK);
        EXPECT_EQ(Nucleo::Destroy(cache), OK);
    });
}

}  // namespace
