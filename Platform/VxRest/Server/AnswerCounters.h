#pragma once
// Counts answers by status and duration. Written by the I/O thread, read by any; no lock, no memory.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <VxRest/HttpServer.h>

namespace VxRest::Http
{

class AnswerCounters
{
public:
    void CountStatus(unsigned status) noexcept { Add(status < 400 ? good_ : status < 500 ? refused_ : failed_, 1); }

    void CountDuration(std::chrono::steady_clock::duration duration) noexcept
    {
        const double seconds = std::chrono::duration<double>(duration).count();
        const auto& bounds = HttpDurations::bounds;
        const auto bucket = std::find_if(bounds.begin(), bounds.end(), [&](double bound) { return seconds <= bound; });
        Add(counts_[static_cast<std::size_t>(bucket - bounds.begin())], 1);
        Add(nanoseconds_,
            static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count()));
    }

    void Read(HttpServerStatistics& statistics) const noexcept
    {
        statistics.answers2xx = good_.load(std::memory_order_relaxed);
        statistics.answers4xx = refused_.load(std::memory_order_relaxed);
        statistics.answers5xx = failed_.load(std::memory_order_relaxed);
        for (std::size_t i = 0; i < counts_.size(); ++i) {
            statistics.durations.counts[i] = counts_[i].load(std::memory_order_relaxed);
        }
        statistics.durations.sum = static_cast<double>(nanoseconds_.load(std::memory_order_relaxed)) / 1e9;
    }

private:
    using Counter = std::atomic<std::uint64_t>;
    static void Add(Counter& counter, std::uint64_t amount) noexcept
    {
        counter.fetch_add(amount, std::memory_order_relaxed);
    }

    Counter good_{0};
    Counter refused_{0};
    Counter failed_{0};
    std::array<Counter, HttpDurations::bounds.size() + 1> counts_{};
    Counter nanoseconds_{0};
};

}  // namespace VxRest::Http
