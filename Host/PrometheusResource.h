#pragma once

#include <atomic>
#include <chrono>

#include <VxCommon/PlatformAttributes/PlatformAttributes.h>
#include <VxRest/HttpServer.h>
#include <VxRest/Resource.h>

#include "AutoSaveWatch.h"
#include "HostHealth.h"

namespace VxHost
{

/// "/metrics/prometheus": machine, health indicators, nodes, logs and HTTP as a page of OpenMetrics, for monitoring
/// systems. Safe on any thread; not immediate, since it takes the locks of health and logger, one after the other.
class PrometheusResource final : public VxRest::DocumentResourceBase
{
public:
    /// All must outlive the resource; the ports of `platform` are known with the server.
    PrometheusResource(const VxCommon::PlatformAttributes& platform, const AutoSaveWatch& watch,
                       const HostHealth& health)
        : platform_(platform), watch_(watch), health_(health)
    {}

    /// The server whose counters are shown; until it is there they are missing, and the ports are 0. It must outlive
    /// every request.
    void SetServer(const VxRest::HttpServer& server) noexcept { server_ = &server; }

    /// Answers with the page as a text of its own media type.
    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

private:
    const VxCommon::PlatformAttributes& platform_;
    const AutoSaveWatch& watch_;
    const HostHealth& health_;
    std::atomic<const VxRest::HttpServer*> server_{nullptr};
    const std::chrono::system_clock::time_point start_ = std::chrono::system_clock::now();
};

}  // namespace VxHost
