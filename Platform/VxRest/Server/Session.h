#pragma once
// One connection: reads requests, has them carried out, writes answers, one after the other. Belongs to the I/O thread,
// but for the work that a worker does meanwhile.

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>

#include "BodyReader.h"
#include "Dispatcher.h"
#include "HeaderScan.h"
#include "Peer.h"
#include "Reply.h"
#include "RequestHead.h"
#include "WorkerPool.h"

namespace VxRest::Http
{

struct ServerState;

class Session final : public Peer, public Work
{
public:
    Session(ServerState& server, Socket socket);

    /// Begins to serve.
    void Start();

    /// Says that the server has too many connections, and ends.
    void StartRefusing();

    void Sweep(TimePoint now) override;
    void Stop() override;
    void Close() override;

    void Run() noexcept override;
    void Refuse() noexcept override;

private:
    enum class State
    {
        Idle,       ///< Between requests.
        Header,     ///< A request has begun.
        Body,       ///< Its header is complete, its body is not.
        Working,    ///< A worker has it.
        Writing,    ///< Its answer is being written.
        Lingering,  ///< The answer is out and was the last one; the client may still be sending.
        Closed,
    };

    // Each of these returns when it has to wait for something.
    void Drive();
    void Read();
    void OnRead(const boost::system::error_code& error, std::size_t bytes);
    void Flush();

    // Steps of a request; false when there is something to wait for.
    bool BeginRequest();
    bool ReadHeader();
    bool ReadBody();

    void OnHeader(std::size_t length);
    Dispatcher::Outcome Examine();
    bool IsTrusted() const;
    void BeginBody();
    void AccountBody();
    void CarryOut();
    void BeginStream(const NoticeRequest& request);
    void OnAnswered();
    void Send(Reply reply);
    void SendProblem(const std::exception& error, bool close);
    void OnWritten();
    void Linger();
    void ReleaseBody();
    void SetDeadline(std::chrono::milliseconds after);
    void Finish(Reply reply) noexcept;
    std::shared_ptr<Session> Self() { return std::static_pointer_cast<Session>(shared_from_this()); }

    using Parser = boost::beast::http::request_parser<BoundedBody>;

    ServerState& server_;
    Socket socket_;
    std::string reached_;  ///< The address that the client used to come here.
    State state_ = State::Idle;
    TimePoint now_ = std::chrono::steady_clock::now();  ///< When the present event began.
    TimePoint deadline_{};
    bool reading_ = false;

    // The request.
    boost::beast::flat_buffer buffer_;
    HeaderScan scan_;
    std::optional<Parser> parser_;
    RequestHead head_;
    std::string path_;
    std::optional<TimePoint> headerEnd_;  ///< Nothing before, and once the answer has been counted.
    TimePoint bodyBegin_{};
    std::uint64_t accounted_ = 0;   ///< Of the body, in the server's sum.
    std::optional<Reply> refusal_;  ///< To be sent once the body has passed by.

    // The worker's while it works, else the I/O thread's.
    std::optional<Task> task_;
    std::vector<std::uint8_t> body_;
    Reply reply_;
    std::atomic<bool> answered_{false};

    // The answer.
    std::string answerHead_;
    std::string_view answerBody_;
    std::size_t answerSent_ = 0;  ///< Of head and body together.
    bool keep_ = false;           ///< Another request may follow.
    bool linger_ = false;         ///< The client may not know yet that none may.
};

}  // namespace VxRest::Http
