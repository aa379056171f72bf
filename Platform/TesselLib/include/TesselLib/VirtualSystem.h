#pragma once
// A system without hardware, built in memory from a description. vxhost and the tests run on it.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <TesselLib/System.h>

namespace TesselLib
{

/// One node of a virtual system.
struct VirtualNodeDescription
{
    NodeInfo info;
    std::unique_ptr<Storage>
        storage;  ///< The node's files; null for a node without any (every call ERROR_UNSUPPORTED).
    std::vector<std::uint8_t> crashLog;  ///< Empty: there is none.
    bool reachable = true;               ///< False: ReadInfo and the reports answer ERROR_STATE.
};

/// Builds a system of these nodes. ERROR_ALREADY_EXISTS when two have the same id; `*system` is null on failure.
Nucleo::Status VirtualSystem_Construct(System** system, std::vector<VirtualNodeDescription> nodes,
                                       Nucleo::Allocator* allocator = nullptr);

}  // namespace TesselLib
