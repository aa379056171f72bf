#pragma once
// A system without hardware, built in memory from a description. vxhost and the tests run on it.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <TesselLib/System.h>

namespace TesselLib
{

/// What a virtual node is asked to do.
enum class NodeOperation
{
    Connect,
    Disconnect,
    SetIpConfig,
    Reset,
    NotifyShutdown,
    OpenHealthStream,
};

/// One node of a virtual system. Its operations change nothing but what the node says of itself: no interface of the
/// machine is configured and nothing is reset. Configurations of version 6 are refused with ERROR_PARAMETER; one that
/// leaves the addresses to the network keeps those that the node has, since nobody hands it others.
struct VirtualNodeDescription
{
    NodeInfo info;
    std::unique_ptr<Storage>
        storage;  ///< The node's files; null for a node without any (every call ERROR_UNSUPPORTED).
    std::vector<std::uint8_t> crashLog;  ///< Empty: there is none.
    bool reachable = true;               ///< False: what needs the node answers ERROR_STATE.
    bool connected = true;               ///< Whether a connection is open at the start.
    bool servedHere = false;             ///< Whether the node has a local server.

    /// Hears of each operation before it is carried out, on the thread that asks and without a lock held. A status
    /// other than OK is the operation's result, and the node stays as it is. Must not throw. May be empty.
    std::function<Nucleo::Status(NodeOperation operation)> onOperation;
};

/// Builds a system of these nodes. ERROR_ALREADY_EXISTS when two have the same id; `*system` is null on failure.
Nucleo::Status VirtualSystem_Construct(System** system, std::vector<VirtualNodeDescription> nodes,
                                       Nucleo::Allocator* allocator = nullptr);

/// Health messages that wait for delivery at most.
inline constexpr std::size_t VirtualHealthQueue = 256;

/// Lets a node report `message`: queues it, with a reference of its own, for the system's health thread. Not queued are
/// a message that nobody hears, ERROR_STATE (no handler, or neither the system's stream nor that of the source node is
/// open), and one above VirtualHealthQueue, ERROR_CAPACITY, which the log says. ERROR_PARAMETER when the system is no
/// virtual one. The source may be no node of the system. Any thread.
Nucleo::Status VirtualSystem_InjectHealth(System& system, HealthMessage& message);

/// Waits until every message that was queued has been handled or dropped. ERROR_BUSY when that takes longer than
/// `bound`; never called from inside the handler. ERROR_PARAMETER when the system is no virtual one.
Nucleo::Status VirtualSystem_FlushHealth(System& system, std::chrono::milliseconds bound);

}  // namespace TesselLib
