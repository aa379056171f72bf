#pragma once

#include <string>
#include <utility>
#include <vector>

#include <VxRest/Resource.h>

namespace VxHost
{

/// A document that only links to others, under "item". Safe on any thread.
class LinksResource final : public VxRest::DocumentResourceBase
{
public:
    explicit LinksResource(std::vector<std::string> paths) : paths_(std::move(paths)) {}

    nlohmann::json Document(const VxRest::RequestInfo& /*request*/, VxRest::ResponseInfo& response) override
    {
        for (const std::string& path : paths_) {
            response.Embed("item", path, true, nullptr);
        }
        return nullptr;
    }
    bool IsImmediate() const override { return true; }

private:
    const std::vector<std::string> paths_;
};

}  // namespace VxHost
