#pragma once
// Owners of libarchive's objects and the meaning of its failures.

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <memory>

#include <Nucleo/Status.h>

namespace TesselLib
{

struct FreeArchive
{
    void operator()(archive* handle) const noexcept { ::archive_free(handle); }
};
using ArchiveHandle = std::unique_ptr<archive, FreeArchive>;

struct FreeEntry
{
    void operator()(archive_entry* entry) const noexcept { ::archive_entry_free(entry); }
};
using EntryHandle = std::unique_ptr<archive_entry, FreeEntry>;

/// The status of a failed call: ERROR_MEMORY when that was the reason, else `otherwise`.
inline Nucleo::Status StatusOf(archive* handle, Nucleo::Status otherwise)
{
    return ::archive_errno(handle) == ENOMEM ? Nucleo::ERROR_MEMORY : otherwise;
}

/// Whether a call did what it was asked for, possibly with a warning.
inline bool Succeeded(int result)
{
    return result == ARCHIVE_OK || result == ARCHIVE_WARN;
}

}  // namespace TesselLib
