#pragma once
// Takes connections. Belongs to the I/O thread, but for construction.

#include <cstdint>

#include <boost/asio/basic_socket_acceptor.hpp>

#include "Peer.h"
#include "ServerState.h"

namespace VxRest::Http
{

class Listener
{
public:
    /// Binds and listens. Throws Vx::Exception: ERROR_BUSY, ERROR_ACCESS, ERROR_IO.
    explicit Listener(ServerState& server);

    std::uint16_t Port() const { return port_; }

    /// Begins to take connections.
    void Start() { Accept(); }

    /// Tries again after a failure, such as too many open files.
    void Sweep();

    void Close();

private:
    void Accept();
    void Serve(Socket socket);

    ServerState& server_;
    net::basic_socket_acceptor<net::ip::tcp, net::io_context::executor_type> acceptor_;
    std::uint16_t port_ = 0;
    bool failed_ = false;    ///< To be tried again.
    bool reported_ = false;  ///< Since the last connection that was taken.
};

}  // namespace VxRest::Http
