#pragma once

#include <list>
#include <vector>

#include <VxRest/ResourceRouter.h>

#include "LinksResource.h"
#include "SettingResource.h"
#include "StatusResource.h"

namespace VxHost
{

/// The host's own resources, registered for its own life: "/" and "/settings" with links, the settings, "/status".
class HostResources
{
public:
    /// All of it must outlive the object.
    HostResources(VxRest::ResourceRouter& router, const std::vector<Setting*>& settings, StatusResource::Facts facts,
                  const VxCommon::PersistManager& manager, const AutoSaveWatch& watch);

    /// Waits for requests that are being served.
    ~HostResources();
    HostResources(const HostResources&) = delete;
    HostResources& operator=(const HostResources&) = delete;

    StatusResource& Status() noexcept { return status_; }

private:
    void Register();

    VxRest::ResourceRouter& router_;
    std::list<SettingResource> settings_;
    LinksResource settingsLinks_;
    StatusResource status_;
    LinksResource root_;
};

}  // namespace VxHost
