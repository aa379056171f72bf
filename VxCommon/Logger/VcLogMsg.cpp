#include <VxCommon/Logger/VcLogMsg.h>

#include <cstddef>
#include <cstring>
#include <limits>

#include <Nucleo/Clock.h>
#include <VxCommon/Logger/VcLogInternal.h>

using namespace Nucleo::Statuses;
using Nucleo::Allocator;
using Nucleo::Status;
using VxCommon::Internal::VcLogMsgContent;

namespace
{

constexpr std::size_t longestText = std::numeric_limits<std::uint32_t>::max() - std::size_t{1};

// Copies a text, with a NUL.
char* PutText(std::string_view text, char* copy)
{
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

Status CopyText(Allocator& allocator, std::string_view text, char** copy)
{
    if (text.size() > longestText) {
        return ERROR_LIMIT;
    }
    void* memory = nullptr;
    if (const Status status = allocator.Allocate(text.size() + 1, &memory); status != OK) {
        return status;
    }
    *copy = PutText(text, static_cast<char*>(memory));
    return OK;
}

std::string_view ViewOf(const char* text)
{
    return text != nullptr ? text : "";
}

VcLogMsgType TypeOf(std::uint64_t options)
{
    switch (options & Nucleo::LogOption::SeverityMask) {
        case Nucleo::LogOption::Warning:
            return VcLogMsgType_Warning;
        case Nucleo::LogOption::Error:
            return VcLogMsgType_Error;
        default:
            return VcLogMsgType_Info;
    }
}

// All but the texts.
void SetFields(VcLogMsg& msg, std::uint32_t id, const VcLogMsgContent& content)
{
    msg.timestamp = content.timestamp;
    msg.sourceId = content.sourceId;
    msg.id = id;
    msg.length = static_cast<std::uint32_t>(content.text.size());
    msg.type = content.type;
    msg.dateTime = content.dateTime;
    msg.options = content.options;
}

Status Make(VcLogMsg** msg, std::uint32_t id, const VcLogMsgContent& content, Allocator* allocator)
{
    Nucleo::Handle<VcLogMsg> made;
    Status status = Nucleo::Construct(made.Receive(), allocator);
    if (status == OK) {
        SetFields(*made, id, content);
        if (content.sourceName.data() != nullptr) {
            status = CopyText(made->ObjectAllocator(), content.sourceName, &made->sourceName);
        }
    }
    if (status == OK) {
        status = CopyText(made->ObjectAllocator(), content.text, &made->text);
    }
    *msg = status == OK ? made.Detach() : nullptr;
    return status;
}

char* Behind(VcLogMsg& msg)
{
    return reinterpret_cast<char*>(&msg + 1);
}

// A message of one block has no text elsewhere; its text is the first behind it. No block of its own can be there:
// objects and blocks are aligned for any type, and that place is not.
static_assert(sizeof(VcLogMsg) % alignof(std::max_align_t) != 0);
bool IsOneBlock(VcLogMsg& msg)
{
    return msg.text == Behind(msg);
}

// A new argument that belongs to no message yet; null on failure.
Status VcLogMsgArg_Make(VcLogMsgArg** arg, const char* text, const Nucleo::Type* type, Allocator& allocator)
{
    *arg = nullptr;
    char* copy = nullptr;
    if (const Status status = CopyText(allocator, ViewOf(text), &copy); status != OK) {
        return status;
    }
    void* memory = nullptr;
    if (const Status status = allocator.Allocate(sizeof(VcLogMsgArg), &memory); status != OK) {
        allocator.Free(copy);
        return status;
    }
    *arg = ::new (memory) VcLogMsgArg{type, copy, nullptr};
    return OK;
}

Status VcLogMsgArg_Free(VcLogMsgArg* arg, Allocator& allocator)
{
    const Status status = allocator.Free(arg->text);
    return status == OK ? allocator.Free(arg) : status;
}

Status VcLogMsg_VRelease(Nucleo::Object* object)
{
    auto& msg = static_cast<VcLogMsg&>(*object);
    Allocator& allocator = msg.ObjectAllocator();
    msg.lastArg = nullptr;
    while (VcLogMsgArg* arg = msg.firstArg) {
        msg.firstArg = arg->next;
        if (const Status status = VcLogMsgArg_Free(arg, allocator); status != OK) {
            return status;
        }
    }
    if (IsOneBlock(msg)) {
        return OK;
    }
    if (const Status status = allocator.Free(msg.text); status != OK) {
        return status;
    }
    msg.text = nullptr;
    return allocator.Free(msg.sourceName);
}

}  // namespace

namespace VxCommon::Internal
{

VcLogMsgContent VcLogMsg_ContentOf(std::uint32_t sourceId, const Nucleo::LogArgs& logArgs)
{
    VcLogMsgContent content{sourceId,         TypeOf(logArgs.options), logArgs.upTime,
                            logArgs.dateTime, logArgs.options,         ViewOf(logArgs.message)};
    if (logArgs.source != nullptr) {
        content.sourceName = logArgs.source;
    }
    return content;
}

Status VcLogMsg_MakeOneBlock(VcLogMsg** msg, std::uint32_t id, const VcLogMsgContent& content,
                             Nucleo::HeapAllocator& heap)
{
    *msg = nullptr;
    const bool hasSource = content.sourceName.data() != nullptr;
    if (content.text.size() > longestText || content.sourceName.size() > longestText) {
        return ERROR_LIMIT;
    }
    const std::size_t room = content.text.size() + 1 + (hasSource ? content.sourceName.size() + 1 : 0);
    const Status status = Nucleo::ConstructWithRoom(msg, heap, room);
    if (status == OK) {
        VcLogMsg& made = **msg;
        SetFields(made, id, content);
        made.text = PutText(content.text, Behind(made));
        if (hasSource) {
            made.sourceName = PutText(content.sourceName, made.text + content.text.size() + 1);
        }
    }
    return status;
}

Status VcLogMsg_Drop(VcLogMsg& msg, Nucleo::HeapAllocator& heap)
{
    // What a release would do for most messages, without its calls through tables.
    if (msg.firstArg == nullptr && IsOneBlock(msg) && msg.IsUnique()) {
        msg.~VcLogMsg();
        return heap.Free(&msg);
    }
    return Nucleo::Destroy(&msg);
}

}  // namespace VxCommon::Internal

const Nucleo::Type& VcLogMsg::StaticType() noexcept
{
    static const Nucleo::Type type{"VcLogMsg", &Nucleo::Object::StaticType(), sizeof(VcLogMsg), &VcLogMsg_VRelease};
    return type;
}

Status VcLogMsg_Construct(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id, std::uint64_t timestamp,
                          VcLogMsgType type, const char* text, Allocator* allocator)
{
    const VcLogMsgContent content{sourceId, type, timestamp, Nucleo::DateTime_Now(), 0, ViewOf(text)};
    return Make(msg, id, content, allocator);
}

Status VcLogMsg_ConstructLogArgs(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id,
                                 const Nucleo::LogArgs* logArgs, Allocator* allocator)
{
    return Make(msg, id, VxCommon::Internal::VcLogMsg_ContentOf(sourceId, *logArgs), allocator);
}

Status VcLogMsg_AddArgument(VcLogMsg* msg, const char* text, const Nucleo::Type* argType)
{
    msg->Share();  // Making room for the argument may drop the message itself from its ring.
    VcLogMsgArg* arg = nullptr;
    const Status status = VcLogMsgArg_Make(&arg, text, argType, msg->ObjectAllocator());
    if (status == OK) {
        (msg->lastArg != nullptr ? msg->lastArg->next : msg->firstArg) = arg;
        msg->lastArg = arg;
    }
    const bool gone = msg->IsUnique();  // What fell out after the message may have made enough room.
    static_cast<void>(msg->Release());
    return status == OK && gone ? ERROR_MEMORY : status;
}

std::uint32_t VcLogMsg_Id(const VcLogMsg* msg)
{
    return msg->id;
}

std::uint32_t VcLogMsg_SourceId(const VcLogMsg* msg)
{
    return msg->sourceId;
}

const char* VcLogMsg_SourceName(const VcLogMsg* msg)
{
    return msg->sourceName;
}

const char* VcLogMsg_Text(const VcLogMsg* msg)
{
    return msg->text;
}

std::uint32_t VcLogMsg_Length(const VcLogMsg* msg)
{
    return msg->length;
}

VcLogMsgType VcLogMsg_Type(const VcLogMsg* msg)
{
    return msg->type;
}

std::uint64_t VcLogMsg_Timestamp(const VcLogMsg* msg)
{
    return msg->timestamp;
}

std::uint64_t VcLogMsg_DateTime(const VcLogMsg* msg)
{
    return msg->dateTime;
}

const VcLogMsgArg* VcLogMsg_FirstArg(const VcLogMsg* msg)
{
    return msg->firstArg;
}

const VcLogMsgArg* VcLogMsg_NextArg(const VcLogMsg* /*msg*/, const VcLogMsgArg* arg)
{
    return arg->next;
}

const Nucleo::Type* VcLogMsg_ArgType(const VcLogMsg* /*msg*/, const VcLogMsgArg* arg)
{
    return arg->type;
}

const char* VcLogMsg_ArgText(const VcLogMsg* /*msg*/, const VcLogMsgArg* arg)
{
    return arg->text;
}

Status xxVcLogMsg_Register(Nucleo::Assembly* assembly)
{
    const Nucleo::TypeOverride overrides[] = {{"VRelease", &VcLogMsg_VRelease}};
    return assembly->AddClass(VcLogMsg::StaticType(), overrides);
}
