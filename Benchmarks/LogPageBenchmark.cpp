// What does reading a full log cost? GET /logs in process, to the finished document, beside a JSON array that is made
// straight from the same entries; and clearing it, beside clearing a deque of as many strings.

#include <deque>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>

#include <VxCommon/Protocol/Logs/LogsDir.h>
#include <VxRest/ResourceRouter.h>

namespace
{

const std::string text(80, '.');

// The public log, filled until it dropped a message.
VcLog* FullLog()
{
    static VcLogger* logger = nullptr;
    if (VcLogger_Instance() == nullptr && VcLogger_Construct(&logger, 1, 0, nullptr) != Nucleo::OK) {
        throw std::runtime_error("no logger");
    }
    VcLog* log = VcLogger_PublicLog();
    const std::uint32_t first = VcLog_FirstId(log);
    while (VcLog_FirstId(log) == first) {
        VcLogger_LogImpl(VcLogger_Instance(), log, VcLogMsgType_Info, 0, text.c_str());
    }
    return log;
}

void PageOurs(benchmark::State& state)
{
    const VcLog* log = FullLog();
    VxRest::ResourceRouter router;
    VxCommon::LogsDir directory;
    directory.Register(router);
    const auto match = router.Find("/logs");
    for (auto _ : state) {
        VxRest::ResponseInfo response;
        const nlohmann::json document = match.Document({"/logs", match.Keys()}, response);
        if (document.at("logs").size() != VcLog_Count(log)) {
            state.SkipWithError("not all entries are there");
        }
    }
}
BENCHMARK(PageOurs)->Name("LogPage/ours/full")->Unit(benchmark::kMillisecond);

void PagePlain(benchmark::State& state)
{
    const VcLog* log = FullLog();
    for (auto _ : state) {
        nlohmann::json logs = nlohmann::json::array();
        for (std::size_t i = 0; i < VcLog_Count(log); ++i) {
            const VcLogMsg* msg = VcLog_At(log, i);
            logs.push_back({{"level", static_cast<int>(VcLogMsg_Type(msg))},
                            {"text", VcLogMsg_Text(msg)},
                            {"id", VcLogMsg_Id(msg)},
                            {"timestamp", VcLogMsg_Timestamp(msg)}});
        }
        benchmark::DoNotOptimize(logs);
    }
}
BENCHMARK(PagePlain)->Name("LogPage/plain-json/full")->Unit(benchmark::kMillisecond);

void ClearOurs(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        VcLog* log = FullLog();
        state.ResumeTiming();
        VcLog_Clear(log);
    }
}
BENCHMARK(ClearOurs)->Name("LogClear/ours/full");

void ClearDeque(benchmark::State& state)
{
    const std::size_t count = VcLog_Count(FullLog());
    for (auto _ : state) {
        state.PauseTiming();
        std::deque<std::string> entries(count, text);
        state.ResumeTiming();
        entries.clear();
    }
}
BENCHMARK(ClearDeque)->Name("LogClear/deque/full");

}  // namespace
