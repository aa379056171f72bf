#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <VxCommon/VcStatistics/VcDistribution.h>

using namespace Nucleo::Statuses;

namespace
{

constexpr double Largest = std::numeric_limits<double>::max();

VcDistribution Of(const std::vector<double>& samples)
{
    VcDistribution distribution = {};
    EXPECT_EQ(VcDistribution_Reset(&distribution), OK);
    for (const double sample : samples) {
        EXPECT_EQ(VcDistribution_AddSample(&distribution, sample), OK);
    }
    return distribution;
}

VcDistributionStatistics StatisticsOf(const VcDistribution& distribution)
{
    VcDistributionStatistics statistics = {};
    EXPECT_EQ(VcDistribution_Statistics(&distribution, &statistics), OK);
    return statistics;
}

TEST(VcDistributionTest, AgreesWithAPlainRecomputation)
{
    std::mt19937_64 random(1);
    std::normal_distribution<double> normal(20, 300);
    for (const std::size_t count : {2u, 3u, 10u, 1000u}) {
        std::vector<double> samples(count);
        std::generate(samples.begin(), samples.end(), [&] { return normal(random); });
        const VcDistributionStatistics statistics = StatisticsOf(Of(samples));
        const auto [min, max] = std::minmax_element(samples.begin(), samples.end());
        const auto n = static_cast<double>(count);
        const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) / n;
        double squares = 0;
        for (const double sample : samples) {
            squares += (sample - mean) * (sample - mean);
        }
        EXPECT_EQ(Of(samples).last, samples.back());
        EXPECT_EQ(statistics.count, count);
        EXPECT_EQ(statistics.min, *min);
        EXPECT_EQ(statistics.max, *max);
        EXPECT_EQ(statistics.range, *max - *min);
        EXPECT_DOUBLE_EQ(statistics.mean, mean);
        EXPECT_NEAR(statistics.variance, squares / (n - 1), 1e-9 * squares);
        EXPECT_DOUBLE_EQ(statistics.stdDev, std::sqrt(statistics.variance));
    }
}

TEST(VcDistributionTest, EdgesOfTheNumbers)
{
    // Squares that round up and down: a fused operation would leave a difference.
    for (const double sample : {0.0, 0.1, 0.3, -1.1, 1e-3, 12345.678, 1e300, 5e-324}) {
        const VcDistributionStatistics one = StatisticsOf(Of({sample}));
        EXPECT_EQ(one.mean, sample);
        EXPECT_TRUE(std::isnan(one.variance)) << sample;
        EXPECT_EQ(one.stdDev, 0);
    }
    const VcDistributionStatistics rounded = StatisticsOf(Of({0.7, 0.7, 0.7, 0.7, 0.7}));
    EXPECT_LT(rounded.variance, 0);
    EXPECT_EQ(rounded.stdDev, 0);
    const VcDistribution spoilt = Of({3, std::nan(""), -5});
    EXPECT_EQ(spoilt.range, 8);
    EXPECT_TRUE(std::isnan(spoilt.sum));
}

TEST(VcDistributionTest, ResetsNamesAndNothing)
{
    VcDistribution distribution = Of({4, 2, 3});
    std::memset(distribution.name, 'x', sizeof distribution.name);
    for (const std::string name : {"123456789012345", "1234567890123456", "", "kept"}) {
        EXPECT_EQ(VcDistribution_SetName(&distribution, name.c_str()), OK);
        std::string expected = name.substr(0, 15);
        expected.resize(16);
        EXPECT_EQ(std::string(distribution.name, 16), expected) << "nothing of the name before is left";
    }
    EXPECT_EQ(VcDistribution_Statistics(&distribution, nullptr), 0);

    const auto expect = [&distribution](const std::vector<double>& fields) {
        const VcDistribution& d = distribution;
        EXPECT_EQ((std::vector{d.last, d.min, d.max, d.range, d.sum, d.sumSquares}), fields);
        const VcDistributionStatistics s = StatisticsOf(d);
        EXPECT_EQ(s.count, 0u);
        EXPECT_THAT((std::vector{s.min, s.max, s.range, s.mean, s.stdDev, s.variance}), testing::Each(-Largest));
    };
    EXPECT_EQ(VcDistribution_Reset2(&distribution), OK);
    expect({3, 2, 4, 2, 0, 0});
    VcDistribution_AddSample(&distribution, 1);
    EXPECT_EQ(StatisticsOf(distribution).range, 3);
    EXPECT_EQ(StatisticsOf(distribution).mean, 1);
    EXPECT_EQ(VcDistribution_Reset(&distribution), OK);
    expect({0, Largest, -Largest, -Largest, 0, 0});
    EXPECT_STREQ(distribution.name, "kept");
}

}  // namespace
