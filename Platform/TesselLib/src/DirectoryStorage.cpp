#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include <TesselLib/DirectoryStorage.h>

#include "src/Errno.h"
#include "src/FileDescriptor.h"
#include "src/Folder.h"
#include "src/UploadFolder.h"

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

/// A storage name, NUL-ended for the system's calls. It is one path component, so no call can leave the folder by it;
/// links are not followed because every call says so.
class Component
{
public:
    explicit Component(std::string_view path) noexcept
    {
        const std::string_view name = StorageName(path);  // Holds no NUL and fits, or is empty.
        std::copy(name.begin(), name.end(), text_.begin());
    }

    explicit operator bool() const noexcept { return text_.front() != '\0'; }
    const char* Text() const noexcept { return text_.data(); }

private:
    std::array<char, 256> text_{};
};

enum class Kind
{
    Missing,
    File,
    Other
};

/// What `name` is in `folder`, and for a file its attributes.
Nucleo::Status Look(int folder, const char* name, Kind* kind, struct stat* state)
{
    *kind = Kind::Missing;
    if (::fstatat(folder, name, state, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? OK : StatusOfErrno(errno);
    }
    *kind = S_ISREG(state->st_mode) ? Kind::File : Kind::Other;
    return OK;
}

/// As Look, for callers to whom only files exist.
Nucleo::Status LookForFile(int folder, const char* name, struct stat* state)
{
    Kind kind = Kind::Missing;
    const Nucleo::Status status = Look(folder, name, &kind, state);
    return status == OK && kind != Kind::File ? ERROR_NOT_FOUND : status;
}

/// Makes the folder where it is missing, with those above it, and brings it onto the medium: each folder that was made,
/// and the one that the first of them was made in.
Nucleo::Status MakeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::absolute(folder, error);
    std::filesystem::path top = whole;
    while (!error && !std::filesystem::exists(top, error) && !error) {
        top = top.parent_path();
    }
    if (error) {
        return StatusOfErrno(error.value());
    }
    if (top == whole) {
        return OK;
    }
    std::filesystem::create_directories(whole, error);
    Nucleo::Status status = error ? StatusOfErrno(error.value()) : OK;
    for (std::filesystem::path made = whole; status == OK && made != top;) {
        made = made.parent_path();
        const FileDescriptor parent(Retry([&] { return ::open(made.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
        status = parent ? Sync(parent.Get()) : StatusOfErrno(errno);
    }
    return status;
}

/// Bytes that the files in `folder` take; as many as can be seen.
std::int64_t BytesIn(int folder)
{
    std::int64_t bytes = 0;
    VisitEntries(folder, [&](const dirent& entry) {
        struct stat state
        {};
        bytes += LookForFile(folder, entry.d_name, &state) == OK ? state.st_size : 0;
        return OK;
    });
    return bytes;
}

/// Counts in a counter for as long as it lives.
class Counted
{
public:
    explicit Counted(std::atomic<int>& counter) : counter_(counter) { ++counter_; }
    ~Counted() { --counter_; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    std::atomic<int>& counter_;
};

}  // namespace

struct DirectoryStorage::Folders
{
    Nucleo::Status Open(const std::filesystem::path& dataFolder);
    Nucleo::Status Place(const UploadName& upload, const char* name) VX_EXCLUDES(renaming);
    Nucleo::Status Remove(const char* name) VX_EXCLUDES(renaming);
    Nucleo::Status Rename(const char* from, const char* to) VX_EXCLUDES(renaming);

    // Constant after Open.
    FileDescriptor data;
    FileDescriptor lock;
    FileDescriptor user;

    /// Of the files in both folders. Below 0 when files were made smaller by hand.
    std::atomic<std::int64_t> usedBytes{0};
    UploadFolder uploads{usedBytes};

    /// Downloads under way. One that began before a file was replaced may be about to open the old one, when nobody can
    /// tell yet that it is in use; the old file is not kept then.
    std::atomic<int> downloads{0};

    /// Held while a file takes or leaves its place, so that taking a failed change back never undoes another's.
    /// Outermost: the upload folder's lock is taken under it.
    Nucleo::Mutex renaming;
};

Nucleo::Status DirectoryStorage::Folders::Open(const std::filesystem::path& dataFolder)
{
    if (dataFolder.native().find('\0') != std::string::npos || dataFolder.empty()) {
        return ERROR_NAME;
    }
    if (const Nucleo::Status status = MakeFolder(dataFolder); status != OK) {
        return status;
    }
    data = FileDescriptor(Retry([&] { return ::open(dataFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!data) {
        return StatusOfErrno(errno);
    }
    lock = FileDescriptor(Retry(
        [&] { return ::openat(data.Get(), "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644); }));
    if (!lock || Retry([&] { return ::flock(lock.Get(), LOCK_EX | LOCK_NB); }) != 0) {
        return StatusOfErrno(errno);
    }
    Nucleo::Status status = OpenFolder(data.Get(), "user", &user);
    if (status == OK) {
        status = uploads.Open(data.Get());
    }
    if (status == OK) {
        status = Sync(data.Get());
    }
    usedBytes = BytesIn(user.Get()) + BytesIn(uploads.Descriptor());
    return status;
}

Nucleo::Status DirectoryStorage::Folders::Place(const UploadName& upload, const char* name)
{
    const Nucleo::MutexGuard guard(renaming);
    const int from = uploads.Descriptor();
    const int to = user.Get();
    Kind kind = Kind::Missing;
    struct stat old
    {};
    struct stat state
    {};
    if (const Nucleo::Status status = Look(to, name, &kind, &old); status != OK) {
        return status;
    }
    if (kind == Kind::Other) {
        return ERROR_ACCESS;
    }
    if (::fstatat(from, upload.data(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
        return StatusOfErrno(errno);
    }
    // Both files stay until the folder is on the medium: the old one waits under the upload's name.
    const bool exchanged = kind == Kind::File && ::renameat2(from, upload.data(), to, name, RENAME_EXCHANGE) == 0;
    if (!exchanged) {
        const bool unsupported = errno == EINVAL || errno == ENOSYS;
        if (kind == Kind::File && !unsupported && errno != ENOENT) {
            return StatusOfErrno(errno);
        }
        if (::renameat(from, upload.data(), to, name) != 0) {
            return StatusOfErrno(errno);
        }
    }
    if (const Nucleo::Status status = Sync(to); status != OK) {
        // Final: what the medium holds is unknown, and syncing again would only hide that. Readers go on with the old
        // file.
        if (exchanged) {
            ::renameat2(from, upload.data(), to, name, RENAME_EXCHANGE);
        } else if (kind == Kind::Missing) {
            ::renameat(to, name, from, upload.data());
        } else {
            usedBytes -= old.st_size;  // It is gone: the new file stays in its place.
        }
        return status;
    }
    if (exchanged && downloads == 0) {
        uploads.Retire(upload, old.st_size, state);
    } else if (exchanged) {
        uploads.Remove(upload, old.st_size);
    } else if (kind == Kind::File) {
        usedBytes -= old.st_size;
    }
    return OK;
}

Nucleo::Status DirectoryStorage::Folders::Remove(const char* name)
{
    const Nucleo::MutexGuard guard(renaming);
    struct stat state
    {};
    if (const Nucleo::Status status = LookForFile(user.Get(), name, &state); status != OK) {
        return status;
    }
    const UploadName leaving = uploads.NextName();
    if (::renameat(user.Get(), name, uploads.Descriptor(), leaving.data()) != 0) {
        return StatusOfErrno(errno);
    }
    if (const Nucleo::Status status = Sync(user.Get()); status != OK) {
        ::renameat(uploads.Descriptor(), leaving.data(), user.Get(), name);
        return status;
    }
    uploads.Remove(leaving, state.st_size);
    uploads.RemoveSpare();  // It may hold an older version of what was to go.
    return OK;
}

Nucleo::Status DirectoryStorage::Folders::Rename(const char* from, const char* to)
{
    const Nucleo::MutexGuard guard(renaming);
    struct stat state
    {};
    Kind kind = Kind::Missing;
    Nucleo::Status status = LookForFile(user.Get(), from, &state);
    if (status == OK) {
        status = Look(user.Get(), to, &kind, &state);
    }
    if (status != OK || std::string_view(from) == to) {
        return status;
    }
    if (kind == Kind::Other) {
        return ERROR_ACCESS;
    }
    // A second name keeps the replaced file until the folder is on the medium. Where there can be none, the move goes
    // on without: it must be possible when little else is.
    const UploadName kept = uploads.NextName();
    const bool keeps = kind == Kind::File && ::linkat(user.Get(), to, uploads.Descriptor(), kept.data(), 0) == 0;
    if (::renameat(user.Get(), from, user.Get(), to) != 0) {
        status = StatusOfErrno(errno);
    } else if (status = Sync(user.Get()); status != OK) {
        const bool back = ::renameat(user.Get(), to, user.Get(), from) == 0;
        if (back && keeps) {
            ::renameat(uploads.Descriptor(), kept.data(), user.Get(), to);
        }
    }
    if (keeps) {
        uploads.Remove(kept, 0);
    }
    if (status == OK && kind == Kind::File) {
        usedBytes -= state.st_size;
    }
    return status;
}

DirectoryStorage::DirectoryStorage(std::unique_ptr<Folders> folders) : folders_(std::move(folders)) {}

DirectoryStorage::~DirectoryStorage() = default;

Nucleo::Status DirectoryStorage::Open(const std::filesystem::path& dataFolder,
                                      std::unique_ptr<DirectoryStorage>* storage)
{
    storage->reset();
    try {
        auto folders = std::make_unique<Folders>();
        if (const Nucleo::Status status = folders->Open(dataFolder); status != OK) {
            return status;
        }
        storage->reset(new DirectoryStorage(std::move(folders)));
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

bool DirectoryStorage::FileExists(std::string_view path) const
{
    const Component name(path);
    struct stat state
    {};
    if (!name) {
        return false;
    }
    const Nucleo::Status status = LookForFile(folders_->user.Get(), name.Text(), &state);
    return status != ERROR_NOT_FOUND && status != ERROR_NAME;
}

Nucleo::Status DirectoryStorage::FileSize(std::string_view path, std::uint64_t* size) const
{
    *size = 0;
    const Component name(path);
    if (!name) {
        return ERROR_NAME;
    }
    struct stat state
    {};
    const Nucleo::Status status = LookForFile(folders_->user.Get(), name.Text(), &state);
    if (status == OK) {
        *size = static_cast<std::uint64_t>(state.st_size);
    }
    return status;
}

Nucleo::Status DirectoryStorage::Download(std::string_view path, Nucleo::Stream& stream) const
{
    const Component name(path);
    if (!name) {
        return ERROR_NAME;
    }
    const Counted counted(folders_->downloads);
    // Looked at before it is opened, since opening a device can have effects; and again after, since it may be another
    // by then. O_NONBLOCK: not even a pipe that took the file's place in between makes the caller wait.
    struct stat state
    {};
    if (const Nucleo::Status status = LookForFile(folders_->user.Get(), name.Text(), &state); status != OK) {
        return status;
    }
    const FileDescriptor file(Retry([&] {
        return ::openat(folders_->user.Get(), name.Text(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }));
    if (!file || ::fstat(file.Get(), &state) != 0) {
        return StatusOfErrno(errno);
    }
    if (!S_ISREG(state.st_mode)) {
        return ERROR_NOT_FOUND;
    }
    auto left = static_cast<std::uint64_t>(state.st_size);
    if (const Nucleo::Status status = stream.Reserve(left); status != OK) {
        return status;
    }
    constexpr std::uint64_t maxStep = 256 * 1024;
    const std::size_t capacity = static_cast<std::size_t>(std::min(left, maxStep));
    const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[capacity]);
    if (!buffer) {
        return ERROR_MEMORY;
    }
    while (left != 0) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, capacity));
        const ssize_t count = Retry([&] { return ::read(file.Get(), buffer.get(), wanted); });
        if (count <= 0) {
            return count < 0 ? StatusOfErrno(errno) : ERROR_IO;  // A file does not get shorter but by damage.
        }
        if (const Nucleo::Status status = stream.Write(buffer.get(), static_cast<std::size_t>(count)); status != OK) {
            return status;
        }
        left -= static_cast<std::uint64_t>(count);
    }
    return OK;
}

Nucleo::Status DirectoryStorage::Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size)
{
    const Component name(path);
    if (!name) {
        return ERROR_NAME;
    }
    if (data == nullptr && size != 0) {
        return ERROR_PARAMETER;
    }
    UploadName upload{};
    if (const Nucleo::Status status = folders_->uploads.Write(data, size, &upload); status != OK) {
        return status;
    }
    const Nucleo::Status status = folders_->Place(upload, name.Text());
    if (status != OK) {
        folders_->uploads.Remove(upload, static_cast<std::int64_t>(size));
    }
    return status;
}

Nucleo::Status DirectoryStorage::Delete(std::string_view path)
{
    const Component name(path);
    return name ? folders_->Remove(name.Text()) : ERROR_NAME;
}

Nucleo::Status DirectoryStorage::Move(std::string_view from, std::string_view to)
{
    const Component old(from);
    const Component now(to);
    return old && now ? folders_->Rename(old.Text(), now.Text()) : ERROR_NAME;
}

Nucleo::Status DirectoryStorage::List(std::string_view directory, std::vector<std::string>* names) const
{
    names->clear();
    if (directory != "/user") {
        return ERROR_NOT_FOUND;
    }
    try {
        std::vector<std::string> found;
        const int user = folders_->user.Get();
        const Nucleo::Status status = VisitEntries(user, [&](const dirent& entry) {
            // Not every file system says the kind along with the name.
            struct stat state
            {};
            const bool isFile =
                entry.d_type == DT_REG || (entry.d_type == DT_UNKNOWN && LookForFile(user, entry.d_name, &state) == OK);
            if (isFile && IsStorageName(entry.d_name)) {
                found.emplace_back(entry.d_name);
            }
            return OK;
        });
        if (status != OK) {
            return status;
        }
        std::sort(found.begin(), found.end());
        *names = std::move(found);
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

std::uint64_t DirectoryStorage::UsedBytes() const
{
    return static_cast<std::uint64_t>(std::max<std::int64_t>(folders_->usedBytes, 0));
}

void DirectoryStorage::FreeSpare()
{
    folders_->uploads.RemoveSpare();
}

}  // namespace TesselLib
