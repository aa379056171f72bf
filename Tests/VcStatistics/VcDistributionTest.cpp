#include <cmath>
#include <cstring>
#include <limits>
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
    VcDistribution_Reset(&distribution);
    for (const double sample : samples) {
        VcDistribution_AddSample(&distribution, sample);
    }
    return distribution;
}

VcDistributionStatistics StatisticsOf(const VcDistribution& distribution)
{
    VcDistributionStatistics statistics = {};
    EXPECT_EQ(VcDistribution_Statistics(&distribution, &statistics), OK);
    return statistics;
}

TEST(VcDistributionTest, SummarizesItsSamples)
{
    const VcDistribution distribution = Of({2, -4, 4, 5.5, 0.5, 7});
    const VcDistributionStatistics statistics = StatisticsOf(distribution);
    EXPECT_EQ(distribution.last, 7);
    EXPECT_EQ(distribution.sum, 15);
    EXPECT_EQ(distribution.sumSquares, 115.5);
    EXPECT_EQ(statistics.count, 6U);
    EXPECT_EQ(statistics.min, -4);
    EXPECT_EQ(statistics.max, 7);
    EXPECT_EQ(statistics.range, 11);
    EXPECT_EQ(statistics.mean, 2.5);
    EXPECT_DOUBLE_EQ(statistics.variance, 15.6);  // The squares of the differences, 78, by one less than the samples.
    EXPECT_DOUBLE_EQ(statistics.stdDev, 3.9496835316263);
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
