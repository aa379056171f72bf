#pragma once
// Turns requests into calls of resources and their outcome into answers. Knows no sockets. Safe on any thread.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include <VxRest/ResourceRouter.h>

#include "Codec.h"
#include "MediaType.h"
#include "Reply.h"
#include "RequestHead.h"
#include "Target.h"

namespace VxRest::Http
{

/// The path of the change notices, which the server answers itself.
inline constexpr std::string_view NoticePath = "/notifications";

/// A request that was found to be in order, ready to be carried out once its body has arrived.
struct Task
{
    Operation operation;
    RequestInfo request;
    Acceptance acceptance;
    std::optional<Media> bodyMedia;  ///< Absent: the body, if any, is not looked at.

    /// Set when the answer may be given on the I/O thread. Holds the resource, so it is not kept while anything waits.
    std::optional<ResourceRouter::Match> immediate;

    /// Makes the answer, on a worker, where a page of the server's own was asked for and no resource.
    Reply (*page)() = nullptr;

    /// The arguments of `request` as they were written.
    std::map<std::string, std::string> argTexts = {};
};

/// A request for change notices.
struct NoticeRequest
{
    std::string root;                        ///< The sub-tree that is asked for.
    std::optional<std::string> lastEventId;  ///< As it came.
};

class Dispatcher
{
public:
    using Outcome = std::variant<Reply, Task, NoticeRequest>;

    Dispatcher(ResourceRouter& router, CodecLimits codec, std::uint64_t bodyBytes)
        : router_(router), codec_(codec), bodyBytes_(bodyBytes)
    {}

    /// Decides from the header alone what becomes of a request. Throws Refusal and Vx::Exception.
    Outcome Examine(const RequestHead& head, Target target) const;

    /// Carries a task out. Failures become problem documents; those of the 5xx kind are logged.
    Reply Perform(const Task& task, std::vector<std::uint8_t> body) const;

    /// The same for a task with `immediate` set; nothing when another request holds the resource's sub-tree.
    std::optional<Reply> TryPerform(const Task& task) const;

private:
    Outcome ExamineNotices(const RequestHead& head, const Target& target) const;
    nlohmann::json DecodeTaskBody(const Task& task, const ResourceBase& resource, std::vector<std::uint8_t> body) const;
    Reply Call(const Task& task, const ResourceRouter::Match& match, std::vector<std::uint8_t> body) const;

    ResourceRouter& router_;
    const CodecLimits codec_;
    const std::uint64_t bodyBytes_;
};

}  // namespace VxRest::Http
