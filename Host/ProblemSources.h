#pragma once
// Where the problem checker gets its facts from on a real machine.

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

/// Network interfaces that are down.
std::vector<Finding> NetworkProblems();

}  // namespace VxHost
