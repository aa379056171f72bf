#include "HostResources.h"

#include <string>

namespace VxHost
{
namespace
{

std::vector<std::string> Paths(const std::vector<Setting*>& settings)
{
    std::vector<std::string> paths;
    for (const Setting* setting : settings) {
        paths.push_back("/settings/" + setting->Name());
    }
    return paths;
}

}  // namespace

HostResources::HostResources(VxRest::ResourceRouter& router, const std::vector<Setting*>& settings,
                             const StatusResource::Facts& facts, const VxCommon::PersistManager& manager,
                             const AutoSaveWatch& watch, const HostHealth& health)
    : router_(router),
      settingsLinks_(Paths(settings)),
      status_(facts, manager, watch, health),
      prometheus_(facts.platform, watch, health),
      root_({"/health", "/jobs", "/logs", "/metrics", "/metrics/prometheus", "/notifications", "/problems", "/settings",
             "/status"})
{
    for (Setting* setting : settings) {
        settings_.emplace_back(*setting);
    }
    Register();
}

void HostResources::Register()
{
    router_.Register("/", root_);
    router_.Register("/status", status_);
    router_.Register("/metrics/prometheus", prometheus_);
    router_.Register("/settings", settingsLinks_);
    for (SettingResource& setting : settings_) {
        router_.Register(setting.Path(), setting);
    }
}

void HostResources::SetServer(const VxRest::HttpServer& server) noexcept
{
    status_.SetServer(server);
    prometheus_.SetServer(server);
}

HostResources::~HostResources()
{
    router_.Deregister("/settings", true);
    router_.Deregister("/metrics/prometheus", false);
    router_.Deregister("/status", false);
    router_.Deregister("/", false);
}

}  // namespace VxHost
