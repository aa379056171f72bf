#include <utility>

#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Persistence/PersistJobsActionsRes.h>

namespace VxCommon::Internal
{
namespace
{

std::string NameArgument(const nlohmann::json& args, const char* member)
{
    return args.value(member, std::string());
}

// The two names of copy and rename, which share one wording.
std::pair<std::string, std::string> SourceAndDest(const Vx::Location& location, const nlohmann::json& args)
{
    const bool hasDest = args.is_object() && args.contains("destName");
    if (!hasDest || !args.contains("sourceName")) {
        VX_THROW_AT(location, ERROR_PARAMETER, "Jobs copy command resource args do not contain %s.",
                    hasDest ? "sourceName" : "destName");
    }
    return {NameArgument(args, "sourceName"), NameArgument(args, "destName")};
}

}  // namespace

nlohmann::json PersistJobsLoadCommandRes::Invoke(const VxRest::RequestInfo& /*request*/, const nlohmann::json& args)
{
    if (args.empty()) {
        VX_THROW(ERROR_PARAMETER, "Jobs load command resource args empty.");
    }
    if (!args.is_object()) {
        return nullptr;
    }
    if (args.contains("fromFactory") && args.at("fromFactory").get<bool>()) {
        Manager().LoadJobFromFactory();
    } else if (args.contains("name")) {
        Manager().LoadJob(args.at("name").get<std::string>());
    }
    return nullptr;
}

nlohmann::json PersistJobsSaveCommandRes::Invoke(const VxRest::RequestInfo& /*request*/, const nlohmann::json& args)
{
    if (args.empty()) {
        VX_THROW(ERROR_PARAMETER, "Jobs save command resource args empty.");
    }
    Manager().SaveJob(NameArgument(args, "name"));
    return nullptr;
}

nlohmann::json PersistJobsCopyCommandRes::Invoke(const VxRest::RequestInfo& /*request*/, const nlohmann::json& args)
{
    const auto [source, dest] = SourceAndDest(VX_HERE, args);
    Manager().CopyJob(source, dest);
    return nullptr;
}

nlohmann::json PersistJobsRenameCommandRes::Invoke(const VxRest::RequestInfo& /*request*/, const nlohmann::json& args)
{
    const auto [source, dest] = SourceAndDest(VX_HERE, args);
    Manager().RenameJob(source, dest);
    return nullptr;
}

nlohmann::json PersistJobsSetDefaultCommandRes::Invoke(const VxRest::RequestInfo& /*request*/,
                                                       const nlohmann::json& args)
{
    if (args.empty()) {
        VX_THROW(ERROR_PARAMETER, "Jobs set default command resource args empty.");
    }
    Manager().SetDefaultJob(NameArgument(args, "name"));
    return nullptr;
}

}  // namespace VxCommon::Internal
