#include "VirtualController.h"

#include <arpa/inet.h>

#include <string>
#include <utility>
#include <vector>

#include <TesselLib/VirtualSystem.h>
#include <VxApi/Exception.h>

namespace VxHost
{
namespace
{

TesselLib::VirtualNodeDescription DescribeNode(std::uint32_t id)
{
    TesselLib::VirtualNodeDescription node;
    node.info.id = id;
    node.info.controllerType = static_cast<std::int32_t>(TesselLib::ControllerType::Virtual);
    node.info.name = "virtual-" + std::to_string(id);
    // A locally administered address, so that it is no maker's.
    node.info.macAddress = {{0x02, 0, 0, 0, static_cast<std::uint8_t>(id >> 8U), static_cast<std::uint8_t>(id)}};
    return node;
}

TesselLib::IpAddress ParseAddress(const std::string& text)
{
    TesselLib::IpAddress address;
    const std::string plain = text == "localhost" ? "127.0.0.1" : text.substr(0, text.find('%'));
    if (::inet_pton(AF_INET, plain.c_str(), address.bytes.data()) != 1) {
        address.version = TesselLib::IpVersion::V6;
        VX_CHECK(::inet_pton(AF_INET6, plain.c_str(), address.bytes.data()) == 1 ? Nucleo::OK : Nucleo::ERROR_FORMAT);
    }
    return address;
}

}  // namespace

std::unique_ptr<TesselLib::DirectoryStorage> OpenDataFolder(const std::filesystem::path& dataFolder)
{
    std::unique_ptr<TesselLib::DirectoryStorage> storage;
    const Nucleo::Status status = TesselLib::DirectoryStorage::Open(dataFolder, &storage);
    if (status == Nucleo::ERROR_BUSY) {
        VX_THROW(status, "the data folder \"%s\" is in use by another process", dataFolder.string());
    }
    if (status != Nucleo::OK) {
        VX_THROW(status, "the data folder \"%s\" cannot be used: %s", dataFolder.string(),
                 std::string(Nucleo::StatusText(status)));
    }
    return storage;
}

VxCommon::TesselSystem MakeVirtualController(std::unique_ptr<TesselLib::Storage> storage, std::uint32_t simulatedNodes,
                                             VxCommon::TesselSystem::ApplicationType application,
                                             const std::string& address)
{
    std::vector<TesselLib::VirtualNodeDescription> nodes;
    nodes.push_back(DescribeNode(LocalNodeId));
    nodes.back().info.ipConfig.address = ParseAddress(address);
    nodes.back().storage = std::move(storage);
    for (std::uint32_t i = 1; i <= simulatedNodes; ++i) {
        nodes.push_back(DescribeNode(LocalNodeId + i));
    }
    TesselLib::System* system = nullptr;
    VX_CHECK(TesselLib::VirtualSystem_Construct(&system, std::move(nodes)));
    Vx::Object<void*> owner(static_cast<Nucleo::Object*>(system));
    TesselLib::Node* local = nullptr;
    VX_CHECK(system->FindNode(LocalNodeId, &local));
    return {std::move(owner), local, application, nullptr};
}

}  // namespace VxHost
