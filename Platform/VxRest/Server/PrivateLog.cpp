#include "PrivateLog.h"

#include <array>
#include <condition_variable>
#include <utility>

#include <Nucleo/Lock.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxRest/HttpServer.h>

namespace VxRest::Http
{

namespace
{

constexpr std::string_view TextType = "text/plain; charset=utf-8";

thread_local bool insideHandler = false;

/// The process's handler and the calls of it that are running.
class HandlerSlot
{
public:
    bool IsSet()
    {
        const Nucleo::MutexGuard guard(mutex_);
        return handler_ != nullptr;
    }

    Nucleo::Status Set(VrPrivateLogFx handler, VrPrivateLogFx* previous)
    {
        if (insideHandler) {
            return Nucleo::ERROR_STATE;
        }
        const Nucleo::MutexGuard guard(mutex_);
        while (changing_) {
            changed_.wait(mutex_);
        }
        changing_ = true;
        const VrPrivateLogFx replaced = std::exchange(handler_, handler);
        // Calls of the new handler, which may begin at once, are not waited for.
        const std::size_t generation = std::exchange(generation_, 1 - generation_);
        while (running_[generation] != 0) {
            changed_.wait(mutex_);
        }
        changing_ = false;
        changed_.notify_all();
        if (previous != nullptr) {
            *previous = replaced;
        }
        return Nucleo::OK;
    }

    /// Throws Refusal (404) when there is no handler.
    Nucleo::Status Call(Nucleo::Stream& stream)
    {
        const Running running(*this);
        return running.handler(&stream);
    }

private:
    struct Running
    {
        explicit Running(HandlerSlot& of) : slot(of)
        {
            const Nucleo::MutexGuard guard(slot.mutex_);
            if (slot.handler_ == nullptr) {
                throw Refusal(404, "no private log is kept");
            }
            handler = slot.handler_;
            generation = slot.generation_;
            ++slot.running_[generation];
            insideHandler = true;
        }
        ~Running()
        {
            insideHandler = false;
            const Nucleo::MutexGuard guard(slot.mutex_);
            --slot.running_[generation];
            slot.changed_.notify_all();
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

        HandlerSlot& slot;
        VrPrivateLogFx handler = nullptr;
        std::size_t generation = 0;
    };

    Nucleo::Mutex mutex_;
    std::condition_variable_any changed_;
    VrPrivateLogFx handler_ VX_GUARDED_BY(mutex_) = nullptr;
    bool changing_ VX_GUARDED_BY(mutex_) = false;                    // Somebody waits in Set.
    std::size_t generation_ VX_GUARDED_BY(mutex_) = 0;               // Of calls that begin now.
    std::array<std::size_t, 2> running_ VX_GUARDED_BY(mutex_) = {};  // Calls of each generation.
};

// Never destroyed: a handler may be taken back while the process ends.
HandlerSlot& Slot()
{
    static auto* slot = new HandlerSlot;
    return *slot;
}

Reply MakePage()
{
    Nucleo::Handle<Nucleo::MemoryStream> stream;
    Nucleo::Status status = Nucleo::MemoryStream_Construct(stream.Receive());
    if (status == Nucleo::OK) {
        status = Slot().Call(*stream);
    }
    if (status != Nucleo::OK) {
        const std::string reason(Nucleo::StatusText(status));
        Vx_Debug_Log(Error, "The private log cannot be shown (%s).", reason);
        return MakeProblem(500, status, "the private log cannot be shown: " + reason, PrivateLogPath);
    }
    Reply reply;
    reply.status = 200;
    reply.mediaType = TextType;
    reply.body = EncodedBody(CleanText({reinterpret_cast<const char*>(stream->Data()), stream->Length()}));
    return reply;
}

}  // namespace

Dispatcher::Outcome ExaminePrivateLog(const RequestHead& head, bool trusted)
{
    constexpr std::string_view allowed = "OPTIONS, GET, HEAD";
    if (!trusted) {
        throw Refusal(403, "the private log is shown on the loopback address alone, or with the server's token");
    }
    if (!Slot().IsSet()) {
        throw Refusal(404, "no private log is kept");
    }
    if (head.verb == Verb::Options) {
        Reply reply;
        reply.AddField("Allow", allowed);
        return reply;
    }
    if (head.verb != Verb::Get && head.verb != Verb::Head) {
        throw Refusal(405, "the private log can only be read").With("Allow", allowed);
    }
    if (AcceptQuality(head.accept, "text/plain") == 0) {
        throw Refusal(406, "the private log can be had as text/plain");
    }
    return Task{
        Operation::Document, RequestInfo(std::string(PrivateLogPath), {}), Acceptance(head.accept), {}, {}, &MakePage};
}

}  // namespace VxRest::Http

Nucleo::Status VrHttpServer_SetPrivateLogHandler(VrPrivateLogFx handler, VrPrivateLogFx* previous)
{
    try {
        return VxRest::Http::Slot().Set(handler, previous);
    } catch (const std::exception& error) {
        return Vx::StatusOf(error);
    }
}
