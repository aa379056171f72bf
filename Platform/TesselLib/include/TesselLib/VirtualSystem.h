#pragma once
// A system without hardware, built in memory from a description. vxhost and the tests run on it.

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

}  // namespace TesselLib
