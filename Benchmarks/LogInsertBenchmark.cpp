// What does a log message cost once the ring is full, so that each one drops old ones? Plain texts of 80 and 200 bytes
// and formats with three arguments that print to as much, from one thread and from four; beside a bounded ring-buffer
// sink with the same texts, and beside what no logger can do without: a re-entrant lock, a clock read and a copy.

#include <array>
#include <chrono>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/ringbuffer_sink.h>

#include <Nucleo/Clock.h>
#include <VxCommon/Logger/VcLogger.h>

namespace
{

constexpr int exposure = 2500;
const char* const camera = "camera-left";
constexpr unsigned frame = 123456;

// Fills up to `size` printed bytes.
std::string Padding(std::size_t size, std::size_t used)
{
    return std::string(size > used ? size - used : 0, '.');
}

std::string Plain(std::int64_t size)
{
    return Padding(static_cast<std::size_t>(size), 0);
}

// "Exposure 2500 of camera-left taken for frame 123456" and padding.
std::string Format(std::int64_t size, const char* exposureSpecifier, const char* nameSpecifier,
                   const char* frameSpecifier)
{
    return std::string("Exposure ") + exposureSpecifier + " of " + nameSpecifier + " taken for frame " +
           frameSpecifier + Padding(static_cast<std::size_t>(size), 51);
}

VcLogger* Logger()
{
    static VcLogger* const logger = [] {
        VcLogger* made = nullptr;
        if (VcLogger_Construct(&made, 1, Nucleo::Timer_Scale(Nucleo::Timer_Query()), nullptr) != Nucleo::OK) {
            throw std::runtime_error("no logger");
        }
        return made;
    }();
    return logger;
}

void Fill(VcLog* log, const std::string& text)
{
    const std::uint32_t first = VcLog_FirstId(log);
    while (VcLog_FirstId(log) == first) {
        VcLogger_LogImpl(Logger(), log, VcLogMsgType_Info, 0, text.c_str());
    }
}

void OursPlain(benchmark::State& state)
{
    const std::string text = Plain(state.range(0));
    VcLog* log = Logger()->publicLog;
    if (state.thread_index() == 0) {
        Fill(log, text);
    }
    for (auto _ : state) {
        VcLogger_LogImpl(Logger(), log, VcLogMsgType_Info, 0, text.c_str());
    }
}
BENCHMARK(OursPlain)->Name("LogInsertPlain/ours")->Arg(80)->Arg(200)->UseRealTime()->Threads(1)->Threads(4);

void OursFormatted(benchmark::State& state)
{
    const std::string format = Format(state.range(0), "%d", "%s", "%u");
    VcLog* log = Logger()->publicLog;
    if (state.thread_index() == 0) {
        Fill(log, Plain(state.range(0)));
    }
    for (auto _ : state) {
        if (VcLogger_LogfImpl(Logger(), log, 0, VcLogMsgType_Info, 0, format.c_str(),
                              Nucleo::MakeFormatArgs(exposure, camera, frame)) != Nucleo::OK) {
            state.SkipWithError("not logged");
        }
    }
}
BENCHMARK(OursFormatted)->Name("LogInsertFormatted/ours")->Arg(80)->Arg(200)->UseRealTime()->Threads(1)->Threads(4);

// As many entries as our ring holds of 200 bytes; what it drops costs it nothing.
spdlog::logger& Sink()
{
    static spdlog::logger logger("sink", std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(3000));
    return logger;
}

void SinkPlain(benchmark::State& state)
{
    const std::string text = Plain(state.range(0));
    for (auto _ : state) {
        Sink().info(spdlog::string_view_t(text));
    }
}
BENCHMARK(SinkPlain)->Name("LogInsertPlain/ring-sink")->Arg(80)->Arg(200)->UseRealTime()->Threads(1)->Threads(4);

void SinkFormatted(benchmark::State& state)
{
    const std::string format = Format(state.range(0), "{}", "{}", "{}");
    for (auto _ : state) {
        Sink().info(fmt::runtime(format), exposure, camera, frame);
    }
}
BENCHMARK(SinkFormatted)
    ->Name("LogInsertFormatted/ring-sink")
    ->Arg(80)
    ->Arg(200)
    ->UseRealTime()
    ->Threads(1)
    ->Threads(4);

struct Bare
{
    std::recursive_mutex lock;
    std::array<char, 0x100000> region;
    std::size_t next = 0;
    std::chrono::steady_clock::time_point last;
};

void BareCost(benchmark::State& state)
{
    static Bare bare;
    const std::string text = Plain(state.range(0));
    for (auto _ : state) {
        const std::lock_guard guard(bare.lock);
        bare.last = std::chrono::steady_clock::now();
        bare.next = bare.next + text.size() < bare.region.size() ? bare.next : 0;
        std::memcpy(bare.region.data() + bare.next, text.data(), text.size());
        bare.next += text.size();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BareCost)->Name("LogInsertPlain/bare")->Arg(80)->Arg(200)->UseRealTime()->Threads(1)->Threads(4);

}  // namespace
