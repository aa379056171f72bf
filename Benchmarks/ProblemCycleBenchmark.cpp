// What does a cycle of a checker cost that sees the same problems again? Beside building a std::unordered_map of the
// same texts afresh, which is what a checker without a tracker would compare with the one before.

#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include <VxCommon/ProblemsManager/ProblemsTracker.h>

namespace
{

std::vector<std::string> Messages(std::int64_t count)
{
    std::vector<std::string> messages;
    for (std::int64_t i = 0; i < count; ++i) {
        messages.push_back("The temperature of module " + std::to_string(i) + " is above its limit.");
    }
    return messages;
}

void Ours(benchmark::State& state)
{
    const std::vector<std::string> messages = Messages(state.range(0));
    const std::string source = "Benchmark/Checker";
    VxCommon::ProblemsManager manager;
    VxCommon::ProblemsTracker tracker(manager);
    for (auto _ : state) {
        tracker.Begin();
        for (const std::string& message : messages) {
            tracker.Register(manager.Add(VcProblemSeverity_Potential, source, "%s", message));
        }
        tracker.End();
    }
    if (manager.Count() != messages.size()) {
        state.SkipWithError("the cycle has not kept what it saw");
    }
}
BENCHMARK(Ours)->Name("ProblemCycle/ours")->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);

void MapRebuild(benchmark::State& state)
{
    const std::vector<std::string> messages = Messages(state.range(0));
    std::unordered_map<std::string, int> seen;
    for (auto _ : state) {
        std::unordered_map<std::string, int> current;
        for (const std::string& message : messages) {
            ++current[message];
        }
        seen = std::move(current);
    }
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(MapRebuild)->Name("ProblemCycle/map-rebuild")->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
