#pragma once
// The host's state without its server: settings over a persist manager over a storage in memory.

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <Host/AutoSaveWatch.h>
#include <Host/DomainHandler.h>
#include <Host/SettingGroups.h>
#include <Host/StateLoader.h>
#include <Host/UpdateCounter.h>
#include <VxApi/Exception.h>
#include <VxCommon/Persistence/PersistUtils.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ManualTime.h>
#include <VxTestSupport/TestSystem.h>

namespace VxHostTest
{

using VxCommon::PersistDomain;
using VxTestSupport::FileOp;
using VxTestSupport::TestSystem;
using namespace std::chrono_literals;

/// One run of the host. Several, one after the other, on the same platform are a host that was started again.
struct Rig
{
    explicit Rig(TestSystem& testSystem, bool load = true) : platform(testSystem)
    {
        if (load) {
            report = VxHost::LoadState(manager, info, watch);
        }
    }

    /// Whether the job file holds this item.
    bool JobHas(const std::string& job, const std::string& item) const
    {
        const std::vector<unsigned char> data = manager.JobData(job);
        return VxCommon::PersistUtils::DearchiveStore(data.data(), data.size()).Exists(item);
    }

    TestSystem& platform;
    VxHost::UpdateCounter updates;
    VxCommon::TesselSystem system{Vx::Object<void*>(platform.NewSystemReference()), &platform.Node(),
                                  VxCommon::TesselSystem::ApplicationType::PixoraFirmware, nullptr};
    VxCommon::PersistManager manager{system, updates};
    VxHost::Setting acquisition{"acquisition", PersistDomain::JOB,
                                &VxHost::MakeSettingGroup<VxHost::AcquisitionSettings>, manager};
    VxHost::Setting network{"network", PersistDomain::GLOBAL, &VxHost::MakeSettingGroup<VxHost::NetworkSettings>,
                            manager};
    VxHost::Setting layout{"layout", PersistDomain::WORKSPACE, &VxHost::MakeSettingGroup<VxHost::LayoutSettings>,
                           manager};
    VxHost::DomainInfo info{manager};
    VxHost::DomainHandler domains{{&acquisition, &network, &layout}, info, manager};
    VxHost::AutoSaveWatch watch{manager};
    VxHost::StartReport report;
};

/// A host whose time stands still unless the test advances it.
class RigTest : public testing::Test
{
protected:
    VxTestSupport::ScopedManualTime time;
    TestSystem platform;
    Rig rig{platform};
};

/// Matches an action that throws a Vx::Exception with this status and, somewhere in it, this text.
inline auto Refuses(Nucleo::Status status, const std::string& text = "")
{
    using Vx::Exception;
    return testing::Throws<Exception>(testing::AllOf(testing::Property(&Exception::Status, status),
                                                     testing::Property(&Exception::what, testing::HasSubstr(text))));
}

/// An image of a store with these items.
inline std::vector<unsigned char> ImageOf(const std::vector<std::pair<std::string, std::string>>& items)
{
    VxCommon::PersistStore store;
    for (const auto& [path, text] : items) {
        store.Write(path, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }
    return VxCommon::PersistUtils::ArchiveStore(store);
}

}  // namespace VxHostTest
