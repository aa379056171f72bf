#pragma once

#include <filesystem>

namespace VxHost
{

/// Notes in the data folder's AppInfo.xml which version used the folder last, and looks at who that was before: a newer
/// version than this one and a damaged file are told in the public log and keep nobody from starting. The caller holds
/// the folder's lock.
void RecordAppInfo(const std::filesystem::path& dataFolder);

}  // namespace VxHost
