#include "Listener.h"

#include <utility>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

#include "Session.h"

namespace VxRest::Http
{

namespace
{

/// Connections beyond the limit that are told so at a time; further ones are closed without a word.
constexpr std::size_t RefusedAtATime = 32;

void Check(const Vx::Location& location, const boost::system::error_code& error, const HttpServerOptions& options)
{
    if (!error) {
        return;
    }
    Nucleo::Status status = Nucleo::ERROR_IO;
    if (error == net::error::address_in_use) {
        status = Nucleo::ERROR_BUSY;
    } else if (error == net::error::access_denied || error == boost::system::errc::address_not_available) {
        status = Nucleo::ERROR_ACCESS;
    }
    VX_THROW_AT(location, status, "cannot listen on %s port %u: %s", options.address, options.port, error.message());
}

}  // namespace

Listener::Listener(ServerState& server) : server_(server), acceptor_(server.io)
{
    const HttpServerOptions& options = server.options;
    const net::ip::tcp::endpoint endpoint(net::ip::make_address(options.address), options.port);
    boost::system::error_code error;
    acceptor_.open(endpoint.protocol(), error);
    Check(VX_HERE, error, options);
    acceptor_.set_option(net::socket_base::reuse_address(true), error);
    Check(VX_HERE, error, options);
    acceptor_.bind(endpoint, error);
    Check(VX_HERE, error, options);
    acceptor_.listen(net::socket_base::max_listen_connections, error);
    Check(VX_HERE, error, options);
    port_ = acceptor_.local_endpoint().port();
}

void Listener::Accept()
{
    failed_ = true;  // Until it has begun: it throws when there is no memory.
    acceptor_.async_accept([this](const boost::system::error_code& error, Socket socket) {
        if (!acceptor_.is_open()) {
            return;
        }
        if (error) {
            // Trying again at once could go on like that for ever; the next sweep does.
            if (!std::exchange(reported_, true)) {
                Vx_Debug_Log(Warning, "A connection could not be taken: %s", error.message());
            }
            failed_ = true;
            return;
        }
        reported_ = false;
        try {
            Serve(std::move(socket));
        } catch (const std::exception& failure) {
            Vx::LogException(VX_HERE, failure);
        }
        Accept();
    });
    failed_ = false;
}

void Listener::Serve(Socket socket)
{
    const std::size_t open = server_.peers.size();
    const std::size_t limit = server_.options.connections;
    if (open < limit) {
        std::make_shared<Session>(server_, std::move(socket))->Start();
    } else if (open < limit + RefusedAtATime) {
        std::make_shared<Session>(server_, std::move(socket))->StartRefusing();
    }
}

void Listener::Sweep()
{
    if (failed_ && acceptor_.is_open()) {
        Accept();
    }
}

void Listener::Close()
{
    boost::system::error_code ignored;
    acceptor_.close(ignored);
}

}  // namespace VxRest::Http
