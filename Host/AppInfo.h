#pragma once

#include <filesystem>

namespace VxHost
{

/// Sees to it that the data folder's AppInfo.xml names this version, or the newer one that has used the folder, which
/// the public log says at every start. It says as well that the file was damaged, or cannot be written; neither keeps
/// the host from starting. The caller holds the folder's lock.
void RecordAppInfo(const std::filesystem::path& dataFolder);

}  // namespace VxHost
