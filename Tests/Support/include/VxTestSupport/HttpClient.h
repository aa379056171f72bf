#pragma once
// A small blocking HTTP/1.1 client over plain sockets, and a reader of Server-Sent Events. Every wait is bounded: what
// takes longer, or ends too early, throws std::runtime_error. One thread at a time.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace VxTestSupport
{

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpReply
{
    int status = 0;
    std::string header;  ///< All of it.
    std::string body;

    /// The value of the first field of that name, whatever its case; empty when there is none.
    std::string Header(std::string_view name) const;

    /// The body as JSON. Throws when it is none.
    nlohmann::json Json() const { return nlohmann::json::parse(body); }
};

/// One connection to 127.0.0.1.
class HttpClient
{
public:
    /// `receiveBufferBytes` of the socket; 0: the system's choice.
    explicit HttpClient(std::uint16_t port, int receiveBufferBytes = 0);
    ~HttpClient();
    HttpClient(HttpClient&& other) noexcept;
    HttpClient& operator=(HttpClient&&) = delete;

    /// Sends a request. Host and, for a body, Content-Length are added, and a Content-Type of JSON unless `headers` has
    /// one.
    void SendRequest(std::string_view method, std::string_view target, std::string_view body = {},
                     const HttpHeaders& headers = {});

    /// Sends a request and receives its answer.
    HttpReply Request(std::string_view method, std::string_view target, std::string_view body = {},
                      const HttpHeaders& headers = {});

    HttpReply Get(std::string_view target, const HttpHeaders& headers = {})
    {
        return Request("GET", target, {}, headers);
    }

    /// Sends exactly these bytes. False when the server has closed the connection.
    bool Send(std::string_view bytes);

    /// Receives the next answer; one to HEAD has no body whatever its header says. Interim answers (1xx) are answers.
    HttpReply Receive(bool toHead = false);

    /// Receives the next answer without its body.
    HttpReply ReceiveHeader();

    /// Receives what is there up to and with `end`; nothing when the server closes the connection before.
    std::optional<std::string> ReceiveThrough(std::string_view end);

    /// Receives until the server closes the connection.
    std::string ReceiveAll();

    /// True when something has arrived, or the server has closed the connection.
    bool HasArrived() const;

    /// Ends the own direction; answers can still be received.
    void FinishSending();

    /// Closes the connection; with `abort` so that the server gets a reset.
    void Close(bool abort = false);

private:
    bool Fill();
    std::string Take(std::size_t bytes);

    std::uint16_t port_;
    int socket_ = -1;
    std::string received_;
};

/// One request on a connection of its own.
HttpReply HttpRequest(std::uint16_t port, std::string_view method, std::string_view target, std::string_view body = {},
                      const HttpHeaders& headers = {});

struct ServerEvent
{
    std::string event;
    std::string id;
    std::string data;

    nlohmann::json Json() const { return nlohmann::json::parse(data); }
};

/// Listens to a server's notices. The constructor returns when the server has confirmed the stream with its first
/// comment.
class EventReader
{
public:
    explicit EventReader(std::uint16_t port, std::string_view target = "/notifications", HttpHeaders headers = {},
                         int receiveBufferBytes = 0);

    /// The next event; comments are left out. Nothing when the stream has ended.
    std::optional<ServerEvent> Next();

    /// Waits for the next comment; events before it are left out. False when the stream has ended.
    bool NextComment();

    const HttpReply& Header() const { return header_; }

private:
    HttpClient client_;
    HttpReply header_;
};

}  // namespace VxTestSupport
