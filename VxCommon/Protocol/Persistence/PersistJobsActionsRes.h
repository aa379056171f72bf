#pragma once
// The commands of the job system: load, save, copy, rename, set the default. Each checks its arguments, calls one
// operation of the manager and answers null; all state is the manager's.

#include <VxCommon/Protocol/Persistence/PersistResBase.h>
#include <VxRest/ResourceRouter.h>

namespace VxCommon::Internal
{

class PersistJobsCommandResBase : public PersistResBase, public VxRest::CommandResourceBase
{
public:
    bool IsTextField(std::string_view name) const override
    {
        return name == "name" || name == "sourceName" || name == "destName";
    }

protected:
    PersistJobsCommandResBase(VxRest::ResourceRouter& /*router*/, PersistManager& manager) : PersistResBase(manager) {}
    PersistJobsCommandResBase(const PersistJobsCommandResBase&) = default;
};

/// {"fromFactory": true} loads the factory job, {"name": text} that job. Arguments that hold neither do nothing.
class PersistJobsLoadCommandRes final : public PersistJobsCommandResBase
{
public:
    PersistJobsLoadCommandRes(VxRest::ResourceRouter& router, PersistManager& manager)
        : PersistJobsCommandResBase(router, manager)
    {}
    nlohmann::json Invoke(const VxRest::RequestInfo& request, const nlohmann::json& args) override;
};

/// {"name": text}
class PersistJobsSaveCommandRes final : public PersistJobsCommandResBase
{
public:
    PersistJobsSaveCommandRes(VxRest::ResourceRouter& router, PersistManager& manager)
        : PersistJobsCommandResBase(router, manager)
    {}
    nlohmann::json Invoke(const VxRest::RequestInfo& request, const nlohmann::json& args) override;
};

/// {"sourceName": text, "destName": text}
class PersistJobsCopyCommandRes final : public PersistJobsCommandResBase
{
public:
    PersistJobsCopyCommandRes(VxRest::ResourceRouter& router, PersistManager& manager)
        : PersistJobsCommandResBase(router, manager)
    {}
    nlohmann::json Invoke(const VxRest::RequestInfo& request, const nlohmann::json& args) override;
};

/// {"sourceName": text, "destName": text}
class PersistJobsRenameCommandRes final : public PersistJobsCommandResBase
{
public:
    PersistJobsRenameCommandRes(VxRest::ResourceRouter& router, PersistManager& manager)
        : PersistJobsCommandResBase(router, manager)
    {}
    nlohmann::json Invoke(const VxRest::RequestInfo& request, const nlohmann::json& args) override;
};

/// {"name": text}; an empty name chooses no default job.
class PersistJobsSetDefaultCommandRes final : public PersistJobsCommandResBase
{
public:
    PersistJobsSetDefaultCommandRes(VxRest::ResourceRouter& router, PersistManager& manager)
        : PersistJobsCommandResBase(router, manager)
    {}
    nlohmann::json Invoke(const VxRest::RequestInfo& request, const nlohmann::json& args) override;
};

}  // namespace VxCommon::Internal
