#pragma once
// The sensor system that the host runs on: one local node with its files, and simulated nodes beside it.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include <TesselLib/DirectoryStorage.h>
#include <VxCommon/TesselSystem/TesselSystem.h>

namespace VxHost
{

/// The local node's id; simulated nodes have the ids from 101 on.
inline constexpr std::uint32_t LocalNodeId = 100;

/// Opens the storage in `dataFolder`, and locks it for the storage's life. Throws Vx::Exception with ERROR_BUSY when
/// another process holds the folder.
std::unique_ptr<TesselLib::DirectoryStorage> OpenDataFolder(const std::filesystem::path& dataFolder);

/// Builds the system for an application of this type: the local node keeps its files in `storage` and has an interface
/// of this address, an IP address or "localhost"; the `simulatedNodes` others have neither.
VxCommon::TesselSystem MakeVirtualController(std::unique_ptr<TesselLib::Storage> storage, std::uint32_t simulatedNodes,
                                             VxCommon::TesselSystem::ApplicationType application,
                                             const std::string& address = "127.0.0.1");

}  // namespace VxHost
