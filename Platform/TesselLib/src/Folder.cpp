#include "src/Folder.h"

#include <fcntl.h>
#include <sys/stat.h>

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
