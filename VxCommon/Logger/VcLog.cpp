#include <VxCommon/Logger/VcLog.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include <Nucleo/Clock.h>
#include <VxApi/Logging.h>
#include <VxCommon/Logger/VcLogInternal.h>

using namespace Nucleo::Statuses;
using Nucleo::Allocator;
using Nucleo::HealthProbe;
using Nucleo::HeapAllocator;
using Nucleo::Status;

namespace
{

constexpr std::size_t lineCapacity = 256;
constexpr std::string_view lineEnd = "\r\n";

// The heap's exhaustion handler. Raises nothing: the insert that needed the room does it when it is done.
Status VcLog_OnFull(void* receiver)
{
    auto& log = *static_cast<VcLog*>(receiver);
    if (log.entries.Count() == 0) {
        return 0;
    }
    return VxCommon::Internal::VcLogMsg_Drop(*log.entries.TakeFirst(), log.msgHeap) == OK ? 1 : 0;
}

Status InitMsgAllocator(VcLog& log, std::uint64_t capacity, Allocator& allocator)
{
    log.capacity = capacity;
    if (const Status status = allocator.Allocate(capacity, &log.msgMemory); status != OK) {
        return status;
    }
    if (const Status status = log.msgHeap.AddRegion(log.msgMemory, capacity); status != OK) {
        return status;
    }
    log.msgHeap.SetExhaustedHandler(&VcLog_OnFull, &log);
    return OK;
}

Status Init(VcLog& log, std::uint64_t capacity, Allocator& allocator)
{
    // What the smallest message takes: its object and a text of nothing but the NUL.
    constexpr std::size_t smallest = HeapAllocator::BlockSize(sizeof(VcLogMsg) + 1);
    if (capacity < 2 * smallest || capacity > HeapAllocator::LargestRegion) {
        return ERROR_PARAMETER;
    }
    const Status status = InitMsgAllocator(log, capacity, allocator);
    // All the room that the list can ever need, so that it never grows.
    return status == OK ? log.entries.Init(capacity / smallest, allocator) : status;
}

Status DestroyProbe(HealthProbe*& probe)
{
    const Status status = Nucleo::Destroy(probe);
    if (status == OK) {
        probe = nullptr;
    }
    return status;
}

Status VcLog_VRelease(Nucleo::Object* object)
{
    auto& log = static_cast<VcLog&>(*object);
    Status status = DestroyProbe(log.firstProbe);
    if (status == OK) {
        status = DestroyProbe(log.lastProbe);
    }
    while (status == OK && log.entries.Count() > 0) {
        status = Nucleo::Destroy(log.entries.TakeFirst());
    }
    if (status == OK) {
        status = log.entries.Release();
    }
    if (status == OK) {
        log.msgHeap.RemoveRegion();
        status = log.ObjectAllocator().Free(log.msgMemory);
    }
    if (status == OK) {
        log.msgMemory = nullptr;
    }
    return status;
}

std::uint32_t Count32(const VcLog& log)
{
    return static_cast<std::uint32_t>(log.entries.Count());
}

void UpdateIndicators(VcLog& log)
{
    if (log.firstProbe != nullptr) {
        log.firstProbe->SetValue(log.nextId - Count32(log));
    }
    if (log.lastProbe != nullptr) {
        log.lastProbe->SetValue(log.nextId - 1);
    }
}

void OnChanged(VcLog& log, std::uint32_t cleared)
{
    if (log.notifying != 0) {
        return;
    }
    VcLogChangeArgs args{cleared, log.nextId - Count32(log), log.nextId - 1};
    log.notifying = 1;
    log.changeEvent.Raise(&log, &args);
    log.notifying = 0;
}

// The display line with its end, in a buffer of lineCapacity bytes and room for the end.
struct Line
{
    char text[lineCapacity + lineEnd.size()];
    std::size_t length = 0;
};

Status FormatLine(const VcLogMsg& msg, Line* line)
{
    // A plain text has no option word; its severity is shown all the same.
    const std::uint64_t options = msg.options | static_cast<std::uint64_t>(msg.type);
    const Status status =
        Vx::Logging::FormatLogBuffer(msg.dateTime, options, msg.sourceName, msg.text, line->text, lineCapacity);
    if (status == OK) {
        line->length = std::strlen(line->text);
        line->length += lineEnd.copy(line->text + line->length, lineEnd.size());
    }
    return status;
}

Status RenderEscaped(std::string_view text, Nucleo::Stream& stream)
{
    constexpr std::size_t piece = 256;
    Status status = OK;
    for (; !text.empty() && status == OK; text.remove_prefix(std::min(piece, text.size()))) {
        char escaped[4 * piece + 1];  // Each byte may be shown as four.
        Vx::Logging::EscapeText(text.substr(0, piece), escaped, sizeof escaped);
        status = stream.Write(escaped, std::strlen(escaped));
    }
    return status;
}

Status RenderEntry(const VcLogMsg& msg, Nucleo::Stream& stream)
{
    Line line;
    Status status = FormatLine(msg, &line);
    if (status == OK) {
        status = stream.Write(line.text, line.length);
    }
    for (const VcLogMsgArg* arg = msg.firstArg; arg != nullptr && status == OK; arg = arg->next) {
        constexpr std::string_view indent = "    ";
        status = stream.Write(indent.data(), indent.size());
        if (status == OK) {
            status = RenderEscaped(arg->text, stream);
        }
        if (status == OK) {
            status = stream.Write(lineEnd.data(), lineEnd.size());
        }
    }
    return status;
}

}  // namespace

namespace VxCommon::Internal
{

Status VcLog_InsertContent(VcLog& log, const VcLogMsgContent& content)
{
    VcLogMsg* msg = nullptr;
    Status status = VcLogMsg_MakeOneBlock(&msg, log.nextId, content, log.msgHeap);
    if (status == OK) {
        status = log.entries.Append(msg);
    }
    if (status != OK) {
        static_cast<void>(Nucleo::Destroy(msg));
        return status;
    }
    ++log.nextId;
    UpdateIndicators(log);
    OnChanged(log, 0);
    return OK;
}

}  // namespace VxCommon::Internal

const Nucleo::Type& VcLog::StaticType() noexcept
{
    static const Nucleo::Type type{"VcLog", &Nucleo::Object::StaticType(), sizeof(VcLog), &VcLog_VRelease};
    return type;
}

Status VcLog_Construct(VcLog** log, std::uint64_t capacity, Allocator* allocator)
{
    Allocator& source = allocator != nullptr ? *allocator : Nucleo::DefaultAllocator();
    Nucleo::Handle<VcLog> made;
    Status status = Nucleo::Construct(made.Receive(), &source, source);
    if (status == OK) {
        status = Init(*made, capacity, source);
    }
    *log = status == OK ? made.Detach() : nullptr;
    return status;
}

Status VcLog_InitHealthProbe(VcLog* log, std::uint32_t instance, Allocator* allocator)
{
    if (log->firstProbe != nullptr || log->lastProbe != nullptr) {
        return ERROR_STATE;
    }
    Status status = HealthProbe::Make(&log->firstProbe, "Veloxa/Log First", 21301, instance, 0, 0, 1, allocator);
    if (status == OK) {
        status = HealthProbe::Make(&log->lastProbe, "Veloxa/Log Last", 21300, instance, 0, 0, 1, allocator);
    }
    if (status != OK) {
        static_cast<void>(DestroyProbe(log->firstProbe));
        return status;
    }
    UpdateIndicators(*log);
    return OK;
}

Status VcLog_Insert(VcLog* log, std::uint32_t sourceId, std::uint64_t timestamp, VcLogMsgType type, const char* text)
{
    return VxCommon::Internal::VcLog_InsertContent(
        *log, {sourceId, type, timestamp, Nucleo::DateTime_Now(), 0, text != nullptr ? text : ""});
}

Status VcLog_InsertLogArgs(VcLog* log, std::uint32_t sourceId, const Nucleo::LogArgs* logArgs)
{
    return VxCommon::Internal::VcLog_InsertContent(*log, VxCommon::Internal::VcLogMsg_ContentOf(sourceId, *logArgs));
}

Status VcLog_AddArgument(VcLog* log, const char* text, const Nucleo::Type* argType)
{
    if (log->entries.Count() == 0) {
        return ERROR_STATE;
    }
    return VcLogMsg_AddArgument(log->entries.At(log->entries.Count() - 1), text, argType);
}

VcLogMsg* VcLog_At(const VcLog* log, std::size_t index)
{
    return log->entries.At(index);
}

std::size_t VcLog_Count(const VcLog* log)
{
    return log->entries.Count();
}

std::uint64_t VcLog_Capacity(const VcLog* log)
{
    return log->capacity;
}

std::uint32_t VcLog_FirstId(const VcLog* log)
{
    return log->nextId - Count32(*log);
}

std::uint32_t VcLog_LastId(const VcLog* log)
{
    return log->nextId - 1;
}

std::uint32_t VcLog_NextId(const VcLog* log)
{
    return log->nextId;
}

std::int64_t VcLog_Used(const VcLog* log)
{
    return static_cast<std::int64_t>(log->msgHeap.Used());
}

Status VcLog_CopyEntries(const VcLog* log, Nucleo::ArrayList<VcLogMsg*>** list, std::size_t start)
{
    const std::size_t count = log->entries.Count();
    const std::size_t first = start < count ? start : count;
    if (const Status status = Nucleo::ArrayList<VcLogMsg*>::Make(list, count - first, nullptr); status != OK) {
        return status;
    }
    for (std::size_t i = first; i < count; ++i) {
        static_cast<void>((*list)->Append(log->entries.At(i)));  // The room is there.
    }
    return OK;
}

Status VcLog_Clear(VcLog* log)
{
    log->entries.Clear();
    log->msgHeap.Clear();
    UpdateIndicators(*log);
    OnChanged(*log, 1);
    return OK;
}

Nucleo::Event* VcLog_ChangeEvent(VcLog* log)
{
    return &log->changeEvent;
}

Status VcLog_FormatLog(Nucleo::String** string, const VcLogMsg* msg)
{
    Line line;
    if (const Status status = FormatLine(*msg, &line); status != OK) {
        return status;
    }
    const std::string_view text(line.text, line.length);
    return *string != nullptr ? (*string)->Append(text) : Nucleo::String::Make(string, text, nullptr);
}

Status VcLog_Render(const VcLog* log, Nucleo::Stream* stream)
{
    for (std::size_t i = 0; i < log->entries.Count(); ++i) {
        if (const Status status = RenderEntry(*log->entries.At(i), *stream); status != OK) {
            return status;
        }
    }
    return stream->Flush();
}

Status xxVcLog_Register(Nucleo::Assembly* assembly)
{
    const Nucleo::TypeOverride overrides[] = {{"VRelease", &VcLog_VRelease}};
    return assembly->AddClass(VcLog::StaticType(), overrides);
}
