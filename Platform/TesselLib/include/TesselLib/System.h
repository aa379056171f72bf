#pragma once
// The sensor system and its nodes, as the platform shows them to an application.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <Nucleo/Object.h>
#include <TesselLib/Address.h>
#include <TesselLib/Health.h>
#include <TesselLib/Storage.h>

namespace TesselLib
{

/// Controller types: which hardware, or emulation, a node runs on. Codes of other hardware pass through unnamed.
enum class ControllerType : std::int32_t
{
    Unknown = 0,
    Virtual = 1,
    SensorA = 3,
    SensorB = 4,
    SensorC = 6,
    AccelixA = 7,
    AccelixB = 8,
    SensorD = 9,
    SensorE = 10,
};

/// Operating systems.
enum class OperatingSystem : std::int32_t
{
    Unknown = 0,
    Embedded = 1,
    Linux = 2,
    Windows = 3
};

/// Writes the controller type's name ("virtual", "sensor-a", ..., "type-5" for a code without a name, which is shown as
/// an unsigned number) and a NUL. ERROR_CAPACITY when it does not fit; 16 bytes always suffice.
Nucleo::Status ControllerType_Format(std::int32_t type, char* text, std::size_t capacity);

/// What a node says about itself.
struct NodeInfo
{
    std::uint32_t id = 0;
    std::int32_t controllerType = 0;
    std::string name;
    IpConfig ipConfig;
    MacAddress macAddress;
};

/// A block of bytes that the platform hands out, such as a crash log.
class DataObject : public Nucleo::Object
{
public:
    static const Nucleo::Type& StaticType() noexcept;
    std::vector<std::uint8_t> bytes;
};

/// How a node stands to this process.
enum class NodeState : std::int32_t
{
    Online = 0,       ///< The discovery sees it; it is not connected.
    Connected = 1,    ///< A connection is open.
    Unreachable = 2,  ///< The discovery does not see it.
};

/// What a reset starts anew.
enum class NodeReset : std::uint32_t
{
    Application = 1,  ///< The node's application; what it keeps in its storage stays.
};

/// How grave what an upgrade says is.
enum class UpgradeLevel : std::int32_t
{
    Info = 0,
    Warning = 1,
    Error = 2,
};

/// What a running upgrade of a node says.
struct UpgradeStatus
{
    std::string message;
    UpgradeLevel level = UpgradeLevel::Info;
};

/// The server of a node that this process itself serves.
class NodeServer
{
public:
    virtual ~NodeServer() = default;

    /// Tells whoever runs the server that it has to shut down, and does not wait for that. Any thread may call.
    virtual Nucleo::Status NotifyShutdown() = 0;
};

/// One node of the system. Its operations may be called from any thread and may overlap. A node lives as long as its
/// system.
class Node
{
public:
    virtual ~Node() = default;

    virtual std::uint32_t Id() const = 0;

    /// Fills `*info`. ERROR_STATE while the node cannot be reached; `*info` is left alone then.
    virtual Nucleo::Status ReadInfo(NodeInfo* info) const = 0;

    /// The node's files; lives as long as the node.
    virtual TesselLib::Storage& Storage() = 0;

    /// Makes a new object with what the node kept of its last crash; ERROR_NOT_FOUND when it kept nothing. The caller
    /// releases the object; on failure `*log` is null. `allocator`: null for the default one.
    virtual Nucleo::Status ReadCrashLog(DataObject** log, Nucleo::Allocator* allocator) = 0;

    /// Makes a new object with the node's report: plain text, one "name: value" a line. As ReadCrashLog.
    virtual Nucleo::Status ReadNodeReport(DataObject** report, Nucleo::Allocator* allocator) = 0;

    /// How the node stands now; it may stand otherwise at once.
    virtual NodeState State() const = 0;

    /// Opens the connection to the node; OK when it is open. ERROR_STATE while the node cannot be reached.
    virtual Nucleo::Status Connect() = 0;

    /// Closes the connection to the node; OK when there is none. On failure it stays open.
    virtual Nucleo::Status Disconnect() = 0;

    /// Gives the node's interface a new configuration through the discovery, which needs no connection and reaches the
    /// node whatever its address is. OK when the node has taken it; otherwise the node keeps the one that it has:
    /// ERROR_STATE while it cannot be reached, ERROR_PARAMETER when it cannot take this one. A connection should be
    /// closed before: it would lead to the old address.
    virtual Nucleo::Status DiscoverySetIpConfig(const IpConfig& ipConfig) = 0;

    /// Asks the node to reset, which ends its connections, and does not wait for that. ERROR_STATE while it cannot be
    /// reached.
    virtual Nucleo::Status Reset(NodeReset what) = 0;

    /// Opens the node's health stream: what the node reports reaches the system's health-message handler until
    /// System::CloseHealthStream. OK when it is open already; ERROR_STATE while the node cannot be reached.
    virtual Nucleo::Status OpenHealthStream() = 0;

    /// The node's server when this process serves the node, else null. Lives as long as the node.
    virtual NodeServer* LocalServer() = 0;
};

/// The system: reference-counted; nodes are found by id.
class System : public Nucleo::Object
{
public:
    static const Nucleo::Type& StaticType() noexcept;

    /// ERROR_NOT_FOUND when there is no node of that id; `*node` is null then.
    virtual Nucleo::Status FindNode(std::uint32_t id, Node** node) = 0;

    // Health messages. A message is delivered once, while there is a handler and the system's stream or that of the
    // node that sent it is open. Any thread may call.

    /// Sets who gets the health messages: calls `handler` with `receiver` on the platform's health thread.
    /// ERROR_ALREADY_EXISTS while a handler is set, which stays then. Null clears it, drops what waits for delivery and
    /// waits for a running call, except from inside that call; it answers OK, also when there was none. So it is never
    /// cleared while a lock is held that the handler takes.
    virtual Nucleo::Status SetHealthHandler(HealthHandlerFx handler, void* receiver) = 0;

    /// Opens the system's health stream, which carries what all nodes report. OK when it is open already.
    virtual Nucleo::Status OpenHealthStream() = 0;

    /// Closes the system's health stream and those of all nodes, and drops what waits for delivery. It does not wait
    /// for a running call of the handler. OK when none is open.
    virtual Nucleo::Status CloseHealthStream() = 0;
};

}  // namespace TesselLib
