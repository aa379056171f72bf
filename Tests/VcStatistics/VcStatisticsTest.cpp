#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include <VxCommon/VcStatistics/VcStatistics.h>
#include <VxTestSupport/LogCapture.h>

namespace VxCommon
{
namespace
{

using Samples = std::vector<std::uint64_t>;

/// Adds samples of all sizes, one in four beyond 32 bits, and goes over the window each time.
void Compare(VcStatistics& statistics, Samples& samples, std::size_t count)
{
    static std::mt19937_64 random(1);
    for (const std::size_t end = samples.size() + count; samples.size() < end;) {
        const std::uint64_t sample = random() >> (samples.size() % 4 == 0 ? 20 : 32 + samples.size() % 32);
        samples.push_back(std::min<std::uint64_t>(sample, 0xFFFFFFFF));
        const std::size_t window = std::min<std::size_t>(samples.size(), 50);
        statistics.Add(sample);
        ASSERT_EQ(statistics.SimpleMovingAverage(),
                  std::accumulate(samples.rbegin(), samples.rbegin() + static_cast<std::ptrdiff_t>(window),
                                  std::uint64_t{0}) /
                      window);
        const std::uint64_t average = statistics.SimpleMovingAverage();
        statistics.UpdateStatistics();
        ASSERT_EQ(statistics.SimpleMovingAverage(), average);
    }
}

TEST(VcStatisticsTest, AveragesTheLastFiftySamplesAndCopiesGoOnByThemselves)
{
    VcStatistics source;
    for (const std::size_t before : {0u, 30u, 50u, 175u}) {
        source.Reset();
        source.CalculateAverage();
        EXPECT_EQ(source.SimpleMovingAverage(), 0u);
        Samples samples;
        Compare(source, samples, before);
        const std::uint64_t average = source.SimpleMovingAverage();
        VcStatistics copied(source);
        VcStatistics moved(std::move(source));
        VcStatistics assigned;
        assigned.Add(7);
        assigned = std::move(copied);
        for (VcStatistics* each : {&moved, &assigned, &source, &copied}) {  // The sources keep what they have.
            EXPECT_EQ(each->SimpleMovingAverage(), average);
            Samples own = samples;
            Compare(*each, own, 60);
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
