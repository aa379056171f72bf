#pragma once
// The documents of the job system: its summary, the collection of job files with its members, and their content.
//
// The resources do not lock: the router runs requests below "/jobs" one at a time, and the manager locks for itself.

#include <VxApi/Event.h>
#include <VxCommon/Protocol/Persistence/PersistResBase.h>
#include <VxRest/ResourceRouter.h>

namespace VxCommon::Internal
{

class PersistJobsResBase : public PersistResBase, public VxRest::DocumentResourceBase
{
protected:
    PersistJobsResBase(VxRest::ResourceRouter& /*router*/, PersistManager& manager) : PersistResBase(manager) {}
    PersistJobsResBase(const PersistJobsResBase&) = default;

    /// Embeds a link to every job under "item".
    void ReadJobsFiles(VxRest::ResponseInfo& response) const;
};

/// "/jobs": what is loaded, what is the default, and links to all jobs. Turns the manager's job changes into notices.
class PersistJobsRes final : public PersistJobsResBase
{
public:
    PersistJobsRes(VxRest::ResourceRouter& router, PersistManager& manager);

    // A copy, and the target of a move, follows the manager by a subscription of its own.
    PersistJobsRes(const PersistJobsRes& other);
    PersistJobsRes(PersistJobsRes&& other) noexcept(false);
    ~PersistJobsRes() override;

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;
    void UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document) override;

    /// Sends the notice that stands for a job change. Never throws: a throwing listener would undo a job's load.
    void StorageChangedEventHandler(PersistManager::JobChange kind, const std::string& name) noexcept;

private:
    void SetupEvents();
    void TeardownEvents();

    Vx::Subscription jobChanged_;
};

/// "/jobs/files" and "/jobs/files/:jobFile": the collection and its members.
class PersistJobsFilesRes final : public PersistJobsResBase, public VxRest::IParentResource
{
public:
    PersistJobsFilesRes(VxRest::ResourceRouter& router, PersistManager& manager) : PersistJobsResBase(router, manager)
    {}

    VxRest::IParentResource* ParentProvider() override { return this; }
    bool IsTextField(std::string_view name) const override { return name == "name"; }
    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;
    void UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document) override;

    /// Takes {"name": text, "content": binary}; refuses the name of a job that exists.
    VxRest::CreateResult Create(const VxRest::RequestInfo& request, const nlohmann::json& document) override;

    /// Deletes the job of the path; "*" deletes all jobs.
    void Delete(const VxRest::RequestInfo& request) override;

private:
    nlohmann::json ReadAll(VxRest::ResponseInfo& response) const;
    nlohmann::json ReadOne(const VxRest::RequestInfo& request) const;
};

/// "/jobs/files/:jobFile/data": a job file's content as {"content": binary}.
class PersistJobsFilesDataRes final : public PersistJobsResBase
{
public:
    PersistJobsFilesDataRes(VxRest::ResourceRouter& router, PersistManager& manager)
        : PersistJobsResBase(router, manager)
    {}

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;
    bool TakesUpdates(const VxRest::RequestInfo::KeyMap& /*keys*/) const override { return true; }
    void UpdateDocument(const VxRest::RequestInfo& request, const nlohmann::json& document) override;

private:
    nlohmann::json ReadOne(const VxRest::RequestInfo& request, const std::string& name) const;
};

}  // namespace VxCommon::Internal
