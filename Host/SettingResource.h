#pragma once

#include <string>

#include <VxApi/Event.h>
#include <VxRest/Resource.h>

#include "Setting.h"

namespace VxHost
{

/// A setting at "/settings/<name>": read it, change members of it, hear of its changes. Safe on any thread.
class SettingResource final : public VxRest::DocumentResourceBase
{
public:
    /// `setting` must outlive the resource.
    explicit SettingResource(Setting& setting);

    /// Waits for a change that is being told.
    ~SettingResource() override;
    SettingResource(const SettingResource&) = delete;
    SettingResource& operator=(const SettingResource&) = delete;

    const std::string& Path() const noexcept { return path_; }

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;
    bool TakesUpdates(const VxRest::RequestInfo::KeyMap& /*keys*/) const override { return true; }
    void UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document) override;
    bool IsImmediate() const override { return true; }

private:
    Setting& setting_;
    const std::string path_;
    Vx::Subscription changed_;
};

}  // namespace VxHost
