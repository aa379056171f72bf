#include <VxRest/HttpServer.h>

#include <algorithm>
#include <condition_variable>
#include <ctime>
#include <thread>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>

#include <VxApi/Exception.h>

#include "Listener.h"
#include "Options.h"
#include "ServerState.h"

namespace VxRest
{

using namespace Http;

namespace
{

HttpServerOptions Checked(HttpServerOptions options)
{
    CheckOptions(options);
    return options;
}

constexpr std::chrono::milliseconds DefaultPatience{2000};

/// A quarter of the shortest deadline.
std::chrono::milliseconds SweepPeriod(const HttpServerOptions& options)
{
    const auto shortest = std::min({options.headerDeadline, options.bodyDeadline, options.writeDeadline,
                                    options.idleDeadline, options.noticeHeartbeat});
    return std::clamp(shortest / 4, std::chrono::milliseconds(5), std::chrono::milliseconds(500));
}

}  // namespace

class HttpServer::Impl
{
public:
    Impl(ResourceRouter& router, HttpServerOptions options)
        : state_(router, Checked(std::move(options))), listener_(state_), sweepPeriod_(SweepPeriod(state_.options))
    {
        state_.gate = std::make_unique<Gate>(Authority(state_.options.address, listener_.Port()), state_.options.token);
        subscription_ = router.NotificationEvent().Subscribe(
            [queue = state_.notices.Queue()](EventType type, const std::string& path) { queue->Raise(type, path); });
        listener_.Start();
        Sweep();
        nextSweep_ = std::chrono::steady_clock::now() + sweepPeriod_;
        thread_ = std::thread([this] { Serve(); });
    }

    ~Impl() { Stop(DefaultPatience); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::uint16_t Port() const { return listener_.Port(); }

    void Stop(std::chrono::milliseconds patience)
    {
        if (!thread_.joinable()) {
            return;
        }
        subscription_.Reset();
        state_.notices.Queue()->Close();
        if (TryPost([this] { BeginStop(); })) {
            AwaitEmpty(patience);
        }
        // Calls that are still running keep their sessions alive, so those go only after the workers.
        TryPost([this] { CloseAll(); });
        state_.workers.Close();
        state_.workers.Join();
        if (!TryPost([this] { state_.io.stop(); })) {
            state_.io.stop();
        }
        thread_.join();
    }

    HttpServerStatistics Statistics() const
    {
        HttpServerStatistics statistics;
        statistics.requests = state_.requests.load(std::memory_order_relaxed);
        statistics.connections = state_.connections.load(std::memory_order_relaxed);
        statistics.noticeStreams = state_.notices.Streams();
        statistics.notices = state_.notices.Queue()->Raised();
        statistics.slowClients = state_.notices.SlowClients();
        state_.answers.Read(statistics);
        return statistics;
    }

private:
    /// Runs `step` on the I/O thread; false, and logged, when there is no memory for that.
    template <class Step>
    bool TryPost(Step step)
    {
        try {
            net::post(state_.io, std::move(step));
            return true;
        } catch (const std::exception& failure) {
            Vx::LogException(VX_HERE, failure);
            return false;
        }
    }

    /// The I/O thread. It looks at the time itself: a sweep that fails, for want of memory, must not be the last, as it
    /// would be if it armed a timer for the next. For the same reason the context has work while nothing is pending.
    void Serve()
    {
        const auto work = net::make_work_guard(state_.io);
        while (!state_.io.stopped()) {
            try {
                state_.io.run_until(nextSweep_);
                const TimePoint now = std::chrono::steady_clock::now();
                if (now >= nextSweep_) {
                    nextSweep_ = now + sweepPeriod_;
                    Sweep();
                }
            } catch (const std::exception& error) {
                Vx::LogException(VX_HERE, error);
            }
        }
    }

    void Sweep()
    {
        state_.dateLine = DateLine(std::time(nullptr));
        listener_.Sweep();
        state_.notices.Deliver();
        const TimePoint now = std::chrono::steady_clock::now();
        // Who is past a deadline leaves the set meanwhile.
        sweeping_.assign(state_.peers.begin(), state_.peers.end());
        for (const auto& peer : sweeping_) {
            peer->Sweep(now);
        }
        sweeping_.clear();
    }

    void BeginStop()
    {
        state_.stopping = true;
        listener_.Close();
        state_.workers.Close();
        for (const auto& peer : std::vector<std::shared_ptr<Peer>>(state_.peers.begin(), state_.peers.end())) {
            peer->Stop();
        }
        state_.whenEmpty = [this] { NoteEmpty(); };
        if (state_.peers.empty()) {
            NoteEmpty();
        }
    }

    void CloseAll()
    {
        for (const auto& peer : std::vector<std::shared_ptr<Peer>>(state_.peers.begin(), state_.peers.end())) {
            peer->Close();
        }
    }

    void NoteEmpty()
    {
        {
            const Nucleo::MutexGuard guard(mutex_);
            empty_ = true;
        }
        emptied_.notify_all();
    }

    void AwaitEmpty(std::chrono::milliseconds patience)
    {
        const TimePoint deadline = std::chrono::steady_clock::now() + patience;
        const Nucleo::MutexGuard guard(mutex_);
        while (!empty_ && emptied_.wait_until(mutex_, deadline) == std::cv_status::no_timeout) {
        }
    }

    ServerState state_;
    Listener listener_;
    const std::chrono::milliseconds sweepPeriod_;
    TimePoint nextSweep_{};  ///< The I/O thread's own, once it runs.
    std::vector<std::shared_ptr<Peer>> sweeping_;
    Vx::Subscription subscription_;

    Nucleo::Mutex mutex_;
    std::condition_variable_any emptied_;
    bool empty_ VX_GUARDED_BY(mutex_) = false;  ///< Every connection has gone, after BeginStop.

    std::thread thread_;
};

void HttpServer::Check(HttpServerOptions options)
{
    CheckOptions(options);
}

HttpServer::HttpServer(ResourceRouter& router, HttpServerOptions options)
    : impl_(std::make_unique<Impl>(router, std::move(options)))
{}

HttpServer::~HttpServer() = default;

std::uint16_t HttpServer::Port() const
{
    return impl_->Port();
}

void HttpServer::Stop(std::chrono::milliseconds patience)
{
    impl_->Stop(patience);
}

HttpServerStatistics HttpServer::Statistics() const
{
    return impl_->Statistics();
}

}  // namespace VxRest
