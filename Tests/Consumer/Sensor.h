#pragma once

#include <TesselLib/DirectoryStorage.h>
#include <TesselLib/VirtualSystem.h>
#include <VxCommon/TesselSystem/TesselSystem.h>

inline constexpr std::uint32_t LocalNodeId = 100;

/// A virtual sensor of one node that keeps its files in `folder`, which is made when it is missing, and locked.
inline VxCommon::TesselSystem OpenSensor(const std::filesystem::path& folder)
{
    std::unique_ptr<TesselLib::DirectoryStorage> storage;
    VX_CHECK(TesselLib::DirectoryStorage::Open(folder, &storage));
    std::vector<TesselLib::VirtualNodeDescription> nodes(1);
    nodes[0].info.id = LocalNodeId;
    nodes[0].info.controllerType = static_cast<std::int32_t>(TesselLib::ControllerType::Virtual);
    nodes[0].storage = std::move(storage);

    TesselLib::System* system = nullptr;
    VX_CHECK(TesselLib::VirtualSystem_Construct(&system, std::move(nodes)));
    Vx::Object<void*> owner(static_cast<Nucleo::Object*>(system));
    TesselLib::Node* local = nullptr;
    VX_CHECK(system->FindNode(LocalNodeId, &local));
    return {std::move(owner), local, VxCommon::TesselSystem::ApplicationType::PixoraFirmware, nullptr};
}
