// The least HTTP server that Boost.Beast makes: one thread, keep-alive, one fixed JSON document, no checks, no
// deadlines. The load comparison (scripts/bench http) measures the product's server against it. Serves until it is
// killed.
//
//   BeastPeer [BYTES]    BYTES: size of the document, 200 unless given. Prints the port that it listens on.

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

namespace
{

namespace net = boost::asio;
namespace http = boost::beast::http;
using Socket = net::basic_stream_socket<net::ip::tcp, net::io_context::executor_type>;

class Connection : public std::enable_shared_from_this<Connection>
{
public:
    Connection(Socket socket, const std::string& document) : socket_(std::move(socket)), document_(document)
    {
        socket_.set_option(net::ip::tcp::no_delay(true));
    }

    void Read()
    {
        request_ = {};
        http::async_read(socket_, buffer_, request_,
                         [self = shared_from_this()](boost::system::error_code error, std::size_t /*bytes*/) {
                             if (!error) {
                                 self->Write();
                             }
                         });
    }

private:
    void Write()
    {
        response_ = http::response<http::string_body>(http::status::ok, request_.version());
        response_.set(http::field::content_type, "application/json");
        response_.keep_alive(request_.keep_alive());
        response_.body() = document_;
        response_.prepare_payload();
        http::async_write(socket_, response_,
                          [self = shared_from_this()](boost::system::error_code error, std::size_t /*bytes*/) {
                              if (!error && self->request_.keep_alive()) {
                                  self->Read();
                              }
                          });
    }

    Socket socket_;
    const std::string& document_;
    boost::beast::flat_buffer buffer_;
    http::request<http::string_body> request_;
    http::response<http::string_body> response_;
};

class Server
{
public:
    Server(net::io_context& io, std::string document)
        : acceptor_(io, {net::ip::address_v4::loopback(), 0}), document_(std::move(document))
    {
        Accept();
    }

    unsigned Port() const { return acceptor_.local_endpoint().port(); }

private:
    void Accept()
    {
        acceptor_.async_accept([this](boost::system::error_code error, Socket socket) {
            if (!error) {
                std::make_shared<Connection>(std::move(socket), document_)->Read();
            }
            Accept();
        });
    }

    net::basic_socket_acceptor<net::ip::tcp, net::io_context::executor_type> acceptor_;
    const std::string document_;
};

}  // namespace

int main(int argc, char** argv)
{
    constexpr std::size_t frame = 11;  // {"text":""}
    const std::size_t bytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 200;
    std::string document = "{\"text\":\"" + std::string(bytes > frame ? bytes - frame : 0, 'x') + "\"}";
    net::io_context io(1);
    Server server(io, std::move(document));
    std::cout << server.Port() << std::endl;
    io.run();
}
