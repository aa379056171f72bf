#pragma once
// Where the problem checker gets its facts from on a real machine.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <VxCommon/Persistence/PersistManager.h>

#include "AutoSaveWatch.h"
#include "ProblemChecker.h"

namespace VxHost
{

/// How full the storage is that holds `folder`, in percent: of `size` bytes the files in the folder take this much, or,
/// with a size of 0, everything on its file system of what programs may use there. 0 when that cannot be read. Files
/// may come and go meanwhile.
double StorageUse(const std::filesystem::path& folder, std::uint64_t size);

/// The network interfaces that are switched on and have no carrier, but for loopback ones, in byte order. `folder` is
/// where the kernel describes them.
std::vector<std::string> DownInterfaces(const std::filesystem::path& folder = "/sys/class/net");

/// The facts about this host. `damaged` is what LoadState answered: a file is told of while a diagnosis copy of it is
/// there. `manager` and `watch` must outlive the sources.
ProblemSources MakeProblemSources(const HostOptions& options, const VxCommon::PersistManager& manager,
                                  const AutoSaveWatch& watch, std::vector<std::string> damaged);

}  // namespace VxHost
