#include <VxCommon/Logger/VcLogMsg.h>

#include <cstring>
#include <limits>

#include <Nucleo/Clock.h>
#include <VxCommon/Logger/VcLogInternal.h>

using namespace Nucleo::Statuses;
using Nucleo::Allocator;
using Nucleo::Status;

namespace
{

Status CopyText(Allocator& allocator, std::string_view text, char** copy)
{
    if (text.size() >= std::numeric_limits<std::uint32_t>::max()) {
        return ERROR_LIMIT;
    }
    void* memory = nullptr;
    if (const Status status = allocator.Allocate(text.size() + 1, &memory); status != OK) {
        return status;
    }
    *copy = static_cast<char*>(memory);
    std::memcpy(*copy, text.data(), text.size());
    (*copy)[text.size()] = '\0';
    return OK;
}

std::string_view ViewOf(const char* text)
{
    return text != nullptr ? std::string_view(text) : std::string_view();
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

template <class Init>
Status Make(VcLogMsg** msg, Allocator* allocator, Init init)
{
    Nucleo::Handle<VcLogMsg> made;
    Status status = Nucleo::Construct(made.Receive(), allocator);
    if (status == OK) {
        status = init(*made);
    }
    *msg = status == OK ? made.Detach() : nullptr;
    return status;
}

Status VcLogMsg_VRelease(Nucleo::Object* object)
{
    auto& msg = static_cast<VcLogMsg&>(*object);
    Allocator& allocator = msg.ObjectAllocator();
    msg.lastArg = nullptr;
    while (VcLogMsgArg* arg = msg.firstArg) {
        msg.firstArg = arg->next;
        if (const Status status = VxCommon::Internal::VcLogMsgArg_Free(arg, allocator); status != OK) {
            return status;
        }
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

Status VcLogMsg_Init(VcLogMsg& msg, std::uint32_t sourceId, std::uint32_t id, std::uint64_t timestamp,
                     std::uint64_t dateTime, VcLogMsgType type, std::string_view text)
{
    msg.sourceId = sourceId;
    msg.id = id;
    msg.timestamp = timestamp;
    msg.type = type;
    msg.dateTime = dateTime;
    msg.length = static_cast<std::uint32_t>(text.size());
    return CopyText(msg.ObjectAllocator(), text, &msg.text);
}

Status VcLogMsg_InitLogArgs(VcLogMsg& msg, std::uint32_t sourceId, std::uint32_t id, const Nucleo::LogArgs& logArgs)
{
    const std::string_view text = ViewOf(logArgs.message);
    msg.sourceId = sourceId;
    msg.id = id;
    msg.timestamp = logArgs.upTime;
    msg.dateTime = logArgs.dateTime;
    msg.options = logArgs.options;
    msg.length = static_cast<std::uint32_t>(text.size());
    msg.type = TypeOf(logArgs.options);
    Allocator& allocator = msg.ObjectAllocator();
    if (logArgs.source != nullptr) {
        if (const Status status = CopyText(allocator, logArgs.source, &msg.sourceName); status != OK) {
            return status;
        }
    }
    return CopyText(allocator, text, &msg.text);
}

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

void VcLogMsg_Append(VcLogMsg& msg, VcLogMsgArg* arg)
{
    (msg.lastArg != nullptr ? msg.lastArg->next : msg.firstArg) = arg;
    msg.lastArg = arg;
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
    return Make(msg, allocator, [&](VcLogMsg& made) {
        return VxCommon::Internal::VcLogMsg_Init(made, sourceId, id, timestamp, Nucleo::DateTime_Now(), type,
                                                 ViewOf(text));
    });
}

Status VcLogMsg_ConstructLogArgs(VcLogMsg** msg, std::uint32_t sourceId, std::uint32_t id,
                                 const Nucleo::LogArgs* logArgs, Allocator* allocator)
{
    return Make(msg, allocator,
                [&](VcLogMsg& made) { return VxCommon::Internal::VcLogMsg_InitLogArgs(made, sourceId, id, *logArgs); });
}

Status VcLogMsg_AddArgument(VcLogMsg* msg, const char* text, const Nucleo::Type* argType)
{
    VcLogMsgArg* arg = nullptr;
    const Status status = VxCommon::Internal::VcLogMsgArg_Make(&arg, text, argType, msg->ObjectAllocator());
    if (status == OK) {
        VxCommon::Internal::VcLogMsg_Append(*msg, arg);
    }
    return status;
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
