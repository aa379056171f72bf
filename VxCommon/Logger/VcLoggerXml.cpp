// The logs as XML.

#include <VxCommon/Logger/VcLogger.h>

#include <exception>
#include <limits>
#include <new>
#include <vector>

using namespace Nucleo::Statuses;
using Nucleo::Status;
using Nucleo::XmlNode;

namespace
{

template <class T>
Status SetNumber(Nucleo::XmlDocument& document, XmlNode node, const char* name, T value)
{
    char text[32];
    const Status status = Nucleo::FormatNumber(value, text, sizeof text);
    return status == OK ? document.SetAttribute(node, name, text) : status;
}

const char* ElementName(VcLogMsgType type)
{
    switch (type) {
        case VcLogMsgType_Warning:
            return "Warning";
        case VcLogMsgType_Error:
            return "Error";
        default:
            return "Info";
    }
}

const char* ElementName(const Nucleo::Type* type)
{
    if (type == &Nucleo::Int32Type || type == &Nucleo::UInt32Type || type == &Nucleo::Int64Type ||
        type == &Nucleo::UInt64Type) {
        return "IntArg";
    }
    return type == &Nucleo::Float32Type || type == &Nucleo::Float64Type ? "FloatArg" : "Arg";
}

/// A new element under `parent`; why there is none in `status`.
XmlNode AddElement(Nucleo::XmlDocument& document, XmlNode parent, const char* name, Status* status)
{
    const XmlNode element = document.AddChild(parent, name);
    if (!element) {
        // The names are good, so only memory can be missing when there is something to add to.
        *status = !document.Root() ? ERROR_STATE : !parent ? ERROR_PARAMETER : ERROR_MEMORY;
    }
    return element;
}

Status AddMessage(const VcLogMsg& msg, Nucleo::XmlDocument& document, XmlNode parent)
{
    Status status = OK;
    const XmlNode element = AddElement(document, parent, ElementName(msg.type), &status);
    if (status == OK) {
        status = SetNumber(document, element, "time", msg.timestamp);
    }
    if (status == OK) {
        status = SetNumber(document, element, "source", msg.sourceId);
    }
    if (status == OK) {
        status = SetNumber(document, element, "id", msg.id);
    }
    if (status == OK) {
        status = document.SetAttribute(element, "value", {msg.text, msg.length});
    }
    for (const VcLogMsgArg* arg = msg.firstArg; arg != nullptr && status == OK; arg = arg->next) {
        const XmlNode argument = AddElement(document, element, ElementName(arg->type), &status);
        if (status == OK) {
            status = document.SetAttribute(argument, "value", arg->text);
        }
    }
    return status;
}

/// A range of entries, taken out of the ring so that the lock is not held while it is shown.
struct Range
{
    std::uint64_t firstId = 0;
    std::uint64_t lastId = 0;
    std::vector<Nucleo::Handle<VcLogMsg>> entries;
};

Status Copy(const VcLogMsg& msg, Nucleo::Handle<VcLogMsg>& copy)
{
    Status status =
        VcLogMsg_Construct(copy.Receive(), msg.sourceId, msg.id, msg.timestamp, msg.type, msg.text, nullptr);
    for (const VcLogMsgArg* arg = msg.firstArg; arg != nullptr && status == OK; arg = arg->next) {
        status = VcLogMsg_AddArgument(copy.Get(), arg->text, arg->type);
    }
    return status;
}

/// The caller holds the ring's lock.
Status CopyRange(const VcLog& log, std::uint64_t startId, std::uint64_t endId, Range& range)
{
    const std::uint64_t first = VcLog_FirstId(&log);
    const std::uint64_t count = VcLog_Count(&log);
    const std::uint64_t startIndex = startId < first ? 0 : startId - first;
    std::uint64_t endIndex = count;
    if (endId != std::numeric_limits<std::uint64_t>::max() && endId + 1 - first < count) {
        endIndex = endId + 1 - first;  // Unsigned: an id before the ring's wraps, and then means its end.
    }
    range.firstId = startIndex + first;
    range.lastId = endIndex - 1 + first;
    if (startIndex < endIndex) {
        range.entries.resize(endIndex - startIndex);
    }
    Status status = OK;
    for (std::size_t i = 0; i < range.entries.size() && status == OK; ++i) {
        status = Copy(*VcLog_At(&log, startIndex + i), range.entries[i]);
    }
    return status;
}

Status AddRange(const Range& range, Nucleo::XmlDocument& document)
{
    Status status = OK;
    const XmlNode element = AddElement(document, document.Root(), "Log", &status);
    if (status == OK) {
        status = SetNumber(document, element, "idStart", static_cast<std::int64_t>(range.firstId));
    }
    if (status == OK) {
        status = SetNumber(document, element, "idEnd", static_cast<std::int64_t>(range.lastId));
    }
    for (std::size_t i = 0; i < range.entries.size() && status == OK; ++i) {
        status = AddMessage(*range.entries[i], document, element);
    }
    return status;
}

/// No exception passes the C boundary.
template <class Action>
Status Guarded(Action action)
{
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    } catch (const std::exception&) {
        return ERROR_STATE;
    }
}

}  // namespace

Status VcLogger_GenerateXML(std::uint32_t isPublic, Nucleo::XmlDocument* document, std::uint64_t startId,
                            std::uint64_t endId)
{
    return Guarded([&] {
        Range range;
        Status status = OK;
        {
            VcLogger& logger = *VcLogger_Instance();
            const Vx::Locker locker(logger.lock);
            status = CopyRange(isPublic != 0 ? *logger.publicLog : *logger.privateLog, startId, endId, range);
        }
        return status == OK ? AddRange(range, *document) : status;
    });
}

Status VcLogger_GenerateXMLForLogMsg(const VcLogMsg* msg, Nucleo::XmlDocument* document, XmlNode parent)
{
    return Guarded([&] { return AddMessage(*msg, *document, parent); });
}
