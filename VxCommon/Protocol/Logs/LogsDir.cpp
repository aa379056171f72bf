#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Logs/LogsDir.h>

namespace VxCommon
{

LogsDir::LogsDir() = default;

LogsDir::~LogsDir()
{
    Deregister();
}

void LogsDir::Register(VxRest::ResourceRouter& router)
{
    if (router_ != nullptr) {
        VX_THROW(Nucleo::ERROR_ALREADY_EXISTS, "The logs resources are registered already.");
    }
    const std::pair<const char*, VxRest::ResourceBase*> resources[] = {
        {"/logs", &logs_}, {"/logs/summary", &summary_}, {"/logs/commands/clear", &clear_}};
    std::size_t registered = 0;
    try {
        for (const auto& [path, resource] : resources) {
            router.Register(path, *resource);
            ++registered;
        }
    } catch (...) {
        while (registered > 0) {
            router.Deregister(resources[--registered].first, false);
        }
        throw;
    }
    router_ = &router;
}

void LogsDir::Deregister()
{
    if (router_ == nullptr) {
        return;
    }
    for (const char* path : {"/logs", "/logs/summary", "/logs/commands/clear"}) {
        router_->Deregister(path, false);
    }
    router_ = nullptr;
}

}  // namespace VxCommon
