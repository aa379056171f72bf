#include <VxCommon/Protocol/Persistence/PersistDir.h>

namespace VxCommon
{

PersistDir::PersistDir(VxRest::ResourceRouter& router, PersistManager& manager)
    : router_(router),
      jobs_(router, manager),
      files_(router, manager),
      data_(router, manager),
      load_(router, manager),
      save_(router, manager),
      copy_(router, manager),
      rename_(router, manager),
      setDefault_(router, manager)
{
    const std::pair<const char*, VxRest::ResourceBase*> resources[] = {
        {"/jobs", &jobs_},
        {"/jobs/files/:jobFile", &files_},
        {"/jobs/files/:jobFile/data", &data_},
        {"/jobs/commands/load", &load_},
        {"/jobs/commands/save", &save_},
        {"/jobs/commands/copy", &copy_},
        {"/jobs/commands/rename", &rename_},
        {"/jobs/commands/setDefault", &setDefault_},
    };
    std::size_t registered = 0;
    try {
        for (const auto& [pattern, resource] : resources) {
            router_.Register(pattern, *resource);
            if (++registered == 1) {
                router_.Serialize("/jobs");  // Before there is anything that changes jobs.
            }
        }
    } catch (...) {  // The destructor will not run: nothing may stay registered.
        while (registered > 0) {
            router_.Deregister(resources[--registered].first, false);
        }
        throw;
    }
}

PersistDir::~PersistDir()
{
    router_.Deregister("/jobs", true);
}

}  // namespace VxCommon
