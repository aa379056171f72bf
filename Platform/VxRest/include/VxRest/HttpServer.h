#pragma once
// Serves a ResourceRouter over HTTP/1.1: documents, commands, change notices.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <Nucleo/Stream.h>
#include <VxRest/ResourceRouter.h>

namespace VxRest
{

/// Limits and addresses of a server. Every value has a safe default.
struct HttpServerOptions
{
    std::string address = "127.0.0.1";  ///< IP address to listen on; any but loopback needs a token.
    std::uint16_t port = 8080;          ///< 0: one that the system chooses, see HttpServer::Port.
    std::string token{};                ///< Bearer token that guards everything, in visible ASCII; empty: none.

    std::size_t headerBytes = 8 * 1024;
    std::size_t headerFields = 64;
    std::uint64_t bodyBytes = std::uint64_t{64} * 1024 * 1024;
    std::uint64_t allBodyBytes = std::uint64_t{256} * 1024 * 1024;  ///< Of all requests at a time; 503 beyond it.
    std::size_t jsonDepth = 64;
    std::size_t jsonValues = 1'000'000;  ///< Values in a structured body, each of which takes many times its text.
    std::size_t connections = 1024;      ///< Open connections, notice streams included; 503 beyond it.
    std::size_t noticeStreams = 512;
    std::size_t noticeHistory = 1024;  ///< Notices kept for Last-Event-ID.
    std::size_t noticeQueue = 256;     ///< Notices waiting for one slow client before it is cut off.
    std::size_t workQueue = 256;       ///< Requests waiting for a worker before 503.
    std::size_t workers = 2;

    // Deadlines count from the beginning of what they bound, however much arrives meanwhile. They are looked at several
    // times in the shortest of them, at least twice a second.
    std::chrono::milliseconds headerDeadline{10'000};  ///< From a request's first byte to its header's last.
    std::chrono::milliseconds bodyDeadline{30'000};    ///< Plus the body's size at bodyBytesPerSecond.
    std::uint64_t bodyBytesPerSecond = 64 * 1024;
    std::chrono::milliseconds writeDeadline{30'000};  ///< For one answer, or for one batch of notices.
    std::chrono::milliseconds idleDeadline{60'000};   ///< Without a request.
    std::chrono::milliseconds noticeHeartbeat{15'000};
};

/// How long requests take, from the end of their header to their answer's being handed to the socket: what arrives of
/// a body, waiting for a worker and the resource's call included, sending left out. Notice streams and what is refused
/// before its header has ended are not counted.
struct HttpDurations
{
    /// Upper bounds in seconds of all buckets but the last, which has none. A bound belongs to its bucket.
    static constexpr std::array<double, 13> bounds = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                                      0.25,  0.5,    1,     2.5,  5,     10};

    std::array<std::uint64_t, bounds.size() + 1> counts{};  ///< Of each bucket alone.
    double sum = 0;                                         ///< Of all, in seconds.
};

/// Counters of a running server. They are read one by one: one may be ahead of another.
struct HttpServerStatistics
{
    std::uint64_t requests = 0;       ///< Headers read so far.
    std::uint64_t connections = 0;    ///< Open now.
    std::uint64_t noticeStreams = 0;  ///< Open now.
    std::uint64_t notices = 0;        ///< Raised so far.
    std::uint64_t slowClients = 0;    ///< Notice streams cut off because their queue was full.

    // Answers so far by class of their status. An answer counts before its first byte is sent; notice streams do not.
    std::uint64_t answers2xx = 0;
    std::uint64_t answers4xx = 0;
    std::uint64_t answers5xx = 0;
    HttpDurations durations;
};

/// One I/O thread for sockets and notices, `workers` threads for resource calls. Start and stop from one thread.
class HttpServer
{
public:
    /// Throws Vx::Exception with ERROR_PARAMETER for options that the constructor would refuse as unusable or unsafe;
    /// opens nothing.
    static void Check(HttpServerOptions options);

    /// Binds, listens and serves until Stop. `router` must outlive the server. Throws Vx::Exception: ERROR_PARAMETER
    /// for options that are unusable or unsafe (an address other than loopback without a token), ERROR_BUSY when the
    /// port is taken, ERROR_ACCESS or ERROR_IO when the address cannot be used.
    HttpServer(ResourceRouter& router, HttpServerOptions options);

    /// Stops.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// The port that is listened on.
    std::uint16_t Port() const;

    /// Takes no more connections, lets running resource calls end and sends their answers (for at most `patience`),
    /// answers 503 to requests that still wait for a worker, closes every connection and joins the threads. A call that
    /// is still running when patience ends is waited for all the same, but gets no answer out. Later calls do nothing.
    /// Not to be called from inside a resource.
    void Stop(std::chrono::milliseconds patience = std::chrono::milliseconds{2000});

    HttpServerStatistics Statistics() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace VxRest

/// Writes a log as text, lines ended by CR LF. Called on a worker thread of a server, several at once.
using VrPrivateLogFx = Nucleo::Status (*)(Nucleo::Stream* stream);

/// Sets what every server of the process shows at "/private-log" as text/plain, to clients on the loopback address or
/// with the server's token only; null: nothing, and the page is not found. `*previous` (may be null) receives what was
/// set before. Waits until no call of the previous handler is running; ERROR_STATE, and nothing changes, when called
/// from inside one. Safe on any thread; the caller holds no lock that the handler takes.
extern "C" Nucleo::Status VrHttpServer_SetPrivateLogHandler(VrPrivateLogFx handler, VrPrivateLogFx* previous);
