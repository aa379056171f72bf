#pragma once

#include <list>
#include <vector>

#include <VxRest/ResourceRouter.h>

#include "LinksResource.h"
#include "PrometheusResource.h"
#include "SettingResource.h"
#include "StatusResource.h"

namespace VxHost
{

/// The host's own resources, registered for its own life: "/" and "/settings" with links, the settings, "/status",
/// "/metrics/prometheus".
class HostResources
{
public:
    /// All of it must outlive the object.
    HostResources(VxRest::ResourceRouter& router, const std::vector<Setting*>& settings,
                  const StatusResource::Facts& facts, const VxCommon::PersistManager& manager,
                  const AutoSaveWatch& watch, const HostHealth& health);

    /// Waits for requests that are being served.
    ~HostResources();
    HostResources(const HostResources&) = delete;
    HostResources& operator=(const HostResources&) = delete;

    /// The server whose counters are shown. It must outlive every request.
    void SetServer(const VxRest::HttpServer& server) noexcept;

private:
    void Register();

    VxRest::ResourceRouter& router_;
    std::list<SettingResource> settings_;
    LinksResource settingsLinks_;
    StatusResource status_;
    PrometheusResource prometheus_;
    LinksResource root_;
};

}  // namespace VxHost
