#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string>

#include <TesselLib/LocalFile.h>

#include "src/Errno.h"
#include "src/FileDescriptor.h"
#include "src/Folder.h"

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

constexpr mode_t newFileMode = 0644;

Nucleo::Status ReadAll(int descriptor, std::size_t maxSize, std::vector<std::uint8_t>& content)
{
    struct stat state
    {};
    if (::fstat(descriptor, &state) != 0) {
        return StatusOfErrno(errno);
    }
    if (!S_ISREG(state.st_mode)) {
        return ERROR_ACCESS;
    }
    if (static_cast<std::uint64_t>(state.st_size) > maxSize) {
        return ERROR_LIMIT;
    }
    content.resize(static_cast<std::size_t>(state.st_size));
    std::size_t length = 0;
    while (length < content.size()) {
        const ssize_t count =
            Retry([&] { return ::read(descriptor, content.data() + length, content.size() - length); });
        if (count < 0) {
            return StatusOfErrno(errno);
        }
        if (count == 0) {
            break;  // Somebody has cut it off meanwhile.
        }
        length += static_cast<std::size_t>(count);
    }
    content.resize(length);
    return OK;
}

/// A new file beside `file`; its name in `*beside`. Nothing when there can be none, and errno says why.
FileDescriptor CreateBeside(const std::filesystem::path& file, std::string* beside)
{
    // Another process, or one that was killed, may have had the same number and left a file of the name.
    constexpr int attempts = 1000;
    static std::atomic<std::uint64_t> lastNumber{0};
    for (int attempt = 0;; ++attempt) {
        *beside = file.native() + "." + std::to_string(::getpid()) + "-" + std::to_string(++lastNumber) + ".tmp";
        FileDescriptor made(
            Retry([&] { return ::open(beside->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, newFileMode); }));
        if (made || errno != EEXIST || attempt == attempts) {
            return made;
        }
    }
}

/// Fills the new file that may take the old one's place.
Nucleo::Status WriteNew(const FileDescriptor& descriptor, const std::filesystem::path& file, const std::uint8_t* data,
                        std::size_t size)
{
    struct stat old
    {};
    if (::lstat(file.c_str(), &old) == 0 && S_ISREG(old.st_mode) &&
        ::fchmod(descriptor.Get(), old.st_mode & 07777) != 0) {
        return StatusOfErrno(errno);
    }
    const Nucleo::Status status = WriteAll(descriptor.Get(), data, size);
    return status == OK ? Sync(descriptor.Get()) : status;
}

Nucleo::Status Replace(const std::filesystem::path& file, const std::uint8_t* data, std::size_t size)
{
    if (file.native().find('\0') != std::string::npos || !file.has_filename()) {
        return ERROR_NAME;
    }
    const std::filesystem::path parent = file.has_parent_path() ? file.parent_path() : ".";
    const FileDescriptor folder(Retry([&] { return ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!folder) {
        return StatusOfErrno(errno);
    }
    std::string beside;
    const FileDescriptor made = CreateBeside(file, &beside);
    if (!made) {
        return StatusOfErrno(errno);
    }
    Nucleo::Status status = WriteNew(made, file, data, size);
    if (status == OK && std::rename(beside.c_str(), file.c_str()) != 0) {
        status = StatusOfErrno(errno);
    }
    if (status != OK) {
        ::unlink(beside.c_str());
        return status;
    }
    return Sync(folder.Get());
}

}  // namespace

Nucleo::Status LocalFile_Read(const std::filesystem::path& file, std::size_t maxSize,
                              std::vector<std::uint8_t>* content) noexcept
{
    content->clear();
    if (file.native().find('\0') != std::string::npos) {
        return ERROR_NAME;
    }
    // Without O_NONBLOCK a pipe that lies there would make the caller wait.
    const FileDescriptor descriptor(Retry([&] { return ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    if (!descriptor) {
        return StatusOfErrno(errno);
    }
    Nucleo::Status status = ERROR_MEMORY;
    try {
        status = ReadAll(descriptor.Get(), maxSize, *content);
    } catch (const std::bad_alloc&) {
        // The status says it.
    }
    if (status != OK) {
        content->clear();
    }
    return status;
}

Nucleo::Status LocalFile_Replace(const std::filesystem::path& file, const std::uint8_t* data, std::size_t size) noexcept
{
    try {
        return Replace(file, data, size);
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    }
}

}  // namespace TesselLib
