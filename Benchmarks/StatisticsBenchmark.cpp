// What does a sample cost? A distribution of floating-point samples beside Boost's minimum, maximum, sum and lazy
// variance; a moving average over 50 whole numbers, read after each sample, beside Boost's rolling sum, read likewise
// (which leaves the division to its reader). 1,000 samples a round. Both sides are called once a sample, as functions
// that the caller does not see into: ours lie in another source, Boost's are kept from being inlined. A program that
// uses the shared library has the jump through its table on top.

#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/accumulators/accumulators.hpp>
#include <boost/accumulators/statistics/max.hpp>
#include <boost/accumulators/statistics/min.hpp>
#include <boost/accumulators/statistics/rolling_sum.hpp>
#include <boost/accumulators/statistics/stats.hpp>
#include <boost/accumulators/statistics/sum.hpp>
#include <boost/accumulators/statistics/variance.hpp>

#include <VxCommon/VcStatistics/VcDistribution.h>
#include <VxCommon/VcStatistics/VcStatistics.h>

namespace
{

namespace acc = boost::accumulators;

using PeerDistribution =
    acc::accumulator_set<double, acc::stats<acc::tag::min, acc::tag::max, acc::tag::sum, acc::tag::lazy_variance>>;
using PeerStatistics = acc::accumulator_set<std::uint64_t, acc::stats<acc::tag::rolling_sum>>;

template <class T>
const std::vector<T>& Samples()
{
    static const std::vector<T> samples = [] {
        std::mt19937 random(1);
        std::vector<T> made(1000);
        for (T& sample : made) {
            sample = static_cast<T>(random());
        }
        return made;
    }();
    return samples;
}

[[gnu::noinline]] void AddToPeer(PeerDistribution* distribution, double sample)
{
    (*distribution)(sample);
}

[[gnu::noinline]] std::uint64_t AddToPeer(PeerStatistics* statistics, std::uint64_t sample)
{
    (*statistics)(sample);
    return acc::rolling_sum(*statistics);
}

void DistributionOurs(benchmark::State& state)
{
    VcDistribution distribution = {};
    VcDistribution_Reset(&distribution);
    VcDistributionStatistics statistics = {};
    for (auto _ : state) {
        for (const double sample : Samples<double>()) {
            VcDistribution_AddSample(&distribution, sample);
        }
        VcDistribution_Statistics(&distribution, &statistics);
        benchmark::DoNotOptimize(statistics);
    }
}
BENCHMARK(DistributionOurs)->Name("DistributionAdd/ours/1000");

void DistributionBoost(benchmark::State& state)
{
    PeerDistribution distribution;
    for (auto _ : state) {
        for (const double sample : Samples<double>()) {
            AddToPeer(&distribution, sample);
        }
        benchmark::DoNotOptimize(acc::min(distribution));
        benchmark::DoNotOptimize(acc::max(distribution));
        benchmark::DoNotOptimize(acc::sum(distribution));
        benchmark::DoNotOptimize(acc::lazy_variance(distribution));
    }
}
BENCHMARK(DistributionBoost)->Name("DistributionAdd/boost/1000");

void StatisticsOurs(benchmark::State& state)
{
    VxCommon::VcStatistics statistics;
    for (auto _ : state) {
        for (const std::uint64_t sample : Samples<std::uint64_t>()) {
            statistics.Add(sample);
            benchmark::DoNotOptimize(statistics.SimpleMovingAverage());
        }
    }
}
BENCHMARK(StatisticsOurs)->Name("StatisticsAdd/ours/1000");

void StatisticsBoost(benchmark::State& state)
{
    PeerStatistics statistics(acc::tag::rolling_window::window_size = 50);
    for (auto _ : state) {
        for (const std::uint64_t sample : Samples<std::uint64_t>()) {
            benchmark::DoNotOptimize(AddToPeer(&statistics, sample));
        }
    }
}
BENCHMARK(StatisticsBoost)->Name("StatisticsAdd/boost/1000");

}  // namespace
