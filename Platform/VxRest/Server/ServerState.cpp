#include "ServerState.h"

namespace VxRest::Http
{

ServerState::ServerState(ResourceRouter& router, const HttpServerOptions& checked)
    : options(checked),
      dispatcher(router, CodecLimits{checked.jsonDepth, checked.jsonValues}, checked.bodyBytes),
      workers(checked.workers, checked.workQueue),
      notices(io, checked)
{}

void ServerState::Enter(std::shared_ptr<Peer> peer)
{
    peers.insert(std::move(peer));
    connections.store(peers.size(), std::memory_order_relaxed);
}

void ServerState::Leave(const std::shared_ptr<Peer>& peer)
{
    peers.erase(peer);
    connections.store(peers.size(), std::memory_order_relaxed);
    if (peers.empty() && whenEmpty) {
        whenEmpty();
    }
}

}  // namespace VxRest::Http
