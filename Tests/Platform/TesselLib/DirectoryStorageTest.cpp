// What only a storage on a folder can get wrong: links and devices, the lock, what a crash leaves, failing calls of the
// system.

#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>

#include <gmock/gmock.h>

#include <TesselLib/DirectoryStorage.h>
#include <VxTestSupport/SystemCalls.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "StorageFixture.h"

using namespace Nucleo::Statuses;
using TesselLib::DirectoryStorage;
using VxTestSupport::trace;
using VxTestSupport::Traced;
namespace fs = std::filesystem;

namespace
{

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class DirectoryStorageTest : public StorageFixture
{
protected:
    DirectoryStorageTest() { Reopen(); }
    ~DirectoryStorageTest() override { ExpectCounted(); }

    void Reopen()
    {
        storage_.reset();
        ASSERT_EQ(DirectoryStorage::Open(Data(), &storage_), OK);
    }

    /// Whatever a test does, the bytes of the files are counted.
    void ExpectCounted() const
    {
        std::uintmax_t bytes = 0;
        for (const auto& entry : fs::recursive_directory_iterator(Data())) {
            bytes += entry.is_regular_file() && !entry.is_symlink() ? entry.file_size() : 0;
        }
        EXPECT_EQ(storage_->UsedBytes(), bytes);
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
    ASSERT_EQ(Upload("file", "1"), OK);
    for (const std::string& name : names) {
        const fs::file_type before = fs::symlink_status(User() / name).type();
        std::uint64_t size = 0;
        EXPECT_FALSE(storage_->FileExists(name)) << name;
        EXPECT_EQ(storage_->FileSize(name, &size), ERROR_NOT_FOUND) << name;
        EXPECT_EQ(Download(name), "ERROR_NOT_FOUND") << name;
        EXPECT_EQ(storage_->Delete(name), ERROR_NOT_FOUND) << name;
        EXPECT_EQ(storage_->Move(name, "file"), ERROR_NOT_FOUND) << name;
        EXPECT_EQ(storage_->Move("file", name), ERROR_ACCESS) << name;
        EXPECT_EQ(Upload(name, "new"), ERROR_ACCESS) << name;
        EXPECT_EQ(fs::symlink_status(User() / name).type(), before) << name;
    }
    EXPECT_EQ(ReadFile(Outside()), "outside");
    EXPECT_THAT(List(), testing::ElementsAre("file"));
    EXPECT_TRUE(fs::is_empty(Temporaries()));
}

TEST_F(DirectoryStorageTest, AFileThatIsReplacedWhileItIsOpenedHarmsNobody)
{
    std::ofstream(Outside()) << "outside";
    const std::pair<std::function<void()>, const char*> replacements[] = {
        {[this] { ASSERT_EQ(::mkfifo((User() / "a").c_str(), 0644), 0); }, "ERROR_NOT_FOUND"},
        {[this] { fs::create_symlink(Outside(), User() / "a"); }, "ERROR_ACCESS"},
        {[this] { EXPECT_EQ(Upload("a", "version 2"), OK); }, "version 2"}};
    for (const auto& [replace, result] : replacements) {
        ASSERT_EQ(Upload("a", "version 1"), OK);
        trace.afterLook = [this, make = replace, kept = result] {
            if (kept[0] == 'E') {
                fs::remove(User() / "a");
            }
            make();
            EXPECT_TRUE(fs::is_empty(Temporaries())) << "a spare that the download may be about to open";
        };
        EXPECT_EQ(Download("a"), result);
        fs::remove(User() / "a");
        Reopen();
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

TEST_F(DirectoryStorageTest, SyncsTheFileBeforeItTakesItsPlaceAndTheFolderAfter)
{
    const auto upload = [this] { return Upload("a", "new"); };
    const auto move = [this] { return storage_->Move("a", "b"); };
    const std::pair<std::function<Nucleo::Status()>, std::vector<std::string>> steps[] = {
        {upload, {"openat", "write", "fsync", "renameat", "fsync"}},
        {upload, {"openat", "write", "fsync", "renameat2", "fsync"}},      // over another
        {upload, {"openat", "write", "fdatasync", "renameat2", "fsync"}},  // with a spare
        {move, {"renameat", "fsync"}},
        {upload, {"openat", "write", "fdatasync", "renameat", "fsync"}},
        {move, {"linkat", "renameat", "fsync", "unlinkat"}},  // onto another
        {[this] { return storage_->Delete("b"); }, {"renameat", "fsync", "unlinkat"}}};
    for (const auto& [operation, calls] : steps) {
        EXPECT_EQ(Traced(operation), OK);
        std::erase_if(trace.calls, [](const std::string& call) { return call.find("stat") != std::string::npos; });
        EXPECT_EQ(trace.calls, calls);
    }
}

TEST_F(DirectoryStorageTest, AFailingCallSaysWhyAndLeavesEverythingAsItWas)
{
    const std::string text(100'000, 'n');
    const struct
    {
        const char* call;
        int error;
        Nucleo::Status status;
    } faults[] = {
        {"write", ENOSPC, ERROR_DISK_FULL},
        {"write", EDQUOT, ERROR_DISK_FULL},
        {"write", EFBIG, ERROR_DISK_FULL},
        {"fdatasync", EIO, ERROR_IO},
        {"renameat2", EROFS, ERROR_READ_ONLY},
        {"renameat2", EINVAL, OK},  // Files that cannot be exchanged: renamed.
        {"write", EINTR, OK},
        {"fsync", EINTR, OK},
        {"write", 0, OK},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(testing::Message() << fault.call << " " << fault.error);
        ASSERT_EQ(Upload("a", "old"), OK);
        ASSERT_EQ(Upload("a", "old"), OK);  // Now there is a spare.
        EXPECT_EQ(Traced([&] { return Upload("a", text); }, fault.call, 1, fault.error), fault.status);
        EXPECT_TRUE(trace.Reached());
        EXPECT_EQ(Download("a"), fault.status == OK ? text : "old");
        storage_->Delete("a");
        EXPECT_TRUE(fs::is_empty(Temporaries()));
        ExpectCounted();
    }
    ASSERT_EQ(Upload("a", "old"), OK);
    EXPECT_EQ(Traced([this] { return Download("a"); }, "read", 1, EINTR), "old");
    // Without a second name for what is replaced, a move is made all the same.
    ASSERT_EQ(Upload("b", "other"), OK);
    EXPECT_EQ(Traced([this] { return storage_->Move("a", "b"); }, "linkat", 1, EPERM), OK);
    EXPECT_EQ(Download("b"), "old");
    EXPECT_EQ(Traced([this] { return storage_->FileExists("a"); }, "fstatat", 1, EACCES), true);
    EXPECT_EQ(Traced([this] { return storage_->FileExists("a"); }, "fstatat", 1, ENAMETOOLONG), false);
}

TEST_F(DirectoryStorageTest, ADeletionThatIsTakenBackTakesNothingElseBack)
{
    ASSERT_EQ(Upload("a", "old"), OK);
    std::thread uploader;
    std::promise<Nucleo::Status> uploaded;
    trace.atSync = [&] {
        // The upload waits for its turn; what has to be seen is that it does not come to pass meanwhile.
        uploader = std::thread([&] { uploaded.set_value(Upload("a", "new")); });
        EXPECT_EQ(uploaded.get_future().wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
        return EIO;
    };
    EXPECT_EQ(storage_->Delete("a"), ERROR_IO);
    uploader.join();
    EXPECT_EQ(Download("a"), "new");
}

TEST_F(DirectoryStorageTest, RemovesWhatACrashLeftAndCountsWhatIsThereWhenItIsOpened)
{
    ASSERT_EQ(Upload("a", std::string(300, 'a')), OK);
    ASSERT_EQ(Upload("a", std::string(500, 'a')), OK);
    EXPECT_EQ(storage_->UsedBytes(), 800u) << "with the one that was replaced";
    storage_->FreeSpare();
    EXPECT_EQ(storage_->UsedBytes(), 500u);
    std::ofstream(Outside()) << "outside";
    std::ofstream(Temporaries() / "upload-1") << "half a fi";
    fs::create_symlink(Outside(), Temporaries() / "upload-2");
    std::ofstream(User() / "b") << std::string(70, 'b');
    Reopen();
    EXPECT_TRUE(fs::is_empty(Temporaries()));
    EXPECT_EQ(ReadFile(Outside()), "outside");
    EXPECT_THAT(List(), testing::ElementsAre("a", "b"));
    EXPECT_EQ(storage_->UsedBytes(), 570u);
    fs::resize_file(User() / "b", 1000);
    ASSERT_EQ(storage_->Delete("b"), OK);
    EXPECT_EQ(storage_->UsedBytes(), 0u) << "not below";
    Reopen();
}

TEST_F(DirectoryStorageTest, SyncsEveryFolderThatItMakes)
{
    const fs::path top = fs::canonical(folder_.Path());
    const auto open = [&](const char* name) {
        std::unique_ptr<DirectoryStorage> made;
        return DirectoryStorage::Open(top / name / "deep" / "data", &made);
    };
    EXPECT_EQ(Traced([&] { return open("new"); }), OK);
    EXPECT_THAT(trace.synced, testing::UnorderedElementsAre(top, top / "new", top / "new/deep", top / "new/deep/data"));
    for (int nth = 1; nth <= 4; ++nth) {
        EXPECT_EQ(Traced([&] { return open(std::to_string(nth).c_str()); }, "fsync", nth, EIO), ERROR_IO);
    }
}

TEST_F(DirectoryStorageTest, NeverWritesOverAFileThatSomebodyStillReads)
{
    ASSERT_EQ(Upload("a", "version 1"), OK);
    std::ifstream reader(User() / "a");
    ASSERT_EQ(Upload("a", "version 2"), OK);
    fs::create_hard_link(User() / "a", folder_.Path() / "backup");
    for (const char* version : {"version 3", "version 4", "version 5"}) {
        ASSERT_EQ(Upload("a", version), OK);
        EXPECT_EQ(Download("a"), version);
    }
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "version 1");
    EXPECT_EQ(ReadFile(folder_.Path() / "backup"), "version 2");
}

TEST_F(DirectoryStorageTest, KeepsOneSpareAtMostAndNoneThatCouldSurprise)
{
    const auto spares = [this] { return std::distance(fs::directory_iterator(Temporaries()), {}); };
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Upload("a", "old"), OK);
        ASSERT_EQ(Upload("b", "old"), OK);
    }
    EXPECT_EQ(spares(), 1);
    ASSERT_EQ(storage_->Delete("b"), OK);
    EXPECT_EQ(spares(), 0) << "a deleted file's content stays behind";

    // One whose attributes were changed: they must not pass to another file.
    ::chmod((User() / "a").c_str(), 0600);
    ASSERT_EQ(Upload("a", "new"), OK);
    EXPECT_EQ(spares(), 0);

    const std::string huge(16 * 1024 * 1024 + 1, 'h');
    ASSERT_EQ(Upload("a", huge), OK);
    ASSERT_EQ(Upload("a", "small"), OK);
    EXPECT_EQ(spares(), 0) << "a replaced file of this size is freed";
    ASSERT_EQ(Upload("a", "small"), OK);
    EXPECT_EQ(spares(), 1);
    storage_.reset();
    EXPECT_EQ(spares(), 0);
    Reopen();
}

}  // namespace
