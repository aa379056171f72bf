#include "Session.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include <boost/asio/post.hpp>

#include <VxApi/Exception.h>

#include "NoticeStream.h"
#include "PrivateLog.h"
#include "ReadHead.h"
#include "ServerState.h"
#include "Text.h"

namespace VxRest::Http
{

namespace
{

namespace http = boost::beast::http;
using Clock = std::chrono::steady_clock;

constexpr std::size_t HeaderReadBytes = 8 * 1024;
constexpr std::size_t BodyReadBytes = 64 * 1024;

/// A refused body up to this size is read and dropped, so that the connection can go on.
constexpr std::uint64_t DroppedBodyBytes = 64 * 1024;

/// A body up to this size is written in one buffer with its header.
constexpr std::size_t JoinedBodyBytes = 4 * 1024;

/// What is written in one go before other connections get their turn.
constexpr std::size_t WriteTurnBytes = 1024 * 1024;

/// How long a client whose connection ends may take to notice.
constexpr std::chrono::milliseconds LingerTime{2000};

Reply TooBusy(const std::string& detail)
{
    return MakeProblem(Refusal(503, detail).With("Retry-After", "1"), false, {});
}

bool IsWaiting(const boost::system::error_code& error)
{
    return error == net::error::would_block || error == net::error::try_again;
}

}  // namespace

Session::Session(ServerState& server, Socket socket)
    : server_(server), socket_(std::move(socket)), scan_(server.options.headerFields)
{}

void Session::Start()
{
    boost::system::error_code error;
    socket_.non_blocking(true, error);
    socket_.set_option(net::ip::tcp::no_delay(true), error);
    reached_ = NormalAddress(socket_.local_endpoint(error).address().to_string());
    server_.Enter(shared_from_this());
    SetDeadline(server_.options.idleDeadline);
    Drive();
}

void Session::StartRefusing()
{
    boost::system::error_code error;
    socket_.non_blocking(true, error);
    server_.Enter(shared_from_this());
    Reply reply = TooBusy("the server has too many connections");
    reply.close = true;
    Send(std::move(reply));
}

void Session::SetDeadline(std::chrono::milliseconds after)
{
    deadline_ = Clock::now() + after;
}

void Session::Sweep(TimePoint now)
{
    now_ = now;
    if (state_ == State::Working) {
        OnAnswered();
    } else if (now >= deadline_) {
        if (state_ == State::Header || state_ == State::Body) {
            const char* what = state_ == State::Header ? "the request's header" : "the request's body";
            SendProblem(Refusal(408, std::string(what) + " took too long to arrive"), true);
        } else {
            Close();
        }
    }
}

void Session::Stop()
{
    if (state_ == State::Working || state_ == State::Writing) {
        keep_ = false;
        linger_ = false;
    } else {
        Close();
    }
}

void Session::Close()
{
    if (std::exchange(state_, State::Closed) == State::Closed) {
        return;
    }
    ReleaseBody();
    boost::system::error_code ignored;
    socket_.close(ignored);
    server_.Leave(shared_from_this());
}

// Reading

void Session::Read()
{
    if (reading_) {
        return;
    }
    std::size_t wanted = BodyReadBytes;
    if (state_ != State::Body) {
        // A header that does not fit is refused before more of it is read.
        const std::size_t room = server_.options.headerBytes - std::min(buffer_.size(), server_.options.headerBytes);
        wanted = std::clamp<std::size_t>(room, 1, HeaderReadBytes);
    }
    socket_.async_read_some(
        buffer_.prepare(wanted),
        [self = Self()](const boost::system::error_code& error, std::size_t bytes) { self->OnRead(error, bytes); });
    reading_ = true;
}

void Session::OnRead(const boost::system::error_code& error, std::size_t bytes)
{
    reading_ = false;
    if (state_ == State::Closed) {
        return;
    }
    now_ = Clock::now();
    if (error) {
        // While an answer is on its way the client may have ended its own direction alone.
        if (state_ != State::Writing) {
            Close();
        }
        return;
    }
    if (state_ == State::Lingering) {
        Read();
        return;
    }
    buffer_.commit(bytes);
    Drive();
}

void Session::Drive()
{
    try {
        bool going = true;
        while (going) {
            switch (state_) {
                case State::Idle:
                    going = BeginRequest();
                    break;
                case State::Header:
                    going = ReadHeader();
                    break;
                case State::Body:
                    going = ReadBody();
                    break;
                default:
                    going = false;
                    break;
            }
        }
    } catch (const std::exception& error) {
        Vx::LogException(VX_HERE, error);
        Close();
    }
}

bool Session::BeginRequest()
{
    // Empty lines before a request are left out.
    const auto bytes = static_cast<const char*>(buffer_.data().data());
    std::size_t blank = 0;
    while (buffer_.size() - blank >= 2 && bytes[blank] == '\r' && bytes[blank + 1] == '\n') {
        blank += 2;
    }
    buffer_.consume(blank);
    if (buffer_.size() == 0) {
        Read();
        return false;
    }
    state_ = State::Header;
    scan_.Reset();
    head_ = RequestHead();
    path_.clear();
    SetDeadline(server_.options.headerDeadline);
    return true;
}

bool Session::ReadHeader()
{
    const std::string_view bytes(static_cast<const char*>(buffer_.data().data()), buffer_.size());
    const HeaderScan::Result result = scan_.Scan(bytes);
    const bool complete = result == HeaderScan::Result::Complete;
    if (result == HeaderScan::Result::BareLineFeed) {
        SendProblem(Refusal(400, "a header line ends without a carriage return"), true);
    } else if (result == HeaderScan::Result::Folded) {
        SendProblem(Refusal(400, "a header field is folded over several lines"), true);
    } else if (result == HeaderScan::Result::TooManyFields) {
        SendProblem(
            Refusal(431, "the header has more than " + std::to_string(server_.options.headerFields) + " fields"), true);
    } else if ((complete ? scan_.Length() : bytes.size() + 1) > server_.options.headerBytes) {
        SendProblem(Refusal(431, "the header is larger than " + std::to_string(server_.options.headerBytes) + " bytes"),
                    true);
    } else if (complete) {
        OnHeader(scan_.Length());
    } else {
        Read();
        return false;
    }
    return true;
}

void Session::OnHeader(std::size_t length)
{
    server_.requests.fetch_add(1, std::memory_order_relaxed);
    headerEnd_ = Clock::now();
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(length));
    parser_->body_limit(boost::none);
    boost::system::error_code error;
    parser_->put(net::const_buffer(buffer_.data().data(), length), error);
    buffer_.consume(length);
    if (error || !parser_->is_header_done()) {
        const bool version = error == http::error::bad_version;
        SendProblem(Refusal(version ? 505 : 400, version ? "the HTTP version is not 1.0 or 1.1"
                                                         : "the request's header is malformed: " + error.message()),
                    true);
        return;
    }
    const boost::beast::string_view target = parser_->get().target();
    path_.assign(target.data(), std::min(target.find('?'), target.size()));
    try {
        head_ = ReadHead(parser_->get(), parser_->keep_alive());
    } catch (const Refusal& refusal) {
        // Where this request ends, and the next one begins, cannot be told for sure.
        SendProblem(refusal, true);
        return;
    }
    Dispatcher::Outcome outcome;
    try {
        outcome = Examine();
    } catch (const std::exception& failure) {
        outcome = MakeProblem(failure, false, path_);
    }
    if (auto* request = std::get_if<NoticeRequest>(&outcome)) {
        BeginStream(*request);
    } else if (auto* reply = std::get_if<Reply>(&outcome)) {
        if (!head_.HasBody()) {
            Send(std::move(*reply));
        } else if (reply->status != 413 && !head_.chunked && !head_.expect &&
                   *head_.contentLength <= DroppedBodyBytes) {
            refusal_ = std::move(*reply);
            BeginBody();
        } else {
            reply->close = true;
            Send(std::move(*reply));
        }
    } else {
        task_.emplace(std::move(std::get<Task>(outcome)));
        if (head_.HasBody()) {
            task_->immediate.reset();
            BeginBody();
        } else {
            CarryOut();
        }
    }
}

Dispatcher::Outcome Session::Examine()
{
    Target target = ParseTarget(head_.target);
    path_ = target.path;
    server_.gate->Check(head_, target, reached_);
    if (head_.verb == Verb::Other) {
        throw Refusal(501, "the method \"" + std::string(parser_->get().method_string()) + "\" is none of " +
                               std::string(AllVerbs));
    }
    if (head_.expect && !EqualNoCase(*head_.expect, "100-continue")) {
        throw Refusal(417, "the only expectation that can be met is \"100-continue\"");
    }
    if (target.path == PrivateLogPath) {
        return ExaminePrivateLog(head_, IsTrusted());
    }
    return server_.dispatcher.Examine(head_, std::move(target));
}

/// Whether the client has shown the token, which the gate has seen to, or is on this machine.
bool Session::IsTrusted() const
{
    boost::system::error_code error;
    return !server_.options.token.empty() ||
           IsLoopback(NormalAddress(socket_.remote_endpoint(error).address().to_string()));
}

void Session::BeginBody()
{
    BoundedBody::value_type& body = parser_->get().body();
    body.limit = refusal_ ? DroppedBodyBytes : server_.options.bodyBytes;
    body.discard = refusal_ || !task_->bodyMedia;
    parser_->eager(true);
    state_ = State::Body;
    bodyBegin_ = now_;
    AccountBody();
    if (head_.expect && head_.http11 && buffer_.size() == 0) {
        constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
        boost::system::error_code error;
        if (socket_.write_some(net::buffer(goOn), error) != goOn.size()) {
            Close();
        }
    }
}

/// Notes what has arrived of the body: in the server's sum, and for the deadline, which counts from the header's end.
void Session::AccountBody()
{
    const HttpServerOptions& options = server_.options;
    const BoundedBody::value_type& body = parser_->get().body();
    server_.bodyBytes += body.bytes.size() - accounted_;
    accounted_ = body.bytes.size();
    const std::uint64_t expected = head_.contentLength.value_or(body.received);
    const std::chrono::milliseconds transfer(expected * 1000 / options.bodyBytesPerSecond);
    deadline_ = bodyBegin_ + options.bodyDeadline + transfer;
}

void Session::ReleaseBody()
{
    server_.bodyBytes -= std::exchange(accounted_, 0);
    refusal_.reset();
}

bool Session::ReadBody()
{
    boost::system::error_code error;
    buffer_.consume(parser_->put(buffer_.data(), error));
    AccountBody();
    if (error == http::error::body_limit) {
        SendProblem(Refusal(413, "the body is larger than " + std::to_string(server_.options.bodyBytes) + " bytes"),
                    true);
    } else if (error && error != http::error::need_more) {
        SendProblem(Refusal(400, "the body's framing is malformed: " + error.message()), true);
    } else if (server_.bodyBytes > server_.options.allBodyBytes) {
        Reply reply = TooBusy("the server holds too many bodies at present");
        reply.close = true;
        Send(std::move(reply));
    } else if (parser_->is_done()) {
        if (refusal_) {
            Send(std::move(*refusal_));
        } else {
            CarryOut();
        }
    } else if (buffer_.size() >= BodyReadBytes) {
        SendProblem(Refusal(400, "the body's framing is malformed"), true);
    } else {
        Read();
        return false;
    }
    return true;
}

// Carrying out

void Session::CarryOut()
{
    if (task_->immediate) {
        std::optional<Reply> reply = server_.dispatcher.TryPerform(*task_);
        task_->immediate.reset();
        if (reply) {
            Send(std::move(*reply));
            return;
        }
    }
    body_ = std::move(parser_->get().body().bytes);
    state_ = State::Working;
    if (!server_.workers.TryPost(Self())) {
        state_ = State::Body;
        Send(TooBusy(server_.stopping ? "the server is stopping" : "the server has too many requests to carry out"));
    }
}

void Session::Run() noexcept
{
    try {
        Finish(server_.dispatcher.Perform(*task_, std::move(body_)));
    } catch (...) {
        // Not even the answer to a failure could be made.
        Reply reply;
        reply.status = 500;
        Finish(std::move(reply));
    }
}

void Session::Refuse() noexcept
{
    Reply reply;
    try {
        reply = TooBusy("the server is stopping");
    } catch (...) {
        reply.status = 503;
    }
    Finish(std::move(reply));
}

void Session::Finish(Reply reply) noexcept
{
    reply_ = std::move(reply);
    answered_.store(true, std::memory_order_release);
    try {
        net::post(server_.io, [self = Self()] { self->OnAnswered(); });
    } catch (...) {
        // The next sweep finds the answer.
    }
}

void Session::OnAnswered()
{
    if (!answered_.exchange(false, std::memory_order_acquire) || state_ == State::Closed) {
        return;
    }
    now_ = Clock::now();
    try {
        Send(std::move(reply_));
    } catch (const std::exception& failure) {
        Vx::LogException(VX_HERE, failure);
        Close();
        return;
    }
    Drive();
}

void Session::BeginStream(const NoticeRequest& request)
{
    if (!server_.notices.HasRoom()) {
        Send(TooBusy("the server has too many notice streams"));
        return;
    }
    const auto stream = std::make_shared<NoticeStream>(server_, std::move(socket_), request.root);
    stream->Start(request.lastEventId);
    Close();
}

// Answering

void Session::SendProblem(const std::exception& error, bool close)
{
    Reply reply = MakeProblem(error, false, path_);
    reply.close = close;
    Send(std::move(reply));
}

void Session::Send(Reply reply)
{
    keep_ = head_.keepAlive && !reply.close && !server_.stopping;
    linger_ = reply.close && !server_.stopping;
    std::string_view connection = "close";
    if (keep_) {
        connection = head_.http11 ? "" : "keep-alive";
    }
    answerHead_.clear();
    AppendHead(answerHead_, reply, connection, server_.dateLine);
    reply_ = std::move(reply);
    answerBody_ = head_.verb == Verb::Head ? std::string_view() : reply_.body.View();
    if (answerBody_.size() <= JoinedBodyBytes) {
        answerHead_ += answerBody_;
        answerBody_ = {};
    }
    answerSent_ = 0;
    server_.answers.CountStatus(reply_.status);
    if (headerEnd_) {
        server_.answers.CountDuration(Clock::now() - *headerEnd_);
        headerEnd_.reset();
    }
    state_ = State::Writing;
    SetDeadline(server_.options.writeDeadline);
    Flush();
}

void Session::Flush()
{
    const std::size_t size = answerHead_.size() + answerBody_.size();
    for (std::size_t turn = 0; answerSent_ < size;) {
        const std::size_t ofBody = answerSent_ - std::min(answerSent_, answerHead_.size());
        const std::array<net::const_buffer, 2> rest = {net::buffer(answerHead_) + answerSent_,
                                                       net::buffer(answerBody_) + ofBody};
        boost::system::error_code error;
        const std::size_t sent =
            answerBody_.empty() ? socket_.write_some(rest[0], error) : socket_.write_some(rest, error);
        answerSent_ += sent;
        turn += sent;
        const auto resume = [self = Self()](const boost::system::error_code& failed = {}) {
            if (self->state_ != State::Writing) {
                return;
            }
            if (failed) {
                self->Close();
                return;
            }
            self->now_ = Clock::now();
            self->Flush();
            self->Drive();
        };
        if (IsWaiting(error)) {
            socket_.async_wait(Socket::wait_write, resume);
            return;
        }
        if (error) {
            Close();
            return;
        }
        if (turn >= WriteTurnBytes) {
            net::post(server_.io, resume);
            return;
        }
    }
    OnWritten();
}

void Session::OnWritten()
{
    ReleaseBody();
    reply_ = Reply();
    answerBody_ = {};
    parser_.reset();
    if (keep_) {
        if (buffer_.size() == 0 && buffer_.capacity() > 2 * HeaderReadBytes) {
            buffer_ = boost::beast::flat_buffer();
        }
        state_ = State::Idle;
        SetDeadline(server_.options.idleDeadline);
    } else if (linger_) {
        Linger();
    } else {
        Close();
    }
}

/// Ends our direction and drops what the client still sends: closing at once would destroy the answer on its way.
void Session::Linger()
{
    boost::system::error_code ignored;
    socket_.shutdown(Socket::shutdown_send, ignored);
    state_ = State::Lingering;
    SetDeadline(LingerTime);
    buffer_.consume(buffer_.size());
    Read();
}

}  // namespace VxRest::Http
