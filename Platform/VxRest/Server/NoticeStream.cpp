#include "NoticeStream.h"

#include <utility>

#include <VxRest/Path.h>

#include "ServerState.h"

namespace VxRest::Http
{

namespace
{

/// Kept small, so that a client that does not read is noticed.
constexpr int SendBufferBytes = 64 * 1024;

constexpr std::string_view FirstComment = ": connected\n\n";
constexpr std::string_view Heartbeat = ":\n\n";

}  // namespace

NoticeStream::NoticeStream(ServerState& server, Socket socket, std::string root)
    : server_(server), socket_(std::move(socket)), root_(std::move(root))
{}

void NoticeStream::Start(const std::optional<std::string>& lastEventId)
{
    boost::system::error_code ignored;
    socket_.set_option(net::socket_base::send_buffer_size(SendBufferBytes), ignored);
    Append("HTTP/1.1 200 OK\r\n");
    Append(server_.dateLine);
    Append(
        "Content-Type: text/event-stream\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
        "Connection: close\r\n\r\n");
    Append(FirstComment);
    nextHeartbeat_ = std::chrono::steady_clock::now() + server_.options.noticeHeartbeat;
    server_.Enter(shared_from_this());
    server_.notices.Join(Self(), lastEventId);
    Flush();
    if (!closed_) {
        Watch();
    }
}

void NoticeStream::Offer(const NumberedNotice& notice)
{
    if (Path::IsWithin(root_, notice.path)) {
        OfferEvent(notice.event);
    }
}

void NoticeStream::OfferEvent(std::string_view event)
{
    if (closed_) {
        return;
    }
    waiting_ += event;
    if (++waitingEvents_ <= server_.options.noticeQueue) {
        return;
    }
    Flush();
    if (waitingEvents_ > server_.options.noticeQueue) {
        server_.notices.CountSlowClient();
        Close();
    }
}

void NoticeStream::Flush()
{
    if (closed_ || blocked_ || waiting_.empty()) {
        return;
    }
    writing_.swap(waiting_);
    waiting_.clear();
    waitingEvents_ = 0;
    written_ = 0;
    writeDeadline_ = std::chrono::steady_clock::now() + server_.options.writeDeadline;
    Write();
}

void NoticeStream::Write()
{
    while (written_ < writing_.size()) {
        boost::system::error_code error;
        written_ += socket_.write_some(net::buffer(writing_) + written_, error);
        if (error == net::error::would_block) {
            blocked_ = true;
            socket_.async_wait(Socket::wait_write, [self = Self()](const boost::system::error_code& failed) {
                self->blocked_ = false;
                if (failed || self->closed_) {
                    self->Close();
                    return;
                }
                self->Write();
                self->Flush();
            });
            return;
        }
        if (error) {
            Close();
            return;
        }
    }
}

void NoticeStream::Watch()
{
    socket_.async_read_some(net::buffer(ignored_),
                            [self = Self()](const boost::system::error_code& error, std::size_t /*bytes*/) {
                                if (error) {
                                    self->Close();
                                } else if (!self->closed_) {
                                    self->Watch();
                                }
                            });
}

void NoticeStream::Sweep(TimePoint now)
{
    if (blocked_) {
        if (now >= writeDeadline_) {
            server_.notices.CountSlowClient();
            Close();
        }
    } else if (now >= nextHeartbeat_) {
        nextHeartbeat_ = now + server_.options.noticeHeartbeat;
        Append(Heartbeat);
        Flush();
    }
}

void NoticeStream::Close()
{
    if (std::exchange(closed_, true)) {
        return;
    }
    boost::system::error_code ignored;
    socket_.close(ignored);
    server_.notices.Leave(*this);
    server_.Leave(shared_from_this());
}

}  // namespace VxRest::Http
