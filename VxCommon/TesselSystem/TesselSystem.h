#pragma once
// Access to the sensor platform for the library's services: a small value that is handed around.

#include <cstdint>

#include <TesselLib/System.h>
#include <VxApi/Object.h>
#include <VxCommon/PlatformAttributes/IPlatformAttributes.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Copies share the platform's system object; the last one releases it. The platform's handles travel as opaque
/// pointers: the system's is a TesselLib::System, which is a Nucleo::Object, a node's is a TesselLib::Node. Failures of
/// the platform become Vx::Exception with the platform's status. Reading operations may be called from any thread.
class VXCOMMON_API TesselSystem
{
public:
    using ApplicationType = IPlatformAttributes::ApplicationType;

    /// Takes the reference in `system` over. `localNode` is the node that this process runs on and belongs to the
    /// system; `pipeAlloc` is the platform's allocator for data pipes and is only handed on (may be null).
    TesselSystem(Vx::Object<void*> system, void* localNode, ApplicationType appType, void* pipeAlloc);

    TesselSystem(const TesselSystem&) = default;

    /// Throws when releasing the system held before fails; the other's content is taken over all the same.
    TesselSystem& operator=(const TesselSystem& other);
    ~TesselSystem() = default;

    void* SystemHandle() const noexcept { return system_.Get(); }
    void* LocalNode() const noexcept { return localNode_; }
    void* PipeAlloc() const noexcept { return pipeAlloc_; }

    /// The node of that id. Throws when there is none.
    void* FindNode(std::uint32_t id) const;

    /// Whether the platform finds the node.
    bool NodeExists(std::uint32_t id) const noexcept;

    bool LocalIsSensor() const noexcept { return appType_ == ApplicationType::PixoraFirmware; }
    bool LocalIsAccelix() const noexcept { return appType_ == ApplicationType::AccelixFirmware; }

    /// True when the local node is a virtual controller. Throws when the node cannot be asked.
    bool IsVirtual() const;

    /// Firmware keeps crash logs and node reports, the PC service does not.
    bool SupportsCrashLog() const noexcept { return LocalIsSensor() || LocalIsAccelix(); }
    bool SupportsNodeReport() const noexcept { return LocalIsSensor() || LocalIsAccelix(); }

    /// Makes a new object with the local node's crash log or report, which is the caller's to release. Throws when the
    /// platform has none; `*data` is null then.
    void ReadCrashLog(TesselLib::DataObject** data) const;
    void ReadNodeReport(TesselLib::DataObject** data) const;

    /// Physical memory of this machine in bytes, in all and available to programs without swapping; 0 when unknown.
    static std::uint64_t MemoryCapacity() noexcept;
    static std::uint64_t MemoryAvailable() noexcept;

private:
    Vx::Object<void*> system_;
    void* localNode_;
    ApplicationType appType_;
    void* pipeAlloc_;
};

}  // namespace VxCommon
