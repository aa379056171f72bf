#include <VxApi/Exception.h>
#include <VxApi/JsonSerializer.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxCommon/Protocol/Persistence/PersistJobsProperties.h>
#include <VxCommon/Protocol/Persistence/PersistJobsRes.h>
#include <VxRest/Path.h>

namespace VxCommon::Internal
{
namespace
{

constexpr std::string_view memberPattern = "/jobs/files/:jobFile";
constexpr std::string_view nameKey = "jobFile";

nlohmann::json ToDocument(const Vx::Params::Group& group, const VxRest::RequestInfo& request)
{
    nlohmann::json document = Vx::Params::NodeToJson(group);
    if (request.IsSchemaRequested()) {
        document["_schema"] = group.Schema();
    }
    return document;
}

}  // namespace

void PersistJobsResBase::ReadJobsFiles(VxRest::ResponseInfo& response) const
{
    for (const std::string& name : Manager().ListJobs()) {
        response.Embed("item", VxRest::Path::Format(memberPattern, name), true, nullptr);
    }
}

PersistJobsRes::PersistJobsRes(VxRest::ResourceRouter& router, PersistManager& manager)
    : PersistJobsResBase(router, manager)
{
    SetupEvents();
}

PersistJobsRes::PersistJobsRes(const PersistJobsRes& other) : PersistJobsResBase(other)
{
    SetupEvents();
}

PersistJobsRes::PersistJobsRes(PersistJobsRes&& other) noexcept(false) : PersistJobsResBase(other)
{
    other.TeardownEvents();
    SetupEvents();
}

PersistJobsRes::~PersistJobsRes()
{
    TeardownEvents();
}

void PersistJobsRes::SetupEvents()
{
    jobChanged_ = Manager().JobChangedEvent().Subscribe(
        [this](PersistManager::JobChange kind, const std::string& name) { StorageChangedEventHandler(kind, name); });
}

void PersistJobsRes::TeardownEvents()
{
    // Under the manager's lock no other thread is inside the handler, so the resource may go afterwards.
    const Vx::Locker locker(Manager().GetLock());
    jobChanged_.Reset();
}

nlohmann::json PersistJobsRes::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response)
{
    ReadJobsFiles(response);
    JobsProperties properties;
    properties.defaultJob.Fill(Manager().DefaultJob());
    properties.loadedJob.Fill(Manager().LoadedJob());
    properties.loadedJobDirty.Fill(Manager().IsJobModified());
    return ToDocument(properties, request);
}

void PersistJobsRes::UpdateDocument(const VxRest::RequestInfo& /*request*/, const nlohmann::json& /*document*/)
{
    VX_THROW(ERROR_UNSUPPORTED);
}

void PersistJobsRes::StorageChangedEventHandler(PersistManager::JobChange kind, const std::string& name) noexcept
{
    try {
        Vx_Debug_Log(Info, "Received job system notification %d: %s", kind, name);
        const std::string member = VxRest::Path::Format(memberPattern, name);
        using enum PersistManager::JobChange;
        using VxRest::EventType;
        switch (kind) {
            case JobCreated:
                NotificationEvent().Raise(EventType::Created, member);
                break;
            case JobDeleted:
                NotificationEvent().Raise(EventType::Deleted, member);
                break;
            case JobUpdated:
                NotificationEvent().Raise(EventType::Updated, member);
                break;
            case JobsCleared:
                NotificationEvent().Raise(EventType::Updated, "/jobs/files");
                break;
            case JobLoaded:
            case JobModified:
            case LoadedJobStateChanged:
            case DefaultJobChanged:
                NotificationEvent().Raise(EventType::Updated, "/jobs");
                break;
            default:
                Vx_Debug_Log(Warning, "Unhandled changeParams type: %d.", kind);
                break;
        }
    } catch (const std::exception& exception) {
        Vx::LogException(VX_HERE, exception);
    } catch (...) {
        Vx_Debug_Log(Error, "A listener of job changes failed with an unknown exception.");
    }
}

nlohmann::json PersistJobsFilesRes::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response)
{
    return request.Keys().contains(nameKey) ? ReadOne(request) : ReadAll(response);
}

nlohmann::json PersistJobsFilesRes::ReadAll(VxRest::ResponseInfo& response) const
{
    ReadJobsFiles(response);
    return nullptr;
}

nlohmann::json PersistJobsFilesRes::ReadOne(const VxRest::RequestInfo& request) const
{
    const std::string& name = request.FindKey(nameKey);
    if (!Manager().JobExists(name)) {
        VX_THROW(ERROR_NOT_FOUND);
    }
    JobFileProperties properties;
    properties.jobName.Fill(name);
    properties.size.Fill(Manager().JobSize(name));
    return ToDocument(properties, request);
}

void PersistJobsFilesRes::UpdateDocument(const VxRest::RequestInfo& /*request*/, const nlohmann::json& /*document*/)
{
    VX_THROW(ERROR_UNSUPPORTED);
}

VxRest::CreateResult PersistJobsFilesRes::Create(const VxRest::RequestInfo& /*request*/, const nlohmann::json& document)
{
    if (!document.is_object() || !document.contains("name") || !document.contains("content")) {
        VX_THROW(ERROR_PARAMETER, "Jobs create resource parameters must contain name and content.");
    }
    const auto name = document.at("name").get<std::string>();
    if (name.empty()) {
        VX_THROW(ERROR_PARAMETER, "Jobs create resource parameter name cannot be empty.");
    }
    if (Manager().JobExists(name)) {
        VX_THROW(ERROR_ALREADY_EXISTS, "Jobs create resource request failed - '%s' already exists", name);
    }
    Manager().CreateJob(name, Vx::Properties::JsonSerializer::DecipherBinaryJson(document.at("content")));
    return {name, VxRest::Path::Format(memberPattern, name)};
}

void PersistJobsFilesRes::Delete(const VxRest::RequestInfo& request)
{
    if (!request.Keys().contains(nameKey)) {
        VX_THROW(ERROR_PARAMETER, "Jobs resource request info keys do not include id.");
    }
    const std::string& name = request.FindKey(nameKey);
    if (name == "*") {
        Manager().ClearJobs();
    } else {
        Manager().DeleteJob(name);
    }
}

nlohmann::json PersistJobsFilesDataRes::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    if (request.Keys().empty()) {
        VX_THROW(ERROR_PARAMETER);
    }
    return ReadOne(request, request.FindKey(nameKey));
}

nlohmann::json PersistJobsFilesDataRes::ReadOne(const VxRest::RequestInfo& request, const std::string& name) const
{
    JobFileDataProperties properties;
    if (!Manager().JobExists(name)) {
        VX_THROW(ERROR_NOT_FOUND, "Job file %s not found.", name);
    }
    properties.content.Fill(Manager().JobData(name));
    return ToDocument(properties, request);
}

void PersistJobsFilesDataRes::UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document)
{
    if (request.Keys().empty() || !document.is_object() || !document.contains("content")) {
        VX_THROW(ERROR_PARAMETER);
    }
    Manager().WriteJob(request.FindKey(nameKey),
                       Vx::Properties::JsonSerializer::DecipherBinaryJson(document.at("content")));
}

}  // namespace VxCommon::Internal
