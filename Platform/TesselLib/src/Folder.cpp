#include "src/Folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

constexpr mode_t folderMode = 0755;

}  // namespace

Nucleo::Status OpenFolder(int parent, const char* name, FileDescriptor* folder)
{
    if (::mkdirat(parent, name, folderMode) != 0 && errno != EEXIST) {
        return StatusOfErrno(errno);
    }
    *folder =
        FileDescriptor(Retry([&] { return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    return *folder ? OK : StatusOfErrno(errno);
}

Nucleo::Status WriteAll(int descriptor, const std::uint8_t* data, std::uint64_t size)
{
    constexpr std::uint64_t maxStep = 1U << 30;  // The kernel takes a little less than 2 GiB a call.
    while (size != 0) {
        const ssize_t written = Retry([&] { return ::write(descriptor, data, std::min(size, maxStep)); });
        if (written < 0) {
            return StatusOfErrno(errno);
        }
        if (written == 0) {
            return ERROR_IO;  // A file that takes nothing and says no reason must not keep the caller for ever.
        }
        data += written;
        size -= static_cast<std::uint64_t>(written);
    }
    return OK;
}

Nucleo::Status Sync(int descriptor)
{
    return Retry([&] { return ::fsync(descriptor); }) == 0 ? OK : StatusOfErrno(errno);
}

FolderStream OpenStream(int folder)
{
    FileDescriptor copy(Retry([&] { return ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    FolderStream stream(copy ? ::fdopendir(copy.Get()) : nullptr);
    if (stream) {
        copy.Detach();  // The stream closes it.
    }
    return stream;
}

}  // namespace TesselLib
