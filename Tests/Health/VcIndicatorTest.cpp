// Caches and sets of indicators: against a model written the slow way, and their peculiarities one by one.

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
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

constexpr std::uint32_t all = VcIndicatorFilter_AllInstances;
constexpr std::uint32_t highest = std::numeric_limits<std::uint32_t>::max();

// A name of 64 bytes has no end.
VcHealthIndicator Record(const std::string& name, std::uint32_t id, std::uint32_t instance, std::int64_t value)
{
    VcHealthIndicator record{{}, id, instance, value};
    name.copy(record.name, sizeof record.name);
    return record;
}

std::string NameOf(const VcHealthIndicator& record)
{
    return {record.name, strnlen(record.name, 63)};
}

std::string Shown(const VcHealthIndicator& record)
{
    return std::to_string(record.id) + "/" + std::to_string(record.instance) + "=" + std::to_string(record.value) +
           " " + NameOf(record);
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

// What the tests' overwrites do to a value: even ones are changed, odd ones refused.
std::int64_t Adjusted(std::int64_t value)
{
    return value % 2 == 0 ? value / 2 : value;
}

Status Adjust(void* /*receiver*/, VcIndicatorSet* set, VcIndicatorSetOverwriteArgs* args)
{
    std::int64_t current = 0;
    EXPECT_EQ(VcIndicatorSet_GetValue(set, args->key.id, args->key.instance, &current), OK);
    EXPECT_EQ(args->value, current);
    args->value = current % 2 == 0 ? current / 2 : -1;
    return current % 2 == 0 ? OK : ERROR_BUSY;
}

// The item that a lookup finds; null for none.
const VcHealthIndicator* FirstOf(const Records& records, std::uint32_t id, std::uint32_t instance)
{
    const auto found = std::find_if(records.begin(), records.end(), [&](const VcHealthIndicator& record) {
        return record.id == id && (instance == all || record.instance == instance);
    });
    return found != records.end() ? &*found : nullptr;
}

struct SetModel
{
    std::vector<VcIndicatorFilter> filters;
    std::vector<VcHealthId> overwrites;
    std::map<std::int32_t, Records> sources;
    Records content;

    void Insert(const VcHealthIndicator& added)
    {
        for (VcHealthIndicator& record : content) {
            if (record.id == added.id && record.instance == added.instance) {
                record = added;
                return;
            }
        }
        content.push_back(added);
    }

    void End()
    {
        for (const VcIndicatorFilter& filter : filters) {
            const Records& records = sources[filter.source];
            if (filter.kind == VcIndicatorFilterKind_Id && filter.instance != all) {
                if (const auto* found = FirstOf(records, filter.id, filter.instance)) {
                    Insert(Record(NameOf(*FirstOf(records, filter.id, all)), filter.id, filter.instance, found->value));
                }
                continue;
            }
            for (const VcHealthIndicator& record : records) {
                if (filter.kind == VcIndicatorFilterKind_Id
                        ? record.id == filter.id
                        : record.id >= filter.rangeFirst && record.id <= filter.rangeLast) {
                    Insert(record);
                }
            }
        }
        for (const VcHealthId& overwrite : overwrites) {
            for (VcHealthIndicator& record : content) {
                if (VcHealthId{record.id, record.instance} == overwrite) {
                    record.value = Adjusted(record.value);
                }
            }
        }
    }
};

class VcIndicatorModelTest : public testing::Test
{
protected:
    static constexpr std::uint32_t ids = 12;
    static constexpr std::uint32_t instances[] = {0, 1, 2, 40};

    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

    std::int64_t Value() { return static_cast<std::int64_t>(random_()); }

    VcHealthIndicator RandomRecord()
    {
        const std::string name(Below(65), static_cast<char>('a' + Below(26)));
        return Record(name, Below(ids), instances[Below(4)], Value());
    }

    // Mostly the same keys in the same order.
    void Change(Records& records)
    {
        for (VcHealthIndicator& record : records) {
            record.value = Value();
        }
        switch (Below(10)) {
            case 0:
                records.resize(Below(40), RandomRecord());
                break;
            case 1:
                if (!records.empty()) {
                    records[Below(static_cast<std::uint32_t>(records.size()))] = RandomRecord();
                }
                break;
            case 2:
                std::generate(records.begin(), records.end(), [this] { return RandomRecord(); });
                break;
            default:
                break;
        }
    }

    void Update(VcIndicatorCache* cache, const Records& records)
    {
        const Handle<Report> report = MakeReport(records);
        const std::uint32_t way = Below(8);
        if (way < 2) {  // In its two halves, of which the second one may stay undone.
            ASSERT_EQ(VcIndicatorCache_InitUpdate(cache, report.Get()), OK);
            for (std::size_t i = 0; i < records.size() / (1 + way); ++i) {
                ASSERT_EQ(VcIndicatorCache_InsertNew(cache, &records[i], i), OK);
            }
        }
        if (way != 0) {
            ASSERT_EQ(VcIndicatorCache_Update(cache, report.Get()), OK);
        }
    }

    static void ExpectSame(const VcIndicatorCache* cache, const Records& records)
    {
        ASSERT_EQ(VcIndicatorCache_Count(cache), records.size());
        const VcIndicatorListItem* item = nullptr;
        for (std::uint32_t id = 0; id <= ids; ++id) {
            item = VcIndicatorCache_FirstById(cache, id);
            const char* name = nullptr;
            const VcHealthIndicator* first = FirstOf(records, id, all);
            ASSERT_EQ(VcIndicatorCache_FindName(cache, id, &name), first != nullptr ? OK : ERROR_NOT_FOUND);
            ASSERT_EQ(name != nullptr ? name : "", first != nullptr ? NameOf(*first) : "");
            for (std::size_t i = 0; i < records.size(); ++i) {
                if (records[i].id == id) {
                    ASSERT_NE(item, nullptr);
                    ASSERT_EQ(item->index, i);
                    ASSERT_EQ(VcIndicatorCache_ItemName(cache, item), NameOf(records[i]));
                    ASSERT_EQ(VcIndicatorCache_ItemInstance(cache, item), records[i].instance);
                    ASSERT_EQ(VcIndicatorCache_ItemValue(cache, item), records[i].value);
                    ASSERT_EQ(Shown(*VcIndicatorCache_At(cache, i)), Shown(records[i]));
                    item = VcIndicatorCache_NextById(cache, item);
                }
            }
            ASSERT_EQ(item, nullptr);
        }
        const std::uint32_t summed[] = {3, 1, ids, 7, 3};
        for (const std::uint32_t instance : instances) {
            std::uint64_t sum = 0;
            for (const std::uint32_t id : summed) {
                const VcHealthIndicator* found = FirstOf(records, id, instance);
                std::int64_t value = 0;
                ASSERT_EQ(VcIndicatorCache_Find(cache, id, instance, &value), found != nullptr ? OK : ERROR_NOT_FOUND);
                ASSERT_EQ(value, found != nullptr ? found->value : 0);
                sum += static_cast<std::uint64_t>(value);
            }
            ASSERT_EQ(VcIndicatorCache_Aggregate(cache, summed, instance, 5), static_cast<std::int64_t>(sum));
        }
        ASSERT_EQ(VcIndicatorCache_Aggregate(cache, summed, 0, 0), 0);
    }

    void Configure(VcIndicatorSet* set, SetModel& model)
    {
        const auto source = static_cast<std::int32_t>(Below(4)) * 100;
        const std::uint32_t id = Below(ids);
        const std::uint32_t instance = instances[Below(4)];
        switch (Below(6)) {
            case 0:
                model.filters.clear();
                ASSERT_EQ(VcIndicatorSet_ClearFilters(set), OK);
                break;
            case 1:
                model.filters.push_back({source, VcIndicatorFilterKind_Range, 0, 0, id, Below(ids)});
                ASSERT_EQ(VcIndicatorSet_AddRangeFilter(set, source, id, model.filters.back().rangeLast), OK);
                break;
            case 2:
                model.filters.push_back({source, VcIndicatorFilterKind_Id, id, all, 0, 0});
                ASSERT_EQ(VcIndicatorSet_AddIdFilter(set, source, id), OK);
                break;
            case 3:
                model.filters.push_back({source, VcIndicatorFilterKind_Id, id, instance, 0, 0});
                ASSERT_EQ(VcIndicatorSet_AddFullFilter(set, source, id, instance), OK);
                break;
            case 4:
                model.overwrites.push_back({id, instance});
                ASSERT_EQ(VcIndicatorSet_AddOverwrite(set, id, instance, &Adjust, nullptr), OK);
                break;
            default:
                for (std::size_t i = 0; i < model.overwrites.size(); ++i) {
                    if (model.overwrites[i].id == id) {
                        model.overwrites.erase(model.overwrites.begin() + static_cast<std::ptrdiff_t>(i));
                    }
                }
                ASSERT_EQ(VcIndicatorSet_RemoveOverwrite(set, id), OK);
                break;
        }
    }

    static void ExpectSame(const VcIndicatorSet* set, const Records& content)
    {
        ASSERT_EQ(ShowAll(VcIndicatorSet_Indicators(set)->Items()), ShowAll(content));
        for (std::uint32_t id = 0; id <= ids; ++id) {
            for (const std::uint32_t instance : instances) {
                const VcHealthIndicator* found = FirstOf(content, id, instance);
                std::int64_t value = 5;
                const char* name = "unchanged";
                const Status expected = found != nullptr ? OK : ERROR_NOT_FOUND;
                ASSERT_EQ(VcIndicatorSet_GetValue(set, id, instance, &value), expected);
                ASSERT_EQ(VcIndicatorSet_GetName(set, id, instance, &name), expected);
                ASSERT_EQ(value, found != nullptr ? found->value : 5);
                ASSERT_EQ(name, found != nullptr ? NameOf(*found) : "unchanged");
            }
        }
    }

private:
    std::mt19937_64 random_{11};
};

TEST_F(VcIndicatorModelTest, HoldsWhatTheModelHolds)
{
    Handle<VcIndicatorSet> set;
    ASSERT_EQ(VcIndicatorSet_Construct(set.Receive(), nullptr), OK);
    SetModel model;
    const Handle<VcIndicatorCache> caches[] = {MakeCache({}), MakeCache({}), MakeCache({})};
    Records reports[3];
    Records direct;
    for (int step = 0; step < 1000; ++step) {
        SCOPED_TRACE(step);
        const std::uint32_t changed = Below(3);
        Change(reports[changed]);
        ASSERT_NO_FATAL_FAILURE(Update(caches[changed].Get(), reports[changed]));
        ASSERT_NO_FATAL_FAILURE(ExpectSame(caches[changed].Get(), reports[changed]));
        if (Below(10) == 0) {
            ASSERT_NO_FATAL_FAILURE(Configure(set.Get(), model));
        }
        if (Below(3) == 0) {
            Change(direct);
        }

        ASSERT_EQ(VcIndicatorSet_BeginUpdate(set.Get()), OK);
        model.sources.clear();
        model.content.clear();
        for (std::uint32_t i = 0; i < 3; ++i) {
            if (Below(20) != 0) {
                const auto source = static_cast<std::int32_t>(i) * 100;
                model.sources[source] = reports[i];
                ASSERT_EQ(VcIndicatorSet_Update(set.Get(), source, caches[i].Get()), OK);
            }
        }
        for (const VcHealthIndicator& record : direct) {
            model.Insert(record);
            const std::string name(record.name, strnlen(record.name, sizeof record.name));
            ASSERT_EQ(record.value % 2 == 0
                          ? VcIndicatorSet_AddIndicator(set.Get(), &record)
                          : VcIndicatorSet_AddValue(set.Get(), name.c_str(), record.id, record.instance, record.value),
                      OK);
        }
        ASSERT_NO_FATAL_FAILURE(ExpectSame(set.Get(), model.content));
        model.End();
        ASSERT_EQ(VcIndicatorSet_EndUpdate(set.Get()), OK);
        ASSERT_NO_FATAL_FAILURE(ExpectSame(set.Get(), model.content));
    }
}

Records SampleReport()
{
    return {Record("a0", 1, 0, 10), Record("a1", 1, 1, 11), Record("a0 again", 1, 0, 12), Record("b", 2, 0, 20),
            Record(std::string(64, 'n'), 3, 5, 30)};
}

// Adds the number that the receiver points to.
Status Increase(void* receiver, VcIndicatorSet* /*set*/, VcIndicatorSetOverwriteArgs* args)
{
    args->value += *static_cast<int*>(receiver);
    return OK;
}

// What the model does not have.
TEST(VcIndicatorSetTest, Peculiarities)
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
        Handle<VcIndicatorSet> set;
        ASSERT_EQ(VcIndicatorSet_Construct(set.Receive(), nullptr), OK);
        EXPECT_EQ(VcIndicatorSet_BeginUpdate(set.Get()), OK);
        EXPECT_EQ(VcIndicatorSet_Update(set.Get(), 0, cache.Get()), OK);
        test.configure(set.Get());
        EXPECT_EQ(VcIndicatorSet_EndUpdate(set.Get()), OK);
        EXPECT_EQ(ShowAll(VcIndicatorSet_Indicators(set.Get())->Items()), test.expected);
    }
}

TEST(VcIndicatorCacheTest, ItemsAreLinkedOnceAndFoundThen)
{
    const Records records = SampleReport();
    const Handle<VcIndicatorCache> cache = MakeCache(records);
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[0], 0), ERROR_ALREADY_EXISTS);
    ASSERT_EQ(VcIndicatorCache_InitUpdate(cache.Get(), MakeReport(records).Get()), OK);
    std::int64_t value = 5;
    EXPECT_EQ(VcIndicatorCache_Find(cache.Get(), 1, 0, &value), ERROR_NOT_FOUND);
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[2], 2), OK);
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[0], 0), OK);
    EXPECT_EQ(VcIndicatorCache_InsertNew(cache.Get(), &records[0], 5), ERROR_PARAMETER);
    EXPECT_EQ(VcIndicatorCache_NextById(cache.Get(), VcIndicatorCache_FirstById(cache.Get(), 1)), &cache->list->At(0));
    EXPECT_EQ(VcIndicatorCache_NextById(cache.Get(), nullptr), nullptr);
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

TEST(VcIndicatorTest, NoMemoryIsTakenOnceTheLargestReportWasSeen)
{
    FailingAllocator allocator;
    Handle<VcIndicatorCache> cache;
    Handle<VcIndicatorSet> set;
    ASSERT_EQ(VcIndicatorCache_Construct(cache.Receive(), &allocator), OK);
    ASSERT_EQ(VcIndicatorSet_Construct(set.Receive(), &allocator), OK);
    ASSERT_EQ(VcIndicatorSet_AddRangeFilter(set.Get(), 100, 0, highest), OK);
    const Handle<Report> reports[] = {MakeReport(LongReport(200, 1)), MakeReport(LongReport(200, 500)),
                                      MakeReport(LongReport(30, 1))};
    int before = 0;
    for (std::size_t cycle = 0; cycle < 12; ++cycle) {
        ASSERT_EQ(VcIndicatorCache_Update(cache.Get(), reports[cycle / 2 % 3].Get()), OK);
        VcIndicatorSet_BeginUpdate(set.Get());
        ASSERT_EQ(VcIndicatorSet_Update(set.Get(), 100, cache.Get()), OK);
        ASSERT_EQ(VcIndicatorSet_AddValue(set.Get(), "name", 9999, 0, 1), OK);
        ASSERT_EQ(VcIndicatorSet_EndUpdate(set.Get()), OK);
        before = cycle == 0 ? allocator.Allocations() : before;
    }
    EXPECT_EQ(allocator.Allocations(), before);
}

}  // namespace
