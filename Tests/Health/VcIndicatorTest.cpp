// Caches and sets of indicators: what each operation does, and that nothing depends on what was there before.

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <VxCommon/Health/VcIndicatorCache.h>
#include <VxCommon/Health/VcIndicatorSet.h>
#include <VxTestSupport/AllocationSweep.h>

using namespace Nucleo::Statuses;
using Nucleo::Handle;
using Nucleo::Status;
using VxTestSupport::FailingAllocator;

namespace
{

using Records = std::vector<VcHealthIndicator>;
using Report = Nucleo::ArrayList<VcHealthIndicator>;

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

Handle<Report> MakeReport(const Records& records)
{
    Handle<Report> report;
    EXPECT_EQ(Report::Make(report.Receive(), records.size(), nullptr), OK);
    for (const VcHealthIndicator& record : records) {
        EXPECT_EQ(report->Append(record), OK);
    }
    return report;
}

Handle<VcIndicatorCache> MakeCache(const Records& records)
{
    Handle<VcIndicatorCache> cache;
    EXPECT_EQ(VcIndicatorCache_Construct(cache.Receive(), nullptr), OK);
    EXPECT_EQ(VcIndicatorCache_Update(cache.Get(), MakeReport(records).Get()), OK);
    return cache;
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
    EXPECT_EQ(VcIndicatorCache_Aggregate(cache.Get(), ids, 0, 0), 0);
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

TEST(VcIndicatorSetTest, Cycles)
{
    static int hundred = 100;
    const Handle<VcIndicatorCache> cache = MakeCache(SampleReport());
    const Handle<VcIndicatorCache> other = MakeCache({Record("other", 1, 0, 1)});
    struct Case
    {
        const char* what;
        std::function<void(VcIndicatorSet* set)> configure;  // Within a cycle in which the source 0 is known.
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {"all instances of an id, the last of a key at the place of its first",
         [](auto* set) { VcIndicatorSet_AddIdFilter(set, 0, 1); },
         {"1/0=12 a0 again", "1/1=11 a1"}},
        {"one instance, under the name of the id's first one",
         [](auto* set) {
             for (const auto& [id, instance] : {std::pair{3U, 5U}, {1U, 1U}, {1U, 0U}, {2U, 7U}, {9U, 0U}}) {
                 VcIndicatorSet_AddFullFilter(set, 0, id, instance);
             }
         },
         {"3/5=30 " + std::string(63, 'n'), "1/1=11 a0", "1/0=10 a0"}},
        {"ranges with both ends, in the order of the report",
         [](auto* set) {
             VcIndicatorSet_AddRangeFilter(set, 0, 2, 3);
             VcIndicatorSet_AddRangeFilter(set, 0, 3, 1);
         },
         {"2/0=20 b", "3/5=30 " + std::string(63, 'n')}},
        {"nothing of a source without a cache, of an absent id, of filters that were cleared",
         [](auto* set) {
             VcIndicatorSet_AddIdFilter(set, 0, 2);
             VcIndicatorSet_ClearFilters(set);
             VcIndicatorSet_AddIdFilter(set, 1, 1);
             VcIndicatorSet_AddRangeFilter(set, -1, 0, highest);
             VcIndicatorSet_AddIdFilter(set, 0, 9);
         },
         {}},
        {"added values, of which filters replace those with the same key",
         [](auto* set) {
             const VcHealthIndicator long64 = Record(std::string(64, 'r'), 7, 0, 1);
             VcIndicatorSet_AddIdFilter(set, 0, 2);
             VcIndicatorSet_AddValue(set, "own", 2, 0, 1);
             VcIndicatorSet_AddIndicator(set, &long64);
             VcIndicatorSet_AddValue(set, std::string(70, 'v').c_str(), 8, 0, 3);
             VcIndicatorSet_AddValue(set, "later", 7, 1, 4);
             VcIndicatorSet_AddValue(set, "last", 7, 1, 5);
         },
         {"2/0=20 b", "7/0=1 " + std::string(63, 'r'), "8/0=3 " + std::string(63, 'v'), "7/1=5 last"}},
        {"overwrites of exactly their key, until they are removed",
         [](auto* set) {
             VcIndicatorSet_AddIdFilter(set, 0, 1);
             for (const std::uint32_t instance : {0U, 2U, 0U, 0U}) {
                 VcIndicatorSet_AddOverwrite(set, 1, instance, &Increase, &hundred);
             }
             VcIndicatorSet_AddOverwrite(set, 9, 0, &Increase, nullptr);
             VcIndicatorSet_AddOverwrite(set, 1, 1, &Increase, &hundred);
             VcIndicatorSet_RemoveOverwrite(set, 1);  // Of those that follow one another every second stays.
         },
         {"1/0=112 a0 again", "1/1=11 a1"}},
        {"the last cache of a source counts",
         [&](auto* set) {
             VcIndicatorSet_Update(set, 0, other.Get());
             VcIndicatorSet_AddIdFilter(set, 0, 1);
         },
         {"1/0=1 other"}},
        {"overwrites see what those before them made of the final value",
         [](auto* set) {
             VcIndicatorSet_AddValue(set, "", 1, 0, 5);
             VcIndicatorSet_AddOverwrite(set, 1, 0, &Increase, &hundred);
             VcIndicatorSet_AddOverwrite(set, 1, 0, &Adjust, nullptr);
             VcIndicatorSet_AddIdFilter(set, 0, 1);
         },
         {"1/0=56 a0 again", "1/1=11 a1"}},
        {"one that fails or throws changes nothing and stops nothing",
         [](auto* set) {
             VcIndicatorSet_AddIdFilter(set, 0, 2);
             const auto refuse = [](void*, VcIndicatorSet*, VcIndicatorSetOverwriteArgs* args) {
                 args->value = 7;
                 return Status{0};
             };
             const auto fail = [](void*, VcIndicatorSet*, VcIndicatorSetOverwriteArgs* args) -> Status {
                 args->value = 8;
                 throw std::runtime_error("no");
             };
             VcIndicatorSet_AddOverwrite(set, 2, 0, refuse, nullptr);
             VcIndicatorSet_AddOverwrite(set, 2, 0, fail, nullptr);
             VcIndicatorSet_AddOverwrite(set, 2, 1, fail, nullptr);
             VcIndicatorSet_AddOverwrite(set, 2, 0, &Increase, &hundred);
         },
         {"2/0=120 b"}},
        {"an overwrite may remove itself, and the next one moves into its place",
         [](auto* set) {
             const auto once = [](void*, VcIndicatorSet* called, VcIndicatorSetOverwriteArgs* args) {
                 args->value = 1;
                 return VcIndicatorSet_RemoveOverwrite(called, args->key.id);
             };
             VcIndicatorSet_AddIdFilter(set, 0, 2);
             VcIndicatorSet_AddOverwrite(set, 2, 0, once, nullptr);
             VcIndicatorSet_AddOverwrite(set, 2, 0, &Increase, &hundred);
         },
         {"2/0=1 b"}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const Handle<VcIndicatorSet> set = MakeSet();
        EXPECT_EQ(VcIndicatorSet_BeginUpdate(set.Get()), OK);
        EXPECT_EQ(VcIndicatorSet_Update(set.Get(), 0, cache.Get()), OK);
        test.configure(set.Get());
        EXPECT_EQ(VcIndicatorSet_EndUpdate(set.Get()), OK);
        EXPECT_EQ(ShowAll(VcIndicatorSet_Indicators(set.Get())->Items()), test.expected);
    }
}

TEST(VcIndicatorSetTest, AnIndicatorIsFoundByItsKeyUntilTheNextCycle)
{
    const Handle<VcIndicatorSet> set = MakeSet();
    for (const bool here : {true, false, true}) {
        VcIndicatorSet_BeginUpdate(set.Get());
        if (here) {
            VcIndicatorSet_AddValue(set.Get(), "a", 1, 2, 3);
        }
        VcIndicatorSet_EndUpdate(set.Get());
        std::int64_t value = 5;
        const char* name = "unchanged";
        EXPECT_EQ(VcIndicatorSet_GetValue(set.Get(), 1, 2, &value), here ? OK : ERROR_NOT_FOUND);
        EXPECT_EQ(VcIndicatorSet_GetName(set.Get(), 1, 2, &name), here ? OK : ERROR_NOT_FOUND);
        EXPECT_EQ(VcIndicatorSet_GetValue(set.Get(), 2, 1, &value), ERROR_NOT_FOUND);
        EXPECT_EQ(value, here ? 3 : 5);
        EXPECT_STREQ(name, here ? "a" : "unchanged");
    }
}

// Reports that come and go as they like, against caches and a set that have seen nothing else.
TEST(VcIndicatorTest, NothingDependsOnWhatWasThereBefore)
{
    std::mt19937 random{11};
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    const auto make = [&below] { return Record("n" + std::to_string(below(5)), below(12), below(3), below(1000)); };
    const Handle<VcIndicatorCache> caches[] = {MakeCache({}), MakeCache({})};
    Records reports[2];
    const auto cycle = [](VcIndicatorSet* set, const VcIndicatorCache* first, const VcIndicatorCache* second,
                          const Records& direct) {
        VcIndicatorSet_BeginUpdate(set);
        VcIndicatorSet_Update(set, 0, first);
        if (second != nullptr) {
            VcIndicatorSet_Update(set, 100, second);
        }
        for (const VcHealthIndicator& record : direct) {
            VcIndicatorSet_AddIndicator(set, &record);
        }
        EXPECT_EQ(VcIndicatorSet_EndUpdate(set), OK);
        return ShowAll(VcIndicatorSet_Indicators(set)->Items());
    };
    const auto makeSet = [] {
        Handle<VcIndicatorSet> set = MakeSet();
        VcIndicatorSet_AddRangeFilter(set.Get(), 100, 3, 9);
        VcIndicatorSet_AddIdFilter(set.Get(), 0, 4);
        VcIndicatorSet_AddFullFilter(set.Get(), 0, 2, 1);
        VcIndicatorSet_AddOverwrite(set.Get(), 4, 1, &Adjust, nullptr);
        return set;
    };
    const Handle<VcIndicatorSet> set = makeSet();
    for (int step = 0; step < 500; ++step) {
        SCOPED_TRACE(step);
        Records& records = reports[step % 2];
        for (VcHealthIndicator& record : records) {  // Mostly the same keys in the same order.
            record.value = below(1000);
        }
        if (const std::uint32_t change = below(6); change == 0) {
            records.resize(below(30), make());
        } else if (change == 1 && !records.empty()) {
            records[below(static_cast<std::uint32_t>(records.size()))] = make();
        } else if (change == 2) {
            std::generate(records.begin(), records.end(), make);
        }
        const Handle<Report> report = MakeReport(records);
        VcIndicatorCache* cache = caches[step % 2].Get();
        const std::uint32_t way = below(6);
        if (way < 2) {  // In its two halves, of which the second one may stay undone.
            ASSERT_EQ(VcIndicatorCache_InitUpdate(cache, report.Get()), OK);
            for (std::size_t i = 0; i < records.size() / (1 + way); ++i) {
                ASSERT_EQ(VcIndicatorCache_InsertNew(cache, &records[i], i), OK);
            }
        }
        if (way != 0) {
            ASSERT_EQ(VcIndicatorCache_Update(cache, report.Get()), OK);
        }
        const Handle<VcIndicatorCache> fresh[] = {MakeCache(reports[0]), MakeCache(reports[1])};
        for (std::uint32_t id = 0; id <= 12; ++id) {
            ASSERT_EQ(Found(cache, id), Found(fresh[step % 2].Get(), id));
        }
        const Records direct(below(3), make());
        const bool both = below(10) != 0;
        ASSERT_EQ(cycle(set.Get(), caches[0].Get(), both ? caches[1].Get() : nullptr, direct),
                  cycle(makeSet().Get(), fresh[0].Get(), both ? fresh[1].Get() : nullptr, direct));
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
