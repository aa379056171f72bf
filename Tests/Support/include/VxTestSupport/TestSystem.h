#pragma once
// A virtual system with one local node over a storage in memory: what the services that need the platform are built on.

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <TesselLib/VirtualSystem.h>
#include <VxTestSupport/MemoryStorage.h>

namespace VxTestSupport
{

class TestSystem
{
public:
    static constexpr std::uint32_t localId = 1;

    /// One node of id `localId` on the virtual controller type, with an address and a crash log, unless described
    /// otherwise. A description without a storage gets one in memory.
    explicit TestSystem(TesselLib::VirtualNodeDescription node = LocalNode())
    {
        if (!node.storage) {
            auto storage = std::make_unique<MemoryStorage>();
            storage_ = storage.get();
            node.storage = std::move(storage);
        }
        const std::uint32_t id = node.info.id;
        std::vector<TesselLib::VirtualNodeDescription> nodes;
        nodes.push_back(std::move(node));
        if (TesselLib::VirtualSystem_Construct(system_.Receive(), std::move(nodes)) != Nucleo::OK ||
            system_->FindNode(id, &node_) != Nucleo::OK) {
            throw std::runtime_error("no virtual system");
        }
    }

    static TesselLib::VirtualNodeDescription LocalNode()
    {
        TesselLib::VirtualNodeDescription node;
        node.info.id = localId;
        node.info.controllerType = static_cast<std::int32_t>(TesselLib::ControllerType::Virtual);
        node.info.name = "local";
        node.info.ipConfig = {{{192, 168, 1, 10}}, {{255, 255, 255, 0}}, {{192, 168, 1, 1}}};
        node.info.macAddress = {{0x02, 0, 0, 0xAA, 0xBB, 0xCC}};
        node.crashLog = {'c', 'r', 'a', 's', 'h'};
        return node;
    }

    static TesselLib::VirtualNodeDescription LocalNode(std::unique_ptr<TesselLib::Storage> storage)
    {
        TesselLib::VirtualNodeDescription node = LocalNode();
        node.storage = std::move(storage);
        return node;
    }

    /// The system; the test system keeps its reference. The node and its storage live as long as the system.
    TesselLib::System& System() const { return *system_; }

    /// A new reference to the system for whoever takes it over, such as Vx::Object<void*>.
    void* NewSystemReference() const
    {
        system_->Share();
        return static_cast<Nucleo::Object*>(system_.Get());
    }

    TesselLib::Node& Node() const { return *node_; }

    /// The storage in memory, of a system that has one.
    MemoryStorage& Storage() const { return *storage_; }

private:
    Nucleo::Handle<TesselLib::System> system_;
    TesselLib::Node* node_ = nullptr;
    MemoryStorage* storage_ = nullptr;
};

}  // namespace VxTestSupport
