#pragma once
// One client that listens to change notices (Server-Sent Events). Belongs to the I/O thread.

#include <array>
#include <cstddef>
#include <string>

#include "Dispatcher.h"
#include "NoticeHistory.h"
#include "Peer.h"

namespace VxRest::Http
{

struct ServerState;

class NoticeStream final : public Peer
{
public:
    NoticeStream(ServerState& server, Socket socket, std::string root);

    /// Sends the answer's header, a first comment, and what the client has missed.
    void Start(const std::optional<std::string>& lastEventId);

    const std::string& Root() const { return root_; }

    /// Adds text that does not count as an event.
    void Append(std::string_view text) { waiting_ += text; }

    /// Takes a notice, if it lies in the stream's sub-tree. A client for which too many events wait is cut off.
    void Offer(const NumberedNotice& notice);
    void OfferEvent(std::string_view event);

    /// Sends what was offered, as far as the client takes it.
    void Flush();

    void Sweep(TimePoint now) override;
    void Stop() override { Close(); }
    void Close() override;

private:
    void Watch();
    void Write();
    std::shared_ptr<NoticeStream> Self() { return std::static_pointer_cast<NoticeStream>(shared_from_this()); }

    ServerState& server_;
    Socket socket_;
    const std::string root_;
    std::array<char, 256> ignored_{};  ///< What the client sends meanwhile.
    std::string waiting_;              ///< Offered, not yet being written.
    std::size_t waitingEvents_ = 0;
    std::string writing_;
    std::size_t written_ = 0;  ///< Of writing_.
    bool blocked_ = false;     ///< The client takes no more at present.
    bool closed_ = false;
    TimePoint writeDeadline_{};
    TimePoint nextHeartbeat_{};
};

}  // namespace VxRest::Http
