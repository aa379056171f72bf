// What only a storage on a folder can get wrong: links and devices, the lock, what a crash leaves, failing calls of the
// system. The calls below take the place of the C library's in this program, so that each can be made to fail.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <TesselLib/DirectoryStorage.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "StorageFixture.h"

using namespace Nucleo::Statuses;
using TesselLib::DirectoryStorage;
namespace fs = std::filesystem;

namespace
{

/// Which call of the system fails, and what was called. Only while a test says so: other tests may run threads.
struct
{
    std::atomic<bool> on{false};
    std::vector<std::string> calls;
    std::string failing;
    int nth = 0;
    int error = 0;
    std::function<void()> afterLook;  // Runs once, behind the next look at a file.
} trace;

/// Whether this call is to fail; errno is set then.
bool Fails(const char* call)
{
    if (!trace.on) {
        return false;
    }
    trace.calls.emplace_back(call);
    if (trace.failing != call || --trace.nth != 0) {
        return false;
    }
    errno = trace.error;
    return true;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's own names are reserved ones
extern "C" {
int openat(int folder, const char* name, int flags, ...)
{
    std::va_list more;
    va_start(more, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    return Fails("openat") ? -1 : static_cast<int>(::syscall(SYS_openat, folder, name, flags, mode));
}

int fsync(int descriptor)
{
    return Fails("fsync") ? -1 : static_cast<int>(::syscall(SYS_fsync, descriptor));
}

int fdatasync(int descriptor)
{
    return Fails("fdatasync") ? -1 : static_cast<int>(::syscall(SYS_fdatasync, descriptor));
}

ssize_t write(int descriptor, const void* data, size_t size)
{
    // A write that "fails" with 0 is a short one.
    if (Fails("write")) {
        if (errno != 0) {
            return -1;
        }
        size = size / 2 + 1;
    }
    return ::syscall(SYS_write, descriptor, data, size);
}

ssize_t read(int descriptor, void* data, size_t size)
{
    return Fails("read") ? -1 : ::syscall(SYS_read, descriptor, data, size);
}

int fstatat(int folder, const char* name, struct stat* state, int flags) noexcept
{
    const auto result = static_cast<int>(::syscall(SYS_newfstatat, folder, name, state, flags));
    if (const auto then = std::exchange(trace.afterLook, nullptr)) {
        then();
    }
    return result;
}

int renameat(int from, const char* fromName, int to, const char* toName) noexcept
{
    return Fails("renameat") ? -1 : static_cast<int>(::syscall(SYS_renameat, from, fromName, to, toName));
}

int renameat2(int from, const char* fromName, int to, const char* toName, unsigned int flags) noexcept
{
    return Fails("renameat2") ? -1 : static_cast<int>(::syscall(SYS_renameat2, from, fromName, to, toName, flags));
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace
{

/// What `operation` answers while its calls are traced, the `nth` of which fails.
template <class Operation>
auto Traced(Operation operation, std::string failing = {}, int nth = 0, int error = 0)
{
    trace.calls.clear();
    trace.failing = std::move(failing);
    trace.nth = nth;
    trace.error = error;
    trace.on = true;
    auto answer = operation();
    trace.on = false;
    return answer;
}

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> NamesIn(const fs::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

class DirectoryStorageTest : public StorageFixture
{
protected:
    DirectoryStorageTest() { Reopen(); }

    void Reopen()
    {
        storage_.reset();
        ASSERT_EQ(DirectoryStorage::Open(Data(), &storage_), OK);
    }

    TesselLib::Storage& Storage() override { return *storage_; }
    fs::path Data() const { return folder_.Path() / "deep" / "data"; }
    fs::path User() const { return Data() / "user"; }
    fs::path Temporaries() const { return Data() / "tmp"; }
    fs::path Outside() const { return folder_.Path() / "outside"; }

    VxTestSupport::TemporaryFolder folder_;
    std::unique_ptr<DirectoryStorage> storage_;
};

TEST_F(DirectoryStorageTest, WhateverIsNoFileIsNotThereAndIsNotTouched)
{
    std::ofstream(Outside()) << "outside";
    fs::create_directory(folder_.Path() / "folder");
    fs::create_symlink(Outside(), User() / "link");
    fs::create_symlink(folder_.Path() / "folder", User() / "folder-link");
    fs::create_symlink("nowhere", User() / "dangling");
    fs::create_directory(User() / "folder");
    ASSERT_EQ(::mkfifo((User() / "pipe").c_str(), 0644), 0);
    std::vector<std::string> names{"link", "folder-link", "dangling", "folder", "pipe"};
    if (::mknod((User() / "device").c_str(), S_IFCHR | 0644, 0x103) == 0) {  // the null device, where it may be made
        names.emplace_back("device");
    }
    for (const std::string& name : names) {
        const fs::file_type before = fs::symlink_status(User() / name).type();
        std::uint64_t size = 0;
        EXPECT_FALSE(storage_->FileExists(name)) << name;
        EXPECT_EQ(storage_->FileSize(name, &size), ERROR_NOT_FOUND) << name;
        EXPECT_EQ(Download(name), "ERROR_NOT_FOUND") << name;
        EXPECT_EQ(storage_->Delete(name), ERROR_NOT_FOUND) << name;
        EXPECT_EQ(Upload(name, "new"), ERROR_ACCESS) << name;
        EXPECT_EQ(fs::symlink_status(User() / name).type(), before) << name;
    }
    EXPECT_EQ(ReadFile(Outside()), "outside");
    EXPECT_THAT(List(), testing::IsEmpty());
    EXPECT_THAT(NamesIn(Temporaries()), testing::IsEmpty());
}

TEST_F(DirectoryStorageTest, AFileThatIsReplacedWhileItIsOpenedHarmsNobody)
{
    std::ofstream(Outside()) << "outside";
    const std::pair<std::function<void()>, const char*> replacements[] = {
        {[this] { ASSERT_EQ(::mkfifo((User() / "a").c_str(), 0644), 0); }, "ERROR_NOT_FOUND"},
        {[this] { fs::create_symlink(Outside(), User() / "a"); }, "ERROR_ACCESS"}};
    for (const auto& [replace, status] : replacements) {
        ASSERT_EQ(Upload("a", "1"), OK);
        trace.afterLook = [this, make = replace] {
            fs::remove(User() / "a");
            make();
        };
        EXPECT_EQ(Download("a"), status);
        fs::remove(User() / "a");
    }
}

TEST_F(DirectoryStorageTest, OpensOnlyFoldersOfItsOwn)
{
    std::unique_ptr<DirectoryStorage> other;
    fs::create_directory(folder_.Path() / "elsewhere");
    for (const char* name : {"user", "tmp"}) {
        const fs::path data = folder_.Path() / (std::string("with-") + name);
        fs::create_directory(data);
        fs::create_directory_symlink(folder_.Path() / "elsewhere", data / name);
        EXPECT_EQ(DirectoryStorage::Open(data, &other), ERROR_ACCESS) << name;
        fs::remove(data / name);
        std::ofstream(data / name) << "a file";
        EXPECT_EQ(DirectoryStorage::Open(data, &other), ERROR_ACCESS) << name;
        EXPECT_EQ(other, nullptr);
    }
    std::ofstream(Outside()) << "a file";
    EXPECT_EQ(DirectoryStorage::Open(Outside(), &other), ERROR_ACCESS);
    EXPECT_EQ(DirectoryStorage::Open(Data(), &other), ERROR_BUSY);
    EXPECT_EQ(DirectoryStorage::Open({}, &other), ERROR_NAME);
    EXPECT_EQ(DirectoryStorage::Open(std::string("/tmp/a\0b", 8), &other), ERROR_NAME);
    // The data folder itself may be reached by a link: its place is the caller's choice.
    fs::create_directory_symlink(folder_.Path() / "elsewhere", folder_.Path() / "link");
    EXPECT_EQ(DirectoryStorage::Open(folder_.Path() / "link", &other), OK);
}

TEST_F(DirectoryStorageTest, RemovesWhatACrashLeft)
{
    ASSERT_EQ(Upload("a", "1"), OK);
    storage_.reset();
    std::ofstream(Outside()) << "outside";
    std::ofstream(Temporaries() / "upload-1") << "half a fi";
    fs::create_symlink(Outside(), Temporaries() / "upload-2");
    Reopen();
    EXPECT_THAT(NamesIn(Temporaries()), testing::IsEmpty());
    EXPECT_EQ(ReadFile(Outside()), "outside");
    EXPECT_THAT(List(), testing::ElementsAre("a"));
}

TEST_F(DirectoryStorageTest, SyncsTheFileBeforeItTakesItsPlaceAndTheFolderAfter)
{
    const auto upload = [this] { return Upload("a", "new"); };
    const std::pair<std::function<Nucleo::Status()>, std::vector<std::string>> steps[] = {
        {upload, {"openat", "write", "fsync", "renameat", "fsync"}},
        {upload, {"openat", "write", "fsync", "renameat2", "fsync"}},      // over another
        {upload, {"openat", "write", "fdatasync", "renameat2", "fsync"}},  // with a spare
        {[this] { return storage_->Delete("a"); }, {"renameat", "fsync"}}};
    for (const auto& [operation, calls] : steps) {
        EXPECT_EQ(Traced(operation), OK);
        EXPECT_EQ(trace.calls, calls);
    }
}

TEST_F(DirectoryStorageTest, AFailingCallLeavesEverythingAsItWas)
{
    const std::string text(100'000, 'n');
    const auto upload = [&] { return Upload("a", text); };
    const struct
    {
        const char* call;
        int nth;
        int error;
        Nucleo::Status status;
    } faults[] = {
        {"write", 1, ENOSPC, ERROR_DISK_FULL},
        {"write", 1, EDQUOT, ERROR_DISK_FULL},
        {"write", 1, EFBIG, ERROR_DISK_FULL},
        {"write", 1, EIO, ERROR_IO},
        {"fsync", 1, EIO, ERROR_IO},
        {"fsync", 1, ENOSPC, ERROR_DISK_FULL},
        {"fsync", 2, EIO, ERROR_IO},
        {"fdatasync", 1, EIO, ERROR_IO},
        {"renameat2", 1, EROFS, ERROR_READ_ONLY},
        {"renameat2", 1, EACCES, ERROR_ACCESS},
        {"renameat2", 1, EINVAL, OK},  // Files that cannot be exchanged: renamed.
        {"renameat", 1, EROFS, ERROR_READ_ONLY},
        {"write", 1, EINTR, OK},
        {"fsync", 2, EINTR, OK},
        {"write", 1, 0, OK},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(testing::Message() << fault.call << " " << fault.nth << " " << fault.error);
        // A new file, one over another, and one for which there is a spare.
        for (const int versions : {0, 1, 2}) {
            Reopen();
            for (int i = 0; i < versions; ++i) {
                ASSERT_EQ(Upload("a", "old"), OK);
            }
            const std::string before = Download("a");
            const Nucleo::Status status = Traced(upload, fault.call, fault.nth, fault.error);
            const bool reached = trace.nth <= 0;
            EXPECT_EQ(status, reached ? fault.status : OK);
            EXPECT_EQ(Download("a"), status == OK ? text : before);
            storage_->Delete("a");
            EXPECT_THAT(NamesIn(Temporaries()), testing::IsEmpty());
        }
    }
    ASSERT_EQ(Upload("a", "old"), OK);
    EXPECT_EQ(Traced(upload, "openat", 1, EMFILE), ERROR_TOO_MANY_FILES);
    // A deletion that is not on the medium has not happened.
    for (const char* call : {"renameat", "fsync"}) {
        EXPECT_EQ(Traced([this] { return storage_->Delete("a"); }, call, 1, EIO), ERROR_IO);
    }
    const auto download = [this] { return Download("a"); };
    EXPECT_EQ(Traced(download, "openat", 1, EMFILE), "ERROR_TOO_MANY_FILES");
    EXPECT_EQ(Traced(download, "read", 1, EIO), "ERROR_IO");
    EXPECT_EQ(Traced(download, "read", 1, EINTR), "old");
    std::vector<std::string> names;
    EXPECT_EQ(Traced([&] { return storage_->List("/user", &names); }, "openat", 1, EMFILE), ERROR_TOO_MANY_FILES);
}

TEST_F(DirectoryStorageTest, NeverWritesOverAFileThatSomebodyStillReads)
{
    ASSERT_EQ(Upload("a", "version 1"), OK);
    std::ifstream reader(User() / "a");
    ASSERT_EQ(Upload("a", "version 2"), OK);
    fs::create_hard_link(User() / "a", folder_.Path() / "backup");
    ASSERT_EQ(Upload("a", "version 3"), OK);
    ASSERT_EQ(Upload("a", "version 4"), OK);
    ASSERT_EQ(Upload("a", "version 5"), OK);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "version 1");
    EXPECT_EQ(ReadFile(folder_.Path() / "backup"), "version 2");
    EXPECT_EQ(Download("a"), "version 5");
}

TEST_F(DirectoryStorageTest, KeepsNoSpareThatADownloadMayBeAboutToOpen)
{
    ASSERT_EQ(Upload("a", "version 1"), OK);
    trace.afterLook = [this] {
        ASSERT_EQ(Upload("a", "version 2"), OK);
        EXPECT_THAT(NamesIn(Temporaries()), testing::IsEmpty());
    };
    EXPECT_EQ(Download("a"), "version 2");
    EXPECT_EQ(trace.afterLook, nullptr);
}

TEST_F(DirectoryStorageTest, KeepsOneSpareAtMostAndNoneThatCouldSurprise)
{
    const auto spares = [this] { return NamesIn(Temporaries()).size(); };
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Upload("a", "old"), OK);
        ASSERT_EQ(Upload("b", "old"), OK);
    }
    EXPECT_EQ(spares(), 1u);
    ASSERT_EQ(storage_->Delete("b"), OK);
    EXPECT_EQ(spares(), 0u) << "a deleted file's content stays behind";

    // One whose attributes were changed: they must not pass to another file.
    ::chmod((User() / "a").c_str(), 0600);
    ASSERT_EQ(Upload("a", "new"), OK);
    EXPECT_EQ(spares(), 0u);

    const std::string huge(16 * 1024 * 1024 + 1, 'h');
    ASSERT_EQ(Upload("a", huge), OK);
    ASSERT_EQ(Upload("a", "small"), OK);
    EXPECT_EQ(spares(), 0u) << "a replaced file of this size is freed";
    ASSERT_EQ(Upload("a", "small"), OK);
    EXPECT_EQ(spares(), 1u);
    storage_.reset();
    EXPECT_EQ(spares(), 0u);
}

}  // namespace
