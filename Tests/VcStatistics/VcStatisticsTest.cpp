#include <array>
#include <cstring>
#include <vector>

#include <gmock/gmock.h>

#include <VxCommon/VcStatistics/VcStatistics.h>
#include <VxTestSupport/LogCapture.h>

namespace VxCommon
{
namespace
{

/// Adds `value`, `value` + 1, ... `count` times.
void Add(VcStatistics& statistics, std::uint64_t value, std::uint64_t count)
{
    for (std::uint64_t i = 0; i < count; ++i) {
        statistics.Add(value++);
    }
}

TEST(VcStatisticsTest, AveragesTheLastFiftySamplesAndCopiesGoOnByThemselves)
{
    // Of so many samples from 1000 on, then with one of 2^40, which counts as 2^32 - 1, or with 0 to 19 more.
    const std::array<std::uint64_t, 4> cases[] = {{0, 0, 4294967295, 9},     {30, 1014, 138548313, 612},
                                                  {49, 1024, 85900349, 623}, {50, 1024, 85900350, 624},
                                                  {51, 1025, 85900351, 625}, {175, 1149, 85900472, 699}};
    for (const auto& [samples, average, afterOne, afterTwenty] : cases) {
        SCOPED_TRACE(samples);
        VcStatistics source;
        Add(source, 7, 60);
        source.Reset();
        source.CalculateAverage();
        EXPECT_EQ(source.SimpleMovingAverage(), 0U);
        Add(source, 1000, samples);
        source.UpdateStatistics();
        VcStatistics copied(source);
        VcStatistics moved(std::move(source));
        VcStatistics assigned;
        assigned.Add(7);
        assigned = std::move(copied);
        for (VcStatistics* each : {&moved, &assigned, &source, &copied}) {  // The sources keep what they have.
            EXPECT_EQ(each->SimpleMovingAverage(), average);
            VcStatistics one(*each);
            one.Add(std::uint64_t{1} << 40);
            EXPECT_EQ(one.SimpleMovingAverage(), afterOne);
            Add(*each, 0, 20);
            EXPECT_EQ(each->SimpleMovingAverage(), afterTwenty);
            Add(*each, 1, 60);
            EXPECT_EQ(each->SimpleMovingAverage(), 35U);
        }
    }
}

TEST(VcStatisticsTest, ADamagedSumIsReportedAndRepaired)
{
    VcStatistics statistics;
    for (int i = 0; i < 52; ++i) {
        statistics.Add(100);
    }
    static_assert(std::is_standard_layout_v<VcStatistics>);
    constexpr std::size_t offsetOfSum = 2 * sizeof(std::size_t) + sizeof(std::vector<std::uint64_t>);
    const std::uint64_t damaged = 99;
    std::memcpy(reinterpret_cast<char*>(&statistics) + offsetOfSum, &damaged, sizeof damaged);
    VxTestSupport::ScopedLogCapture log;
    statistics.Add(500);
    EXPECT_EQ(statistics.SimpleMovingAverage(), 500u / 50);
    EXPECT_THAT(log.Texts("VcStatistics/VcStatistics"),
                testing::ElementsAre("W underflow detected in VcStatistics at index:2"));
}

}  // namespace
}  // namespace VxCommon
