#include <Host/LimitedStorage.h>

#include <atomic>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>

#include <VxTestSupport/TemporaryFolder.h>
#include <VxTestSupport/Threads.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using namespace Nucleo::Statuses;
using VxHost::LimitedStorage;

class LimitedStorageTest : public testing::Test
{
protected:
    LimitedStorage& Open(std::uint64_t size)
    {
        std::unique_ptr<TesselLib::DirectoryStorage> storage;
        storage_.reset();
        EXPECT_EQ(TesselLib::DirectoryStorage::Open(folder_.Path(), &storage), OK);
        return *(storage_ = std::make_unique<LimitedStorage>(std::move(storage), folder_.Path(), size));
    }

    Nucleo::Status Upload(const std::string& name, std::size_t size)
    {
        const std::vector<std::uint8_t> bytes(size);
        return storage_->Upload(name, bytes.data(), bytes.size());
    }

    VxTestSupport::TemporaryFolder folder_;
    std::unique_ptr<LimitedStorage> storage_;
};

TEST_F(LimitedStorageTest, JobsKeepWithinTheSizeAndNothingElseIsRefused)
{
    const LimitedStorage& storage = Open(1000);
    ASSERT_EQ(Upload("Global.tar", 600), OK);
    for (const char* job : {"a.vpjob", "/user/a.vpjob", ".vpjob", "a.b.vpjob"}) {
        EXPECT_EQ(Upload(job, 401), ERROR_DISK_FULL) << job;
        EXPECT_FALSE(storage.FileExists(job));
    }
    EXPECT_EQ(storage.FreeBytes(), 400U);
    EXPECT_EQ(Upload("a.vpjob", 400), OK);
    EXPECT_EQ(storage.FreeBytes(), 0U);
    EXPECT_DOUBLE_EQ(storage.PercentUsed(), 100.0);
    for (const char* other : {"Workspace.vpws", "PersistRecord.xml", "a.vpjob.d01", "vpjob", "a.VPJOB"}) {
        EXPECT_EQ(Upload(other, 100), OK) << other;
    }
    EXPECT_EQ(storage.FreeBytes(), 0U);
    EXPECT_DOUBLE_EQ(storage.PercentUsed(), 150.0);
    EXPECT_EQ(Upload("a.vpjob", 1), ERROR_DISK_FULL);
    EXPECT_EQ(storage_->Move("Global.tar", "Global.tar.d01"), OK);
    EXPECT_EQ(storage_->Delete("Global.tar.d01"), OK);
    EXPECT_EQ(storage.FreeBytes(), 100U);
    EXPECT_DOUBLE_EQ(Open(1000).PercentUsed(), 90.0);
}

TEST_F(LimitedStorageTest, WhatIsKeptToBeWrittenOverMakesRoom)
{
    const LimitedStorage& storage = Open(1000);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(Upload("a.vpjob", 450), OK);
    }
    EXPECT_EQ(storage.FreeBytes(), 100U) << "the new one and the one before";
    EXPECT_EQ(Upload("b.vpjob", 551), ERROR_DISK_FULL);
    EXPECT_EQ(Upload("b.vpjob", 550), OK);
}

TEST_F(LimitedStorageTest, JobsThatFitOneByOneDoNotPassTheSizeTogether)
{
    const LimitedStorage& storage = Open(1'000'000);
    std::atomic<int> taken{0};
    VxTestSupport::OnThreads(
        4, [&](int thread) { taken += Upload(std::to_string(thread) + ".vpjob", 300'000) == OK ? 1 : 0; });
    EXPECT_EQ(taken, 3);
    EXPECT_EQ(storage.FreeBytes(), 100'000U);
}

TEST_F(LimitedStorageTest, NeverHasMoreThanItsFileSystem)
{
    const std::uintmax_t capacity = std::filesystem::space(folder_.Path()).capacity;
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1} << 62}) {
        const LimitedStorage& storage = Open(size);
        EXPECT_EQ(Upload("a.vpjob", 1000), OK);
        EXPECT_GT(storage.FreeBytes(), 0U);
        EXPECT_LE(storage.FreeBytes(), capacity);
        EXPECT_GT(storage.PercentUsed(), 0.0);
        EXPECT_LE(storage.PercentUsed(), 100.0);
    }
    Open(0);
    std::filesystem::remove_all(folder_.Path());
    EXPECT_EQ(storage_->FreeBytes(), 0U);
    EXPECT_EQ(storage_->PercentUsed(), 0.0);
}

TEST(LimitedStorageEndToEndTest, JobsBeyondTheSizeOfTheFolderAreRefused)
{
    const VxTestSupport::TemporaryFolder folder;
    HostProcess host(folder.Path() / "data", {"--storage-size", "60000"});
    const auto free = [&] { return host.Get("/status").Json().at("freeSpace").get<std::size_t>(); };
    const auto upload = [&](const std::string& name, std::size_t size) {
        return host.Request("POST", "/jobs/files?name=" + name, std::string(size, 'x'),
                            {{"Content-Type", "application/octet-stream"}});
    };
    host.WaitUntilSaved();
    ASSERT_EQ(host.Post("/jobs/commands/save", R"({"name":"s"})").status, 204);
    EXPECT_LT(free(), 60000U);
    const VxTestSupport::HttpReply refused = upload("large", 60001);
    EXPECT_EQ(refused.status, 507);
    EXPECT_THAT(refused.Json().at("detail").get<std::string>(),
                testing::HasSubstr("'large.vpjob' cannot be written: no space"));
    // What was kept to be written over is free again once it has been.
    for (int i = 0; i < 3 && free() > 0; ++i) {
        EXPECT_EQ(upload("fill" + std::to_string(i), free()).status, 201);
    }
    EXPECT_EQ(free(), 0U);
    EXPECT_EQ(upload("more", 1).status, 507);
    EXPECT_EQ(host.Post("/jobs/commands/save", R"({"name":"t"})").status, 507);
    EXPECT_EQ(host.Post("/jobs/commands/copy", R"({"sourceName":"s","destName":"t"})").status, 507);
    for (const char* name : {"large", "more", "t"}) {
        EXPECT_FALSE(std::filesystem::exists(folder.Path() / "data/user" / (std::string(name) + ".vpjob")));
    }
    EXPECT_EQ(host.Request("PATCH", "/settings/layout", R"({"zoom":150})").status, 204);
    host.WaitUntilSaved();
    EXPECT_EQ(host.Post("/jobs/commands/setDefault", R"({"name":"s"})").status, 204);
    EXPECT_EQ(host.Request("DELETE", "/jobs/files/fill0").status, 204);
    EXPECT_EQ(host.Post("/jobs/commands/save", R"({"name":"t"})").status, 204);
}

}  // namespace
}  // namespace VxHostTest
