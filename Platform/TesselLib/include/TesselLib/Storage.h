#pragma once
// The file storage of a node: one flat user directory, "/user".

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Status.h>
#include <Nucleo/Stream.h>

namespace TesselLib
{

/// Files of a node.
///
/// Names. A file is named by its bare name or by "/user/" and its name; both mean the same file. A name is one path
/// component: NUL, "/", the names "." and "..", an empty name, more than 255 bytes and bytes that are not UTF-8 are
/// refused with ERROR_NAME. Only regular files exist to this interface: a directory, link or device in the folder is as
/// if it were not there (ERROR_NOT_FOUND), and an upload or move onto one is refused with ERROR_ACCESS.
///
/// Failures. ERROR_NOT_FOUND, ERROR_DISK_FULL, ERROR_READ_ONLY, ERROR_TOO_MANY_FILES, ERROR_ACCESS, ERROR_IO,
/// ERROR_MEMORY: each leaves every file as it was.
///
/// Threads. Every operation may be called from any thread; calls may overlap. An upload and a download of the same file
/// never mix: a reader sees the old file or the new one.
class Storage
{
public:
    virtual ~Storage() = default;

    /// Whether the file may be there. False says that it is not: nothing has the name, or something that is no file, or
    /// the storage does not take the name. A look-up that fails (ERROR_IO, ERROR_ACCESS, ERROR_MEMORY, ...) cannot tell
    /// and answers true; the operation that follows says why. What must know for certain asks FileSize.
    virtual bool FileExists(std::string_view path) const = 0;

    /// Sets `*size` to the file's length in bytes; 0 on failure.
    virtual Nucleo::Status FileSize(std::string_view path, std::uint64_t* size) const = 0;

    /// Writes the whole file into `stream` at its position. A failing stream's status is returned.
    virtual Nucleo::Status Download(std::string_view path, Nucleo::Stream& stream) const = 0;

    /// Creates or replaces the file by `size` bytes. All or nothing, and on the medium when it returns OK. `data` may
    /// be null when `size` is 0.
    virtual Nucleo::Status Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size) = 0;

    /// Removes the file; it stays removed after a power cut once this returned OK.
    virtual Nucleo::Status Delete(std::string_view path) = 0;

    /// Gives the file `from` the name `to` and replaces the file that had it, by a rename: it needs neither room nor
    /// reading, so it works on a full disk and for a file whose content cannot be read. On the medium when it returns
    /// OK; both files are as they were when it does not, except that a storage that cannot keep the replaced file
    /// meanwhile may have lost that one. ERROR_NOT_FOUND when `from` is none. Not every storage offers it: the default
    /// answers ERROR_UNSUPPORTED.
    virtual Nucleo::Status Move(std::string_view from, std::string_view to);

    /// Fills `*names` with the bare names of the files of `directory` ("/user"), in byte order.
    virtual Nucleo::Status List(std::string_view directory, std::vector<std::string>* names) const = 0;
};

/// True when `name` is one path component that every storage takes (see Storage).
bool IsStorageName(std::string_view name) noexcept;

/// The bare name of `path` ("/user/a" or "a" give "a"); empty when it is not a valid name in "/user".
std::string_view StorageName(std::string_view path) noexcept;

}  // namespace TesselLib
