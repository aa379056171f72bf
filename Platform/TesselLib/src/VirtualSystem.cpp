#include <algorithm>
#include <array>
#include <new>

#include <TesselLib/VirtualSystem.h>

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
    std::array<char, 32> text{};
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

class VirtualNode final : public Node
{
public:
    explicit VirtualNode(VirtualNodeDescription description) : description_(std::move(description))
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
            NodeInfo copy = description_.info;
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
            const std::string text = Report(description_.info);
            bytes.assign(text.begin(), text.end());
        });
    }

private:
    VirtualNodeDescription description_;  // Constant after construction.
};

class VirtualSystem final : public System
{
public:
    explicit VirtualSystem(std::vector<std::unique_ptr<VirtualNode>> nodes) : nodes_(std::move(nodes)) {}

    Nucleo::Status FindNode(std::uint32_t id, Node** node) override
    {
        const auto found =
            std::find_if(nodes_.begin(), nodes_.end(), [id](const auto& candidate) { return candidate->Id() == id; });
        *node = found != nodes_.end() ? found->get() : nullptr;
        return *node != nullptr ? OK : ERROR_NOT_FOUND;
    }

private:
    std::vector<std::unique_ptr<VirtualNode>> nodes_;  // Constant after construction.
};

}  // namespace

Nucleo::Status VirtualSystem_Construct(System** system, std::vector<VirtualNodeDescription> nodes,
                                       Nucleo::Allocator* allocator)
{
    *system = nullptr;
    try {
        std::vector<std::unique_ptr<VirtualNode>> made;
        for (VirtualNodeDescription& node : nodes) {
            const std::uint32_t id = node.info.id;
            if (std::any_of(made.begin(), made.end(), [id](const auto& other) { return other->Id() == id; })) {
                return ERROR_ALREADY_EXISTS;
            }
            made.push_back(std::make_unique<VirtualNode>(std::move(node)));
        }
        VirtualSystem* constructed = nullptr;
        const Nucleo::Status status = Nucleo::Construct(&constructed, allocator, std::move(made));
        *system = constructed;
        return status;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

}  // namespace TesselLib
