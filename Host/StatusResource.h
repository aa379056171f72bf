#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include <VxApi/Params.h>
#include <VxCommon/Persistence/PersistManager.h>
#include <VxCommon/PlatformAttributes/PlatformAttributes.h>
#include <VxRest/HttpServer.h>
#include <VxRest/Resource.h>

#include "AutoSaveWatch.h"
#include "HostHealth.h"
#include "LimitedStorage.h"

namespace VxHost
{

/// "/status": how the host is doing. Safe on any thread; not immediate, since it asks the manager, the logger and the
/// file system.
class StatusResource final : public VxRest::DocumentResourceBase
{
public:
    /// What does not change while the host runs.
    struct Facts
    {
        const LimitedStorage& storage;
        std::uint64_t nodes = 0;
        const VxCommon::PlatformAttributes& platform;  ///< Its ports are known with the server.
    };

    /// What the facts refer to, the manager, the watch and the health must outlive the resource.
    StatusResource(Facts facts, const VxCommon::PersistManager& manager, const AutoSaveWatch& watch,
                   const HostHealth& health);

    /// The server whose counters are shown; until it is there they are 0, and so are the ports. It must outlive every
    /// request.
    void SetServer(const VxRest::HttpServer& server) noexcept { server_ = &server; }

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

private:
    const Facts facts_;
    const VxCommon::PersistManager& manager_;
    const AutoSaveWatch& watch_;
    const HostHealth& health_;
    std::atomic<const VxRest::HttpServer*> server_{nullptr};
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace VxHost
