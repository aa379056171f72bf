#include <fstream>
#include <string>

#include <VxApi/Exception.h>
#include <VxCommon/TesselSystem/TesselSystem.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

TesselLib::System& AsSystem(void* handle)
{
    return static_cast<TesselLib::System&>(*static_cast<Nucleo::Object*>(handle));
}

TesselLib::Node& AsNode(void* handle)
{
    return *static_cast<TesselLib::Node*>(handle);
}

// A value of /proc/meminfo in bytes; 0 when it is not there.
std::uint64_t MemoryStatus(const std::string& name) noexcept
{
    try {
        std::ifstream file("/proc/meminfo");
        std::string line;
        while (std::getline(file, line)) {
            if (line.starts_with(name + ":")) {
                return std::stoull(line.substr(name.size() + 1)) * 1024;
            }
        }
    } catch (const std::exception&) {
        return 0;
    }
    return 0;
}

}  // namespace

TesselSystem::TesselSystem(Vx::Object<void*> system, void* localNode, ApplicationType appType, void* pipeAlloc)
    : system_(std::move(system)), localNode_(localNode), appType_(appType), pipeAlloc_(pipeAlloc)
{}

TesselSystem& TesselSystem::operator=(const TesselSystem& other)
{
    if (this != &other) {
        localNode_ = other.localNode_;
        appType_ = other.appType_;
        pipeAlloc_ = other.pipeAlloc_;
        system_ = other.system_;  // Last: it may throw, and what goes with the new system must be there by then.
    }
    return *this;
}

void* TesselSystem::FindNode(std::uint32_t id) const
{
    TesselLib::Node* node = nullptr;
    VX_CHECK(AsSystem(SystemHandle()).FindNode(id, &node));
    return node;
}

bool TesselSystem::NodeExists(std::uint32_t id) const noexcept
{
    TesselLib::Node* node = nullptr;
    return AsSystem(SystemHandle()).FindNode(id, &node) == OK;
}

bool TesselSystem::IsVirtual() const
{
    TesselLib::NodeInfo info;
    VX_CHECK(AsNode(localNode_).ReadInfo(&info));
    return info.controllerType == static_cast<std::int32_t>(TesselLib::ControllerType::Virtual);
}

void TesselSystem::ReadCrashLog(TesselLib::DataObject** data) const
{
    VX_CHECK(AsNode(localNode_).ReadCrashLog(data, nullptr));
}

void TesselSystem::ReadNodeReport(TesselLib::DataObject** data) const
{
    VX_CHECK(AsNode(localNode_).ReadNodeReport(data, nullptr));
}

std::uint64_t TesselSystem::MemoryCapacity() noexcept
{
    return MemoryStatus("MemTotal");
}

std::uint64_t TesselSystem::MemoryAvailable() noexcept
{
    return MemoryStatus("MemAvailable");
}

}  // namespace VxCommon
