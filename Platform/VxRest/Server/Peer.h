#pragma once
// What the server knows of every connection. All of it belongs to the I/O thread.

#include <chrono>
#include <memory>

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace VxRest::Http
{

namespace net = boost::asio;
using Socket = net::basic_stream_socket<net::ip::tcp, net::io_context::executor_type>;
using TimePoint = std::chrono::steady_clock::time_point;

class Peer : public std::enable_shared_from_this<Peer>
{
public:
    virtual ~Peer() = default;

    /// Does what is due at `now`: gives up on a client that is past a deadline, sends a heartbeat.
    virtual void Sweep(TimePoint now) = 0;

    /// The server stops: ends now, or once the request that is being carried out has its answer.
    virtual void Stop() = 0;

    /// Ends now. Later calls do nothing.
    virtual void Close() = 0;
};

}  // namespace VxRest::Http
