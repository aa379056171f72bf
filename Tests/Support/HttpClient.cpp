#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <VxTestSupport/HttpClient.h>

namespace VxTestSupport
{

namespace
{

/// What follows `begin`, whatever its case, up to the end of its line; empty when it is not there.
std::string LineAfter(const std::string& text, const std::string& begin)
{
    const char* found = ::strcasestr(text.c_str(), begin.c_str());
    return found != nullptr ? std::string(found + begin.size(), std::strcspn(found + begin.size(), "\r\n")) : "";
}

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error("HTTP client: " + what);
}

[[noreturn]] void FailCall(const std::string& name)
{
    Fail(name + ": " + std::strerror(errno));
}

/// Waits until `socket` is ready for `events`.
void Await(int socket, short events)
{
    pollfd waited{socket, events, 0};
    if (::poll(&waited, 1, 20'000) <= 0) {
        Fail("nothing happened for 20 s");
    }
}

/// The next comment or the next event, behind a line break; nothing when the stream has ended.
std::optional<std::string> NextBlock(HttpClient& client, bool comment)
{
    while (const auto block = client.ReceiveThrough("\n\n")) {
        if (block->starts_with(':') == comment) {
            return "\n" + *block;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string HttpReply::Header(std::string_view name) const
{
    return LineAfter(header, "\n" + std::string(name) + ": ");
}

HttpClient::HttpClient(std::uint16_t port, int receiveBufferBytes) : port_(port)
{
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0) {
        FailCall("socket");
    }
    if (receiveBufferBytes > 0) {
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof(int));
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const std::string reason = std::strerror(errno);
        Close();
        Fail("connect to port " + std::to_string(port) + ": " + reason);
    }
}

HttpClient::HttpClient(HttpClient&& other) noexcept
    : port_(other.port_), socket_(std::exchange(other.socket_, -1)), received_(std::move(other.received_))
{}

HttpClient::~HttpClient()
{
    Close();
}

void HttpClient::Close(bool abort)
{
    if (socket_ < 0) {
        return;
    }
    if (abort) {
        const linger reset{1, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    }
    ::close(std::exchange(socket_, -1));
}

void HttpClient::FinishSending()
{
    ::shutdown(socket_, SHUT_WR);
}

void HttpClient::SendRequest(std::string_view method, std::string_view target, std::string_view body,
                             const HttpHeaders& headers)
{
    std::string request;
    request.append(method).append(" ").append(target).append(" HTTP/1.1\r\n");
    request += "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n";
    bool typed = body.empty();
    for (const auto& [name, value] : headers) {
        request += name + ": " + value + "\r\n";
        typed = typed || name == "Content-Type";
    }
    if (!typed) {
        request += "Content-Type: application/json\r\n";
    }
    if (!body.empty()) {
        request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    Send(request.append("\r\n").append(body));
}

HttpReply HttpClient::Request(std::string_view method, std::string_view target, std::string_view body,
                              const HttpHeaders& headers)
{
    SendRequest(method, target, body, headers);
    return Receive(method == "HEAD");
}

bool HttpClient::Send(std::string_view bytes)
{
    while (!bytes.empty()) {
        Await(socket_, POLLOUT);
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno == EPIPE || errno == ECONNRESET) {
            return false;
        } else if (errno != EAGAIN && errno != EINTR) {
            FailCall("send");
        }
    }
    return true;
}

bool HttpClient::HasArrived() const
{
    pollfd waited{socket_, POLLIN, 0};
    return !received_.empty() || ::poll(&waited, 1, 0) > 0;
}

/// Receives more. False when the server has closed the connection.
bool HttpClient::Fill()
{
    Await(socket_, POLLIN);
    char bytes[16 * 1024];
    const ssize_t count = ::recv(socket_, bytes, sizeof(bytes), MSG_DONTWAIT);
    if (count < 0 && errno != ECONNRESET && errno != EAGAIN && errno != EINTR) {
        FailCall("recv");
    }
    received_.append(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0 || (count < 0 && errno != ECONNRESET);
}

std::string HttpClient::Take(std::size_t bytes)
{
    std::string taken = received_.substr(0, bytes);
    received_.erase(0, bytes);
    return taken;
}

std::optional<std::string> HttpClient::ReceiveThrough(std::string_view end)
{
    std::size_t searched = 0;
    for (;;) {
        const std::size_t found = received_.find(end, searched);
        if (found != std::string::npos) {
            return Take(found + end.size());
        }
        searched = received_.size() - std::min(received_.size(), end.size() - 1);
        if (!Fill()) {
            return std::nullopt;
        }
    }
}

HttpReply HttpClient::ReceiveHeader()
{
    HttpReply reply;
    reply.header = ReceiveThrough("\r\n\r\n").value_or("");
    if (!reply.header.starts_with("HTTP/1.1 ") || reply.header.size() < 12) {
        Fail("no answer: " + reply.header);
    }
    reply.status = std::stoi(reply.header.substr(9, 3));
    return reply;
}

HttpReply HttpClient::Receive(bool toHead)
{
    HttpReply reply = ReceiveHeader();
    if (toHead || reply.status < 200 || reply.status == 204) {
        return reply;
    }
    const std::size_t size = std::stoull(reply.Header("Content-Length"));
    while (received_.size() < size) {
        if (!Fill()) {
            Fail("the connection ended inside a body");
        }
    }
    reply.body = Take(size);
    return reply;
}

std::string HttpClient::ReceiveAll()
{
    while (Fill()) {
    }
    return Take(received_.size());
}

HttpReply HttpRequest(std::uint16_t port, std::string_view method, std::string_view target, std::string_view body,
                      const HttpHeaders& headers)
{
    return HttpClient(port).Request(method, target, body, headers);
}

EventReader::EventReader(std::uint16_t port, std::string_view target, HttpHeaders headers, int receiveBufferBytes)
    : client_(port, receiveBufferBytes)
{
    headers.emplace_back("Accept", "text/event-stream");
    client_.SendRequest("GET", target, {}, headers);
    header_ = client_.ReceiveHeader();
    if (header_.status != 200 || !NextComment()) {
        Fail("no notice stream: " + header_.header);
    }
}

std::optional<ServerEvent> EventReader::Next()
{
    const auto block = NextBlock(client_, false);
    return block ? std::optional(ServerEvent{LineAfter(*block, "\nevent: "), LineAfter(*block, "\nid: "),
                                             LineAfter(*block, "\ndata: ")})
                 : std::nullopt;
}

bool EventReader::NextComment()
{
    return NextBlock(client_, true).has_value();
}

}  // namespace VxTestSupport
