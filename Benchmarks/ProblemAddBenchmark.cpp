// What does reporting a problem cost that is open already, with many others open? It must not grow with their number,
// as the walk over a std::list of the same texts does, here up to the last one.

#include <list>
#include <string>

#include <benchmark/benchmark.h>

#include <VxCommon/ProblemsManager/ProblemsManager.h>

namespace
{

constexpr const char* source = "Benchmark/Checker";

std::string MessageOf(std::int64_t i)
{
    return "The temperature of module " + std::to_string(i) + " is above its limit.";
}

void Ours(benchmark::State& state)
{
    VxCommon::ProblemsManager manager;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        manager.Add(VcProblemSeverity_Potential, source, "%s", MessageOf(i));
    }
    const std::string sourceName = source;
    const std::string last = MessageOf(state.range(0) - 1);
    for (auto _ : state) {
        const auto problem = manager.Add(VcProblemSeverity_Potential, sourceName, "%s", last);
        benchmark::DoNotOptimize(problem->refCount);
    }
    if (manager.Count() != static_cast<std::uint64_t>(state.range(0))) {
        state.SkipWithError("the problem was not the one that was open");
    }
}
BENCHMARK(Ours)->Name("ProblemAdd/ours")->Arg(10)->Arg(1000);

void ListWalk(benchmark::State& state)
{
    struct Texts
    {
        std::string msg;
        std::string source;
    };
    std::list<Texts> problems;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        problems.push_back({MessageOf(i), source});
    }
    const Texts last = problems.back();
    for (auto _ : state) {
        auto found = problems.begin();
        while (found != problems.end() && !(found->msg == last.msg && found->source == last.source)) {
            ++found;
        }
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(ListWalk)->Name("ProblemAdd/list-walk")->Arg(10)->Arg(1000);

}  // namespace
