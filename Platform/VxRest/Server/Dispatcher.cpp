#include "Dispatcher.h"

#include <stdexcept>
#include <utility>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

#include "Hal.h"
#include "Text.h"

namespace VxRest::Http
{

namespace
{

using nlohmann::json;

/// The field that a body of application/octet-stream stands for.
constexpr const char* OctetsField = "content";

/// The verbs that a path takes, as a field value. `without`: an operation that has just turned out to be refused.
std::string AllowedVerbs(const ResourceRouter::Match& match, std::optional<Operation> without = std::nullopt)
{
    const auto allows = [&](Operation operation) { return operation != without && match.Allows(operation); };
    std::string verbs = "OPTIONS";
    if (allows(Operation::Document)) {
        verbs += ", GET, HEAD";
    }
    if (allows(Operation::UpdateDocument)) {
        verbs += ", PUT, PATCH";
    }
    if (allows(Operation::Create) || allows(Operation::Invoke)) {
        verbs += ", POST";
    }
    if (allows(Operation::Delete)) {
        verbs += ", DELETE";
    }
    return verbs;
}

/// The operation that a verb asks of a path; nothing when the path does not take the verb.
std::optional<Operation> OperationOf(Verb verb, const ResourceRouter::Match& match)
{
    const auto ifAllowed = [&](Operation operation) {
        return match.Allows(operation) ? std::optional(operation) : std::nullopt;
    };
    switch (verb) {
        case Verb::Get:
        case Verb::Head:
            return ifAllowed(Operation::Document);
        case Verb::Put:
        case Verb::Patch:
            return ifAllowed(Operation::UpdateDocument);
        case Verb::Post:
            return match.Allows(Operation::Create) ? Operation::Create : ifAllowed(Operation::Invoke);
        case Verb::Delete:
            return ifAllowed(Operation::Delete);
        default:
            return std::nullopt;
    }
}

bool HasResult(Operation operation)
{
    return operation != Operation::UpdateDocument && operation != Operation::Delete;
}

bool TakesBody(Operation operation)
{
    return operation != Operation::Document && operation != Operation::Delete;
}

Refusal UnsupportedBody(std::string detail)
{
    return Refusal(415, std::move(detail) + "; taken are " + std::string(BodyMediaTypes))
        .With("Accept", BodyMediaTypes);
}

void CheckBody(const RequestHead& head, std::uint64_t bodyBytes)
{
    if (head.contentLength.value_or(0) > bodyBytes) {
        throw Refusal(413, "the body is larger than " + std::to_string(bodyBytes) + " bytes");
    }
    if (head.ChangesState() && head.HasBody() && !head.contentType) {
        throw UnsupportedBody("the body has no declared media type");
    }
    if (head.contentEncoding && !EqualNoCase(*head.contentEncoding, "identity")) {
        throw Refusal(415, "content codings are not understood").With("Accept-Encoding", "identity");
    }
}

Reply MakeResult(unsigned status, json&& value, const Acceptance& acceptance)
{
    // A result that was acted for is sent in any case.
    const Media media = acceptance.BestStructured().value_or(Media::Json);
    Reply reply;
    reply.status = status;
    reply.mediaType = MediaName(media);
    reply.body = EncodeBody(std::move(value), media);
    return reply;
}

Reply MakeText(ResponseInfo::TextBody text, const Acceptance& acceptance)
{
    if (!acceptance.Takes(text.mediaType)) {
        throw Refusal(406, "this document can be had as " + text.mediaType);
    }
    Reply reply;
    reply.status = 200;
    reply.AddField("Content-Type", text.mediaType);
    reply.body = EncodedBody(std::move(text.text));
    return reply;
}

Reply MakeDocument(json document, const Task& task, ResponseInfo& response)
{
    if (std::optional<ResponseInfo::TextBody> text = response.TakeText()) {
        return MakeText(std::move(*text), task.acceptance);
    }
    json::binary_t* bytes = task.acceptance.TakesOctets() ? OnlyBinaryField(document) : nullptr;
    if (bytes != nullptr && task.acceptance.PrefersOctets()) {
        Reply reply;
        reply.status = 200;
        reply.mediaType = MediaName(Media::Octets);
        reply.body = EncodedBody(std::vector<std::uint8_t>(std::move(*bytes)));
        return reply;
    }
    const std::optional<Media> media = task.acceptance.BestStructured();
    if (!media) {
        throw Refusal(406, "this document can be had as application/json, application/cbor or application/msgpack");
    }
    Reply reply;
    reply.status = 200;
    reply.mediaType = MediaName(*media);
    reply.body = EncodeDocument(std::move(document), task.request.Path(), response, *media);
    return reply;
}

Reply MakeCreated(const CreateResult& created, const Task& task)
{
    Reply reply = MakeResult(201, {{"id", created.id}, {"path", created.path}}, task.acceptance);
    reply.AddField("Location", created.path);
    return reply;
}

Reply MakeFailure(const std::exception& error, const Task& task)
{
    Reply reply = MakeProblem(error, task.bodyMedia.has_value(), task.request.Path());
    if (reply.status >= 500) {
        Vx_Debug_Log(Error, "A request of \"%s\" failed.", task.request.Path());
        Vx::LogException(VX_HERE, error);
    }
    return reply;
}

}  // namespace

Dispatcher::Outcome Dispatcher::Examine(const RequestHead& head, Target target) const
{
    if (target.path == "*") {
        if (head.verb != Verb::Options) {
            throw Refusal(400, "the target \"*\" is for OPTIONS alone");
        }
        Reply reply;
        reply.AddField("Allow", AllVerbs);
        return reply;
    }
    if (target.path == NoticePath) {
        return ExamineNotices(head, target);
    }
    ResourceRouter::Match match = router_.Find(target.path);
    if (head.verb == Verb::Options) {
        Reply reply;
        reply.AddField("Allow", AllowedVerbs(match));
        return reply;
    }
    const std::optional<Operation> operation = OperationOf(head.verb, match);
    if (!operation) {
        throw Refusal(405, "this path does not take the request's method").With("Allow", AllowedVerbs(match));
    }
    Acceptance acceptance(head.accept);
    // What a document can be had as shows when it is there: bytes or a text may do.
    if (HasResult(*operation) && *operation != Operation::Document && !acceptance.BestStructured()) {
        throw Refusal(406, "what this path can answer is application/json, application/cbor or application/msgpack");
    }
    CheckBody(head, bodyBytes_);
    std::optional<Media> bodyMedia;
    if (TakesBody(*operation) && head.contentType) {
        bodyMedia = ParseContentType(*head.contentType);
        if (!bodyMedia) {
            throw UnsupportedBody("the body's media type \"" + std::string(*head.contentType) + "\" is not understood");
        }
    }
    Task task{*operation, RequestInfo(std::move(target.path), match.Keys(), std::move(target.args), target.schema),
              std::move(acceptance), bodyMedia, std::nullopt};
    task.argTexts = std::move(target.texts);
    if (*operation == Operation::Document && match.Resource().IsImmediate()) {
        task.immediate.emplace(std::move(match));
    }
    return task;
}

Dispatcher::Outcome Dispatcher::ExamineNotices(const RequestHead& head, const Target& target) const
{
    constexpr std::string_view allowed = "OPTIONS, GET, HEAD";
    Reply reply;
    if (head.verb == Verb::Options) {
        reply.AddField("Allow", allowed);
        return reply;
    }
    if (head.ChangesState()) {
        throw Refusal(405, "change notices can only be read").With("Allow", allowed);
    }
    if (AcceptQuality(head.accept, EventStreamType) == 0) {
        throw Refusal(406, "change notices can be had as text/event-stream");
    }
    NoticeRequest request;
    if (const auto root = target.args.find("path"); root != target.args.end()) {
        if (!root->is_string() || !root->get_ref<const std::string&>().starts_with('/')) {
            throw Refusal(400, "the argument \"path\" must be a path that begins with \"/\"");
        }
        request.root = root->get<std::string>();
    }
    if (head.verb == Verb::Head) {
        reply.status = 200;
        reply.mediaType = EventStreamType;
        reply.close = true;
        return reply;
    }
    request.lastEventId = head.lastEventId;
    return request;
}

json Dispatcher::DecodeTaskBody(const Task& task, const ResourceBase& resource, std::vector<std::uint8_t> body) const
{
    if (task.bodyMedia == Media::Octets) {
        json document = task.request.Args();
        for (auto& [name, value] : document.items()) {
            if (resource.IsTextField(name)) {
                value = task.argTexts.at(name);
            }
        }
        if (!document.emplace(OctetsField, json::binary(std::move(body))).second) {
            throw Refusal(400, "the argument \"content\" is given beside a body that stands for it");
        }
        return document;
    }
    if (!task.bodyMedia || (body.empty() && task.operation == Operation::Invoke)) {
        return nullptr;
    }
    return DecodeBody(*task.bodyMedia, body, codec_);
}

Reply Dispatcher::Call(const Task& task, const ResourceRouter::Match& match, std::vector<std::uint8_t> body) const
{
    const RequestInfo& request = task.request;
    const auto document = [&] { return DecodeTaskBody(task, match.Resource(), std::move(body)); };
    switch (task.operation) {
        case Operation::Document: {
            ResponseInfo response;
            return MakeDocument(match.Document(request, response), task, response);
        }
        case Operation::UpdateDocument:
            match.UpdateDocument(request, document());
            break;
        case Operation::Create:
            return MakeCreated(match.Create(request, document()), task);
        case Operation::Delete:
            match.Delete(request);
            break;
        case Operation::Invoke:
            if (json result = match.Invoke(request, document()); !result.is_null()) {
                return MakeResult(200, std::move(result), task.acceptance);
            }
            break;
    }
    return Reply();
}

Reply Dispatcher::Perform(const Task& task, std::vector<std::uint8_t> body) const
{
    try {
        if (task.page != nullptr) {
            return task.page();
        }
        const ResourceRouter::Match match = router_.Find(task.request.Path());
        try {
            return Call(task, match, std::move(body));
        } catch (const Vx::Exception& error) {
            if (error.Status() != Nucleo::ERROR_UNSUPPORTED) {
                throw;
            }
            if (task.operation == Operation::Invoke) {
                // A command takes its method: what it was given, or what that names, is not supported.
                return MakeProblem(422, error.Status(), error.what(), task.request.Path());
            }
            Reply reply = MakeFailure(error, task);
            reply.AddField("Allow", AllowedVerbs(match, task.operation));
            return reply;
        }
    } catch (const std::exception& error) {
        return MakeFailure(error, task);
    } catch (...) {
        return MakeFailure(std::runtime_error("the request failed for an unknown reason"), task);
    }
}

std::optional<Reply> Dispatcher::TryPerform(const Task& task) const
{
    try {
        ResponseInfo response;
        json document;
        if (!task.immediate->TryDocument(task.request, response, document)) {
            return std::nullopt;
        }
        return MakeDocument(std::move(document), task, response);
    } catch (const std::exception& error) {
        return MakeFailure(error, task);
    } catch (...) {
        return MakeFailure(std::runtime_error("the request failed for an unknown reason"), task);
    }
}

}  // namespace VxRest::Http
