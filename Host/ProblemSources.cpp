#include "ProblemSources.h"

#include <net/if.h>

#include <algorithm>
#include <fstream>
#include <system_error>
#include <utility>

namespace VxHost
{
namespace
{

namespace fs = std::filesystem;
using VxCommon::PersistDomain;

std::uintmax_t SizeOfFiles(const fs::path& folder)
{
    std::uintmax_t size = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        std::error_code gone;
        if (const std::uintmax_t file = at->is_regular_file(gone) ? at->file_size(gone) : 0; !gone) {
            size += file;
        }
    }
    return size;
}

bool HasDiagnosisCopy(const VxCommon::PersistManager& manager, const std::string& file)
{
    for (unsigned long long i = 1; i <= VxCommon::PersistManager::MaxDiagnosisCopies; ++i) {
        if (manager.FileExists(file + ".d0" + std::to_string(i))) {
            return true;
        }
    }
    return false;
}

}  // namespace

double StorageUse(const fs::path& folder, std::uint64_t size)
{
    if (size != 0) {
        return 100.0 * static_cast<double>(SizeOfFiles(folder)) / static_cast<double>(size);
    }
    std::error_code error;
    const fs::space_info space = fs::space(folder, error);
    // What is free and not available is kept back for the system.
    const std::uintmax_t used = space.capacity - space.free;
    const std::uintmax_t usable = used + space.available;
    return error || usable == 0 ? 0.0 : 100.0 * static_cast<double>(used) / static_cast<double>(usable);
}

std::vector<std::string> DownInterfaces(const fs::path& folder)
{
    std::vector<std::string> down;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        unsigned flags = 0;
        unsigned carrier = 1;
        std::ifstream(at->path() / "flags") >> std::hex >> flags;
        // An interface that is switched off cannot be asked for its carrier.
        if ((flags & IFF_UP) != 0 && (flags & IFF_LOOPBACK) == 0 && std::ifstream(at->path() / "carrier") >> carrier &&
            carrier == 0) {
            down.push_back(at->path().filename());
        }
    }
    std::sort(down.begin(), down.end());
    return down;
}

ProblemSources MakeProblemSources(const HostOptions& options, const VxCommon::PersistManager& manager,
                                  const AutoSaveWatch& watch, std::vector<std::string> damaged)
{
    ProblemSources sources;
    sources.storageUse = [folder = options.dataFolder, size = options.storage.size] {
        return StorageUse(folder, size);
    };
    sources.unsavedDomains = [&watch] {
        std::vector<std::string> names;
        for (const PersistDomain domain : {PersistDomain::GLOBAL, PersistDomain::WORKSPACE}) {
            if (watch.FailedSaves(domain) > 0) {
                names.push_back(VxCommon::PersistDomain_Name(domain));
            }
        }
        return names;
    };
    sources.setAsideFiles = [&manager, files = std::move(damaged)] {
        std::vector<std::string> kept;
        std::copy_if(files.begin(), files.end(), std::back_inserter(kept),
                     [&manager](const std::string& file) { return HasDiagnosisCopy(manager, file); });
        return kept;
    };
    sources.downInterfaces = [] { return DownInterfaces(); };
    return sources;
}

}  // namespace VxHost
