#include "src/UploadFolder.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>

#include "src/Errno.h"
#include "src/Folder.h"

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

constexpr mode_t fileMode = 0644;

/// Whether `descriptor` is the only way in which anybody has the file open: a write lease is only granted then. The
/// lease is given back at once; its signal is one that is ignored, should somebody open the file in between.
bool IsOpenHereOnly(int descriptor)
{
    return ::fcntl(descriptor, F_SETSIG, SIGURG) == 0 && ::fcntl(descriptor, F_SETLEASE, F_WRLCK) == 0 &&
           ::fcntl(descriptor, F_SETLEASE, F_UNLCK) == 0;
}

/// Cuts an open spare to the length of the next content.
bool CutTo(int descriptor, std::uint64_t size)
{
    struct stat state
    {};
    return ::fstat(descriptor, &state) == 0 &&
           (static_cast<std::uint64_t>(state.st_size) <= size ||
            Retry([&] { return ::ftruncate(descriptor, static_cast<off_t>(size)); }) == 0);
}

}  // namespace

UploadFolder::~UploadFolder()
{
    RemoveSpare();
}

Nucleo::Status UploadFolder::Open(int dataFolder)
{
    const Nucleo::Status status = OpenFolder(dataFolder, "tmp", &folder_);
    return status == OK ? RemoveLeftovers() : status;
}

Nucleo::Status UploadFolder::RemoveLeftovers() const
{
    return VisitEntries(folder_.Get(), [this](const dirent& entry) {
        // A folder is not ours; it is in nobody's way.
        const bool done = ::unlinkat(folder_.Get(), entry.d_name, 0) == 0 || errno == EISDIR || errno == ENOENT;
        return done ? OK : StatusOfErrno(errno);
    });
}

UploadName UploadFolder::NextName() noexcept
{
    UploadName name{};
    std::snprintf(name.data(), name.size(), "upload-%llu", static_cast<unsigned long long>(++lastNumber_));
    return name;
}

FileDescriptor UploadFolder::TakeSpare(Spare* spare)
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        *spare = std::exchange(spare_, Spare{});
    }
    if (spare->name.front() == '\0') {
        return {};
    }
    FileDescriptor file(Retry(
        [&] { return ::openat(folder_.Get(), spare->name.data(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
    if (!file || !IsOpenHereOnly(file.Get())) {
        Remove(spare->name, spare->size);
        return {};
    }
    return file;
}

Nucleo::Status UploadFolder::Write(const std::uint8_t* data, std::uint64_t size, UploadName* name)
{
    Spare spare;
    FileDescriptor file = TakeSpare(&spare);
    if (file && !CutTo(file.Get(), size)) {
        Remove(spare.name, spare.size);
        file = {};
    }
    const bool isSpare = static_cast<bool>(file);
    if (isSpare) {
        *name = spare.name;
    } else {
        spare.size = 0;
        *name = NextName();
        file = FileDescriptor(Retry([&] {
            return ::openat(folder_.Get(), name->data(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                            fileMode);
        }));
        if (!file) {
            return StatusOfErrno(errno);
        }
    }
    Nucleo::Status status = WriteAll(file.Get(), data, size);
    if (status == OK) {
        // fdatasync brings onto the medium what reading the bytes back needs, a changed length included. All that it
        // may leave behind of a spare, which was synced whole as a new file, is its time of change.
        status = isSpare ? (Retry([&] { return ::fdatasync(file.Get()); }) == 0 ? OK : StatusOfErrno(errno))
                         : Sync(file.Get());
    }
    if (status != OK) {
        Remove(*name, spare.size);
    } else {
        usedBytes_ += static_cast<std::int64_t>(size) - spare.size;
    }
    return status;
}

void UploadFolder::Remove(const UploadName& name, std::int64_t size) noexcept
{
    // What cannot be removed now is removed when the folder is opened next.
    if (::unlinkat(folder_.Get(), name.data(), 0) == 0) {
        usedBytes_ -= size;
    }
}

void UploadFolder::Retire(const UploadName& replaced, std::int64_t size, const struct stat& successor)
{
    struct stat state
    {};
    // Attributes that were changed by hand must not pass to another file.
    const bool useful = ::fstatat(folder_.Get(), replaced.data(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISREG(state.st_mode) && state.st_nlink == 1 && state.st_size <= MaxSpareSize &&
                        state.st_mode == successor.st_mode && state.st_uid == successor.st_uid &&
                        state.st_gid == successor.st_gid;
    Spare leaving{replaced, size};
    if (useful) {
        const Nucleo::MutexGuard guard(mutex_);
        leaving = std::exchange(spare_, leaving);
    }
    if (leaving.name.front() != '\0') {
        Remove(leaving.name, leaving.size);
    }
}

void UploadFolder::RemoveSpare()
{
    Spare leaving;
    {
        const Nucleo::MutexGuard guard(mutex_);
        leaving = std::exchange(spare_, Spare{});
    }
    if (leaving.name.front() != '\0') {
        Remove(leaving.name, leaving.size);
    }
}

}  // namespace TesselLib
