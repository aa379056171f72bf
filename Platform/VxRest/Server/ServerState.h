#pragma once
// What the connections of one server share.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

#include <VxRest/HttpServer.h>

#include "AnswerCounters.h"
#include "Dispatcher.h"
#include "Gate.h"
#include "NoticeHub.h"
#include "Peer.h"
#include "WorkerPool.h"

namespace VxRest::Http
{

struct ServerState
{
    ServerState(ResourceRouter& router, const HttpServerOptions& checked);

    /// Adds or removes a connection. `whenEmpty` is called when the last one has gone.
    void Enter(std::shared_ptr<Peer> peer);
    void Leave(const std::shared_ptr<Peer>& peer);

    // Constant after construction. The I/O context comes first, so that it goes last.
    const HttpServerOptions options;
    net::io_context io{1};
    const Dispatcher dispatcher;
    WorkerPool workers;

    // The I/O thread's own.
    std::unique_ptr<Gate> gate;  ///< Made when the port is known, before the first connection.
    NoticeHub notices;
    std::unordered_set<std::shared_ptr<Peer>> peers;
    std::uint64_t bodyBytes = 0;  ///< Held by all connections for bodies.
    std::string dateLine;
    bool stopping = false;
    std::function<void()> whenEmpty;

    // For Statistics.
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> connections{0};
    AnswerCounters answers;
};

}  // namespace VxRest::Http
