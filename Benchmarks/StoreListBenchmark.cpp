// Does the cost per item of listing a store stay the same as the store grows? Beside the bare walk over a map of the
// same keys that copies them.

#include <map>

#include <benchmark/benchmark.h>

#include <VxCommon/Persistence/PersistStore.h>

namespace
{

std::string KeyOf(std::int64_t item)
{
    return "/Handler" + std::to_string(item % 10) + "/group/item" + std::to_string(item) + ".json";
}

void Ours(benchmark::State& state)
{
    VxCommon::PersistStore store;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        store.Write(KeyOf(i), nullptr, 0);
    }
    for (auto _ : state) {
        const std::vector<std::string> keys = store.List("", true);
        if (static_cast<std::int64_t>(keys.size()) != state.range(0)) {
            state.SkipWithError("not all items were listed");
        }
        benchmark::DoNotOptimize(keys.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Ours)->Name("StoreList/ours")->Arg(10)->Arg(1000)->Arg(10000);

void MapWalk(benchmark::State& state)
{
    std::map<std::string, std::vector<std::uint8_t>> items;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        items.emplace(KeyOf(i), std::vector<std::uint8_t>());
    }
    for (auto _ : state) {
        std::vector<std::string> keys;
        for (const auto& [key, contents] : items) {
            keys.push_back(key);
        }
        benchmark::DoNotOptimize(keys.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MapWalk)->Name("StoreList/map-walk")->Arg(10)->Arg(1000)->Arg(10000);

}  // namespace
