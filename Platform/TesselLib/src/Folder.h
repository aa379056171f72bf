#pragma once
// What is done with open files and folders. Safe on any thread.

#include <dirent.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include <Nucleo/Status.h>

#include "src/Errno.h"
#include "src/FileDescriptor.h"

namespace TesselLib
{

/// Opens the folder `name` of `parent`, made where missing. A link in its place is refused with ERROR_ACCESS.
Nucleo::Status OpenFolder(int parent, const char* name, FileDescriptor* folder);

/// Writes all of the bytes at the descriptor's position.
Nucleo::Status WriteAll(int descriptor, const std::uint8_t* data, std::uint64_t size);

/// Brings what was written through `descriptor`, a file or folder, onto the medium.
Nucleo::Status Sync(int descriptor);

struct CloseFolder
{
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};
using FolderStream = std::unique_ptr<DIR, CloseFolder>;

/// Starts reading the names in `folder`, whose own position stays. Null, with errno set, on failure.
FolderStream OpenStream(int folder);

/// Calls `visit` with each entry of `folder` but "." and ".."; ends at the first status other than OK and answers it.
template <class Visit>
Nucleo::Status VisitEntries(int folder, Visit visit)
{
    const FolderStream stream = OpenStream(folder);
    if (!stream) {
        return StatusOfErrno(errno);
    }
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): nobody else has this stream
        if (entry == nullptr) {
            return errno == 0 ? Nucleo::OK : StatusOfErrno(errno);
        }
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (const Nucleo::Status status = visit(*entry); status != Nucleo::OK) {
            return status;
        }
    }
}

}  // namespace TesselLib
