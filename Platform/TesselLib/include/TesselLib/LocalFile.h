#pragma once
// Single files of this machine beside the nodes' storages, such as an application's configuration. Safe on any thread.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include <Nucleo/Status.h>

namespace TesselLib
{

/// Reads a whole file. ERROR_NOT_FOUND when there is none, ERROR_LIMIT when it is larger than `maxSize` bytes,
/// ERROR_ACCESS when it may not be read or is no regular file, else what reading it met; `*content` is empty then.
Nucleo::Status LocalFile_Read(const std::filesystem::path& file, std::size_t maxSize,
                              std::vector<std::uint8_t>* content) noexcept;

/// Gives a file this content, all or nothing; it is made where missing and keeps its mode otherwise. The bytes go to a
/// new file beside it, which is synced and then takes its place; the folder is synced last. On failure the old file is
/// there unchanged, except that a failing sync of the folder leaves the new one. A link is replaced by the file.
Nucleo::Status LocalFile_Replace(const std::filesystem::path& file, const std::uint8_t* data,
                                 std::size_t size) noexcept;

}  // namespace TesselLib
