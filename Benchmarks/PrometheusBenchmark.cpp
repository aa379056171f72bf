// What does a page for monitoring systems cost? A set of 1,000 health indicators as a page of OpenMetrics, beside
// prometheus-cpp's serializer with the same family and labels, which are made ready outside the time measured, into a
// stream that is used again, and beside copying the finished page.

#include <sstream>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <prometheus/text_serializer.h>

#include <Host/IndicatorMetrics.h>
#include <VxCommon/Health/VcIndicatorSet.h>

namespace
{

using Nucleo::Handle;

constexpr std::uint32_t indicators = 1'000;

void Check(Nucleo::Status status)
{
    if (status != Nucleo::OK) {
        throw std::runtime_error("an operation failed: " + std::to_string(status));
    }
}

Handle<VcIndicatorSet> MakeSet()
{
    Handle<VcIndicatorSet> set;
    Check(VcIndicatorSet_Construct(set.Receive(), nullptr));
    Check(VcIndicatorSet_BeginUpdate(set.Get()));
    for (std::uint32_t i = 0; i < indicators; ++i) {
        const std::uint32_t id = 20'000 + i / 4;
        const std::string name = "Veloxa/Indicator" + std::to_string(id);
        Check(VcIndicatorSet_AddValue(set.Get(), name.c_str(), id, i % 4, std::int64_t{i} * i * i));
    }
    Check(VcIndicatorSet_EndUpdate(set.Get()));
    return set;
}

std::string WriteOurs(const VcIndicatorSet* set)
{
    VxHost::OpenMetrics page;
    VxHost::WriteIndicators(page, VxHost::CopyIndicators(*set));
    return std::move(page).Finish();
}

void PageOurs(benchmark::State& state)
{
    const Handle<VcIndicatorSet> set = MakeSet();
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string page = WriteOurs(set.Get());
        bytes = page.size();
        benchmark::DoNotOptimize(page.data());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(PageOurs)->Name("PrometheusPage/ours/1000");

void PagePeer(benchmark::State& state)
{
    const Handle<VcIndicatorSet> set = MakeSet();
    prometheus::MetricFamily family;
    family.name = "vx_health_indicator";
    family.help = "An indicator of the default health set.";
    family.type = prometheus::MetricType::Gauge;
    for (const VcHealthIndicator& indicator : VcIndicatorSet_Indicators(set.Get())->Items()) {
        prometheus::ClientMetric& metric = family.metric.emplace_back();
        metric.label = {{"name", indicator.name},
                        {"id", std::to_string(indicator.id)},
                        {"instance", std::to_string(indicator.instance)}};
        metric.gauge.value = static_cast<double>(indicator.value);
    }
    const std::vector<prometheus::MetricFamily> families{family};
    const prometheus::TextSerializer serializer;
    std::ostringstream page;
    for (auto _ : state) {
        page.seekp(0);
        serializer.Serialize(page, families);
        benchmark::DoNotOptimize(page);
    }
    state.counters["bytes"] = static_cast<double>(page.str().size());
}
BENCHMARK(PagePeer)->Name("PrometheusPage/prometheus-cpp/1000");

void PageCopy(benchmark::State& state)
{
    const Handle<VcIndicatorSet> set = MakeSet();
    const std::string page = WriteOurs(set.Get());
    for (auto _ : state) {
        const std::string copy = page;
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(PageCopy)->Name("PrometheusPage/copy/1000");

}  // namespace
