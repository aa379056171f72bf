#pragma once
// The notices of the recent past, as Server-Sent Events. One thread at a time.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "NoticeQueue.h"

namespace VxRest::Http
{

/// A notice with its number, ready to be sent.
struct NumberedNotice
{
    std::uint64_t id;
    std::string path;
    std::string event;  ///< The event's text.
};

class NoticeHistory
{
public:
    /// Numbers begin after `origin`. An origin that grows from one start of the process to the next keeps a client from
    /// taking an old number for a new one.
    NoticeHistory(std::size_t limit, std::uint64_t origin) : limit_(limit), lastId_(origin), forgottenId_(origin) {}

    /// Numbers a notice and keeps it. The reference is valid until the next call.
    const NumberedNotice& Add(const Notice& notice);

    /// Forgets everything, because notices were lost: whoever asks for what came before gets a reset.
    void Forget();

    /// What a client that has seen `lastEventId` has missed beneath `root`; a reset event when that is not known any
    /// more or the number is not one of ours.
    std::string Replay(std::string_view lastEventId, std::string_view root) const;

    /// The event that tells a client to read everything anew.
    std::string ResetEvent() const;

private:
    const std::size_t limit_;
    std::uint64_t lastId_;
    std::uint64_t forgottenId_;  ///< The highest number that cannot be replayed any more.
    std::deque<NumberedNotice> kept_;
    NumberedNotice unkept_;  ///< The last one when nothing is kept.
};

}  // namespace VxRest::Http
