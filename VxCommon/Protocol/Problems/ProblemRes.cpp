#include <VxCommon/Protocol/Problems/ProblemRes.h>

#include <VxApi/Exception.h>
#include <VxApi/JsonSerializer.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>

namespace VxCommon::Internal
{

// What a listener holds instead of the resource: the manager raises its event without a lock, so another thread may
// still be on its way to the resource when that ends.
struct ProblemRes::Link
{
    explicit Link(ProblemRes& owner) : resource(&owner) {}

    Nucleo::Lock lock;
    ProblemRes* resource VX_GUARDED_BY(lock);  // Null once the resource has ended.
};

ProblemRes::ProblemRes(ProblemsManager& manager) : manager_(manager), link_(std::make_shared<Link>(*this))
{
    updated_ = manager.UpdatedEvent().Subscribe([link = link_] {
        const Vx::Locker locker(link->lock);
        if (link->resource != nullptr) {
            link->resource->OnProblemsUpdated();
        }
    });
}

ProblemRes::~ProblemRes()
{
    const Vx::Locker locker(link_->lock);
    link_->resource = nullptr;
}

nlohmann::json ProblemRes::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    using Vx::Properties::JsonSerializer;
    nlohmann::json document = nlohmann::json::object();
    nlohmann::json& items = document["items"] = nlohmann::json::array();
    ProblemsProperties properties;
    for (Problem& problem : manager_.Snapshot()) {
        properties.msg.Set(std::move(problem.msg));
        properties.source.Set(std::move(problem.source));
        properties.severity.Set(problem.severity);
        items.push_back(JsonSerializer::Serialize(properties));
    }
    if (request.IsSchemaRequested()) {
        document["_schema"] = JsonSerializer::SerializeSchema(properties);
    }
    return document;
}

void ProblemRes::OnProblemsUpdated() noexcept
{
    try {
        NotificationEvent().Raise(VxRest::EventType::Updated, "/problems");
    } catch (const std::exception& exception) {
        Vx::LogException(VX_HERE, exception);
    } catch (...) {
        Vx_Debug_Log(Error, "A listener of the problems' notices failed with an unknown exception.");
    }
}

}  // namespace VxCommon::Internal
