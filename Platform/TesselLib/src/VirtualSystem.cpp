#include <algorithm>
#include <array>
#include <new>

#include <Nucleo/Lock.h>
#include <TesselLib/VirtualSystem.h>

#include "HealthStreams.h"

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

/// The storage of a node that has none.
class NoStorage final : public Storage
{
public:
    bool FileExists(std::string_view /*path*/) const override { return false; }
    Nucleo::Status FileSize(std::string_view /*path*/, std::uint64_t* size) const override
    {
        *size = 0;
        return ERROR_UNSUPPORTED;
    }
    Nucleo::Status Download(std::string_view /*path*/, Nucleo::Stream& /*stream*/) const override
    {
        return ERROR_UNSUPPORTED;
    }
    Nucleo::Status Upload(std::string_view /*path*/, const std::uint8_t* /*data*/, std::uint64_t /*size*/) override
    {
        return ERROR_UNSUPPORTED;
    }
    Nucleo::Status Delete(std::string_view /*path*/) override { return ERROR_UNSUPPORTED; }
    Nucleo::Status List(std::string_view /*directory*/, std::vector<std::string>* names) const override
    {
        names->clear();
        return ERROR_UNSUPPORTED;
    }
};

/// Makes an object that holds what `fill` puts into its bytes.
template <class Fill>
Nucleo::Status MakeData(DataObject** data, Nucleo::Allocator* allocator, Fill fill)
{
    Nucleo::Handle<DataObject> made;
    if (const Nucleo::Status status = Nucleo::Construct(made.Receive(), allocator); status != OK) {
        return status;
    }
    try {
        fill(made->bytes);
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
    *data = made.Detach();
    return OK;
}

std::string Report(const NodeInfo& info)
{
    std::array<char, 46> text{};  // An address of version 6 is the longest.
    std::string report = "id: " + std::to_string(info.id) + "\nname: ";
    for (const char c : info.name) {
        report += static_cast<unsigned char>(c) < ' ' ? '?' : c;  // A line end would make two lines of one value.
    }
    const auto add = [&](const char* name) { report.append("\n").append(name).append(": ").append(text.data()); };
    ControllerType_Format(info.controllerType, text.data(), text.size());
    add("controller type");
    IpAddress_Format(info.ipConfig.address, text.data(), text.size());
    add("address");
    IpAddress_Format(info.ipConfig.mask, text.data(), text.size());
    add("mask");
    IpAddress_Format(info.ipConfig.gateway, text.data(), text.size());
    add("gateway");
    MacAddress_Format(info.macAddress, text.data(), text.size());
    add("MAC address");
    return report + "\n";
}

class VirtualNode final : public Node, private NodeServer
{
public:
    VirtualNode(VirtualNodeDescription description, HealthStreams& health)
        : description_(std::move(description)),
          health_(health),
          ipConfig_(description_.info.ipConfig),
          connected_(description_.connected)
    {
        if (!description_.storage) {
            description_.storage = std::make_unique<NoStorage>();
        }
    }

    std::uint32_t Id() const override { return description_.info.id; }

    Nucleo::Status ReadInfo(NodeInfo* info) const override
    {
        if (!description_.reachable) {
            return ERROR_STATE;
        }
        try {
            NodeInfo copy = Info();
            *info = std::move(copy);
            return OK;
        } catch (const std::exception&) {
            return ERROR_MEMORY;
        }
    }

    TesselLib::Storage& Storage() override { return *description_.storage; }

    Nucleo::Status ReadCrashLog(DataObject** log, Nucleo::Allocator* allocator) override
    {
        *log = nullptr;
        if (!description_.reachable) {
            return ERROR_STATE;
        }
        if (description_.crashLog.empty()) {
            return ERROR_NOT_FOUND;
        }
        return MakeData(log, allocator, [this](auto& bytes) { bytes = description_.crashLog; });
    }

    Nucleo::Status ReadNodeReport(DataObject** report, Nucleo::Allocator* allocator) override
    {
        *report = nullptr;
        if (!description_.reachable) {
            return ERROR_STATE;
        }
        return MakeData(report, allocator, [this](auto& bytes) {
            const std::string text = Report(Info());
            bytes.assign(text.begin(), text.end());
        });
    }

    NodeState State() const override
    {
        if (!description_.reachable) {
            return NodeState::Unreachable;
        }
        const Nucleo::MutexGuard guard(mutex_);
        return connected_ ? NodeState::Connected : NodeState::Online;
    }

    Nucleo::Status Connect() override { return SetConnected(AskReachable(NodeOperation::Connect), true); }

    Nucleo::Status Disconnect() override { return SetConnected(Ask(NodeOperation::Disconnect), false); }

    Nucleo::Status DiscoverySetIpConfig(const IpConfig& ipConfig) override
    {
        const bool byHand = ipConfig.mode == IpMode::Manual;
        for (const IpAddress* address : {&ipConfig.address, &ipConfig.mask, &ipConfig.gateway}) {
            if (byHand && address->version != IpVersion::V4) {
                return ERROR_PARAMETER;
            }
        }
        const Nucleo::Status status = AskReachable(NodeOperation::SetIpConfig);
        if (status == OK) {
            const Nucleo::MutexGuard guard(mutex_);
            if (byHand) {
                ipConfig_ = ipConfig;
            }
            ipConfig_.mode = ipConfig.mode;
        }
        return status;
    }

    Nucleo::Status Reset(NodeReset /*what*/) override
    {
        return SetConnected(AskReachable(NodeOperation::Reset), false);
    }

    Nucleo::Status OpenHealthStream() override
    {
        const Nucleo::Status status = AskReachable(NodeOperation::OpenHealthStream);
        return status == OK ? health_.OpenNode(Id()) : status;
    }

    NodeServer* LocalServer() override { return description_.servedHere ? this : nullptr; }

private:
    Nucleo::Status NotifyShutdown() override { return Ask(NodeOperation::NotifyShutdown); }

    Nucleo::Status Ask(NodeOperation operation) const
    {
        return description_.onOperation ? description_.onOperation(operation) : OK;
    }

    Nucleo::Status AskReachable(NodeOperation operation) const
    {
        const Nucleo::Status status = Ask(operation);
        return status == OK && !description_.reachable ? ERROR_STATE : status;
    }

    /// Takes the new state when the node has answered OK to being asked.
    Nucleo::Status SetConnected(Nucleo::Status answer, bool connected)
    {
        if (answer == OK) {
            const Nucleo::MutexGuard guard(mutex_);
            connected_ = connected;
        }
        return answer;
    }

    NodeInfo Info() const
    {
        NodeInfo info = description_.info;
        const Nucleo::MutexGuard guard(mutex_);
        info.ipConfig = ipConfig_;
        return info;
    }

    VirtualNodeDescription description_;  // Constant after construction.
    HealthStreams& health_;

    mutable Nucleo::Mutex mutex_;  // A leaf: nothing is called out to under it.
    IpConfig ipConfig_ VX_GUARDED_BY(mutex_);
    bool connected_ VX_GUARDED_BY(mutex_);
};

class VirtualSystem final : public System
{
public:
    VirtualSystem(std::vector<std::unique_ptr<VirtualNode>> nodes, std::unique_ptr<HealthStreams> health)
        : nodes_(std::move(nodes)), health_(std::move(health))
    {}

    Nucleo::Status FindNode(std::uint32_t id, Node** node) override
    {
        const auto found =
            std::find_if(nodes_.begin(), nodes_.end(), [id](const auto& candidate) { return candidate->Id() == id; });
        *node = found != nodes_.end() ? found->get() : nullptr;
        return *node != nullptr ? OK : ERROR_NOT_FOUND;
    }

    Nucleo::Status SetHealthHandler(HealthHandlerFx handler, void* receiver) override
    {
        return health_->SetHandler(handler, receiver);
    }

    Nucleo::Status OpenHealthStream() override
    {
        health_->OpenSystem();
        return OK;
    }

    Nucleo::Status CloseHealthStream() override
    {
        health_->CloseAll();
        return OK;
    }

    HealthStreams& Health() { return *health_; }

private:
    std::vector<std::unique_ptr<VirtualNode>> nodes_;  // Constant after construction.
    std::unique_ptr<HealthStreams> health_;            // Goes first: its thread may use the nodes.
};

}  // namespace

Nucleo::Status VirtualSystem_Construct(System** system, std::vector<VirtualNodeDescription> nodes,
                                       Nucleo::Allocator* allocator)
{
    *system = nullptr;
    try {
        auto health = std::make_unique<HealthStreams>();
        std::vector<std::unique_ptr<VirtualNode>> made;
        for (VirtualNodeDescription& node : nodes) {
            const std::uint32_t id = node.info.id;
            if (std::any_of(made.begin(), made.end(), [id](const auto& other) { return other->Id() == id; })) {
                return ERROR_ALREADY_EXISTS;
            }
            made.push_back(std::make_unique<VirtualNode>(std::move(node), *health));
        }
        VirtualSystem* constructed = nullptr;
        const Nucleo::Status status = Nucleo::Construct(&constructed, allocator, std::move(made), std::move(health));
        *system = constructed;
        return status;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

Nucleo::Status VirtualSystem_InjectHealth(System& system, HealthMessage& message)
{
    auto* virtualSystem = dynamic_cast<VirtualSystem*>(&system);
    return virtualSystem != nullptr ? virtualSystem->Health().Inject(message) : ERROR_PARAMETER;
}

Nucleo::Status VirtualSystem_FlushHealth(System& system, std::chrono::milliseconds bound)
{
    auto* virtualSystem = dynamic_cast<VirtualSystem*>(&system);
    return virtualSystem != nullptr ? virtualSystem->Health().Flush(bound) : ERROR_PARAMETER;
}

}  // namespace TesselLib
