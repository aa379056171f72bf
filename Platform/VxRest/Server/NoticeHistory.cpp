#include "NoticeHistory.h"

#include <charconv>

#include <nlohmann/json.hpp>

#include <VxRest/Path.h>

namespace VxRest::Http
{

namespace
{

std::string_view EventName(EventType type)
{
    switch (type) {
        case EventType::Created:
            return "created";
        case EventType::Updated:
            return "updated";
        case EventType::Deleted:
            break;
    }
    return "deleted";
}

std::string FormatEvent(std::uint64_t id, std::string_view name, const nlohmann::json& data)
{
    std::string event = "id: " + std::to_string(id) + "\nevent: ";
    event += name;
    event += "\ndata: ";
    event += data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    event += "\n\n";
    return event;
}

}  // namespace

const NumberedNotice& NoticeHistory::Add(const Notice& notice)
{
    NumberedNotice numbered{lastId_ + 1, notice.path, {}};
    numbered.event = FormatEvent(numbered.id, EventName(notice.type),
                                 {{"type", static_cast<std::int32_t>(notice.type)}, {"path", notice.path}});
    if (limit_ == 0) {
        forgottenId_ = lastId_ = numbered.id;
        return unkept_ = std::move(numbered);
    }
    kept_.push_back(std::move(numbered));
    lastId_ = kept_.back().id;
    if (kept_.size() > limit_) {
        forgottenId_ = kept_.front().id;
        kept_.pop_front();
    }
    return kept_.back();
}

void NoticeHistory::Forget()
{
    kept_.clear();
    forgottenId_ = ++lastId_;
}

std::string NoticeHistory::Replay(std::string_view lastEventId, std::string_view root) const
{
    std::uint64_t seen = 0;
    const auto [end, error] = std::from_chars(lastEventId.data(), lastEventId.data() + lastEventId.size(), seen);
    if (error != std::errc() || end != lastEventId.data() + lastEventId.size() || seen > lastId_ ||
        seen < forgottenId_) {
        return ResetEvent();
    }
    std::string events;
    for (const NumberedNotice& notice : kept_) {
        if (notice.id > seen && Path::IsWithin(root, notice.path)) {
            events += notice.event;
        }
    }
    return events;
}

std::string NoticeHistory::ResetEvent() const
{
    return FormatEvent(lastId_, "reset", nlohmann::json::object());
}

}  // namespace VxRest::Http
