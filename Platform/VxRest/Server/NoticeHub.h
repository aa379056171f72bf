#pragma once
// Spreads change notices over the streams of those who listen.

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <VxRest/HttpServer.h>

#include "NoticeHistory.h"
#include "NoticeQueue.h"
#include "Peer.h"

namespace VxRest::Http
{

class NoticeStream;

/// Queue may be used on any thread, also after the hub's end; everything else belongs to the I/O thread.
class NoticeHub
{
public:
    NoticeHub(net::io_context& io, const HttpServerOptions& options);

    /// Where notices are raised.
    const std::shared_ptr<NoticeQueue>& Queue() const { return queue_; }

    /// Numbers what was raised meanwhile and sends it.
    void Deliver();

    bool HasRoom() const { return streams_.size() < maxStreams_; }

    /// Adds a stream and appends what it has missed since `lastEventId`: nothing for a stream that begins now.
    void Join(const std::shared_ptr<NoticeStream>& stream, const std::optional<std::string>& lastEventId);
    void Leave(const NoticeStream& stream);

    // For statistics, on any thread.
    std::uint64_t Streams() const { return streamCount_.load(std::memory_order_relaxed); }
    std::uint64_t SlowClients() const { return slowClients_.load(std::memory_order_relaxed); }
    void CountSlowClient() { slowClients_.fetch_add(1, std::memory_order_relaxed); }

private:
    void CountStreams() { streamCount_.store(streams_.size(), std::memory_order_relaxed); }

    const std::size_t maxStreams_;
    const std::shared_ptr<NoticeQueue> queue_;
    NoticeHistory history_;
    bool interrupted_ = false;  ///< Numbering ended half way, for want of memory: the rest is lost.
    std::vector<std::shared_ptr<NoticeStream>> streams_;
    std::atomic<std::uint64_t> streamCount_{0};
    std::atomic<std::uint64_t> slowClients_{0};
};

}  // namespace VxRest::Http
