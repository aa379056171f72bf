#pragma once
// A router whose notices are written down, and reading through it with request values and no socket.

#include <string>
#include <vector>

#include <VxRest/ResourceRouter.h>

namespace VxTestSupport
{

struct RouterProbe
{
    nlohmann::json Get(const std::string& path, const nlohmann::json& args = nlohmann::json::object(),
                       bool schema = false) const
    {
        const auto match = router.Find(path);
        VxRest::ResponseInfo response;
        return match.Document({path, match.Keys(), args, schema}, response);
    }

    VxRest::ResourceRouter router;
    std::vector<std::string> noticed;  // "<type> <path>"
    Vx::Subscription notices =
        router.NotificationEvent().Subscribe([this](VxRest::EventType type, const std::string& path) {
            noticed.push_back(std::to_string(static_cast<int>(type)) + " " + path);
        });
};

}  // namespace VxTestSupport
