// Metric lists of a node's report: gaps, what is missing, and what listeners and clients see.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <Tests/Health/Indicators.h>
#include <VxCommon/Metrics/CommonMetrics.h>
#include <VxCommon/Metrics/MetricsJsonSerializer.h>
#include <VxTestSupport/Thrown.h>

using namespace Nucleo::Statuses;
using nlohmann::json;
using VxCommon::CommonMetrics;
using VxCommon::MetricsJsonSerializer;
using VxCommonTest::MakeCache;

namespace
{

template <class T>
using Array = Vx::Properties::Array<T>;

TEST(CommonMetricsTest, CoresAreNumbersWithoutASign)
{
    Array<CommonMetrics::CpuCoreMetrics> cores;
    int changes = 0;
    const auto changed = cores.ChangedEvent().Subscribe([&] { ++changes; });
    std::uint64_t largest = 5;
    std::uint64_t average = 5;
    CommonMetrics::PopulateCpuCoreMetricsList(MakeCache({{{}, 2052, 1, 7}}).Get(), cores, &largest, &average);
    EXPECT_EQ(cores.Count(), 0U);
    EXPECT_EQ(largest, 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(average, 0xFFFFFFFFFFFFFFFF);

    const auto cache = MakeCache({{{}, 2052, 2, 40}, {{}, 2052, 0, 7}, {{}, 2052, 1, 9}, {{}, 2052, 4, 99}});
    CommonMetrics::PopulateCpuCoreMetricsList(cache.Get(), cores, &largest, &average);
    EXPECT_EQ(MetricsJsonSerializer::Serialize(cores), json::parse(R"([{"value":7},{"value":9},{"value":40}])"));
    EXPECT_EQ(largest, 40U);
    EXPECT_EQ(average, 18U);
    CommonMetrics::PopulateCpuCoreMetricsList(cache.Get(), cores, nullptr, nullptr);
    EXPECT_EQ(changes, 1);

    CommonMetrics::PopulateCpuCoreMetricsList(MakeCache({{{}, 2052, 0, -1}, {{}, 2052, 1, 4}}).Get(), cores, &largest,
                                              &average);
    EXPECT_EQ(cores.At(0).value.Get(), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(largest, 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(average, 1U);  // The sum wraps.
    EXPECT_EQ(VxTestSupport::StatusThrown([&] { cores.At(2); }), ERROR_NOT_FOUND);
}

TEST(CommonMetricsTest, InterfacesAndVolumesEndAtTheFirstGap)
{
    constexpr std::int64_t large = std::int64_t{1} << 32;
    const auto cache = MakeCache({{{}, 2034, 2, 1},
                                  {{}, 2034, 0, large + 70'000},
                                  {{}, 2009, 0, 1'000'000'000},
                                  {{}, 2077, 0, 1},
                                  {{}, 2076, 0, 2},
                                  {{}, 2079, 0, large},
                                  {{}, 2078, 0, 4},
                                  {{}, 2005, 0, 10},
                                  {{}, 2006, 0, 20},
                                  {{}, 2005, 1, 30},
                                  {{}, 2006, 2, 50}});
    Array<CommonMetrics::NetworkIfMetrics> interfaces;
    Array<CommonMetrics::StorageVolumeMetrics> volumes;
    int changes = 0;
    const auto changed = volumes.ChangedEvent().Subscribe([&] { ++changes; });
    for (const int expected : {2, 5}) {  // The second time the array is emptied first.
        CommonMetrics::PopulateNetworkIfMetricsList(cache.Get(), interfaces);
        CommonMetrics::PopulateStorageVolumeMetricsList(cache.Get(), volumes);
        EXPECT_EQ(changes, expected);
    }
    EXPECT_EQ(MetricsJsonSerializer::Serialize(interfaces),
              json::parse(R"([{"linkCapacity":1000000000,"linkStatus":70000,"rxRate":1,"txRate":2,"rxBytes":4294967296,
                               "txBytes":4}])"));
    EXPECT_EQ(MetricsJsonSerializer::Serialize(volumes),
              json::parse(R"([{"used":10,"capacity":20},{"used":30,"capacity":0}])"));

    const json schema = MetricsJsonSerializer::SerializeSchema(interfaces);
    EXPECT_EQ(schema["type"], "array");
    std::vector<std::string> names(6);
    for (const auto& [name, property] : schema["items"]["properties"].items()) {
        EXPECT_EQ(property["type"], "integer");
        names.at(property["sortOrder"].get<std::size_t>() / 100) = name;
    }
    EXPECT_THAT(names, testing::ElementsAre("linkCapacity", "linkStatus", "rxRate", "txRate", "rxBytes", "txBytes"));
}

}  // namespace
