#pragma once
// Where the problem checker gets its facts from on a real machine.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <VxCommon/Persistence/PersistManager.h>

#include "AutoSaveWatch.h"
#include "HostOptions.h"
#include "ProblemChecker.h"
#include "StateLoader.h"

namespace VxHost
{

/// How full the storage is that holds `folder`, in percent: of `size` bytes the files in the folder take this much, or,
/// with a size of 0, everything on its file system of what programs may use there. 0 when that cannot be read. Files
/// may come and go meanwhile.
double StorageUse(const std::filesystem::path& folder, std::uint64_t size);

/// The network interfaces that are switched on and have no carrier, but for loopback ones, in byte order. `folder` is
/// where the kernel describes them.
std::vector<std::string> DownInterfaces(const std::filesystem::path& folder = "/sys/class/net");

/// A storage that is fuller than its limits, of which `use` gives the percentage.
ProblemSource StorageProblems(StorageLimits limits, std::function<double()> use);

/// Domains whose saves fail, and items that no image can keep.
ProblemSource SaveProblems(const VxCommon::PersistManager& manager, const AutoSaveWatch& watch);

/// Files that could not be used at start, each while it is in the way or a copy of it is there, and the default job
/// while the factory job runs in its stead. `report` is what LoadState answered.
ProblemSource StartProblems(const VxCommon::PersistManager& manager, StartReport report);

/// Everything about this host. `manager` and `watch` must outlive the sources.
std::vector<ProblemSource> MakeProblemSources(const HostOptions& options, const VxCommon::PersistManager& manager,
                                              const AutoSaveWatch& watch, StartReport report);

}  // namespace VxHost
