#include "NoticeHub.h"

#include <algorithm>
#include <chrono>

#include <boost/asio/post.hpp>

#include "NoticeStream.h"

namespace VxRest::Http
{

namespace
{

/// Notices that may wait for the I/O thread; far more than one round of it takes.
constexpr std::size_t QueueLimit = 65'536;

/// Grows by some thousand for every millisecond between two starts, and stays exact in a double.
std::uint64_t FirstId()
{
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return static_cast<std::uint64_t>(std::max<std::int64_t>(now, 0)) * 1024;
}

}  // namespace

NoticeHub::NoticeHub(net::io_context& io, const HttpServerOptions& options)
    : maxStreams_(options.noticeStreams),
      queue_(std::make_shared<NoticeQueue>(QueueLimit, [this, &io] { net::post(io, [this] { Deliver(); }); })),
      history_(options.noticeHistory, FirstId())
{}

void NoticeHub::Deliver()
{
    NoticeQueue::Batch batch = queue_->Take(!streams_.empty());
    batch.lost |= interrupted_;
    if (batch.notices.empty() && !batch.lost) {
        return;
    }
    interrupted_ = true;
    // A stream that is cut off leaves while the others are served.
    const std::vector<std::shared_ptr<NoticeStream>> streams = streams_;
    if (batch.lost) {
        history_.Forget();
        for (const auto& stream : streams) {
            stream->OfferEvent(history_.ResetEvent());
        }
    }
    for (const Notice& notice : batch.notices) {
        const NumberedNotice& numbered = history_.Add(notice);
        for (const auto& stream : streams) {
            stream->Offer(numbered);
        }
    }
    interrupted_ = false;
    for (const auto& stream : streams) {
        stream->Flush();
    }
}

void NoticeHub::Join(const std::shared_ptr<NoticeStream>& stream, const std::optional<std::string>& lastEventId)
{
    // What was raised before belongs to the history, not to the new stream.
    Deliver();
    if (lastEventId) {
        stream->Append(history_.Replay(*lastEventId, stream->Root()));
    }
    streams_.push_back(stream);
    CountStreams();
    // Tells the queue that somebody listens now; what was raised since the first call is the stream's already.
    Deliver();
}

void NoticeHub::Leave(const NoticeStream& stream)
{
    std::erase_if(streams_, [&](const auto& other) { return other.get() == &stream; });
    CountStreams();
}

}  // namespace VxRest::Http
