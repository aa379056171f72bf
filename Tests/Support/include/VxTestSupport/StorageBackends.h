#pragma once
// The storages on which a test of all of them runs, each with the calls in it that can be made to fail.

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <TesselLib/DirectoryStorage.h>
#include <VxTestSupport/MemoryStorage.h>
#include <VxTestSupport/SystemCalls.h>
#include <VxTestSupport/TemporaryFolder.h>

namespace VxTestSupport
{

/// What a call fails with, and what a storage answers then.
struct StorageFault
{
    int error;
    Nucleo::Status status;
};

class InMemory
{
public:
    static constexpr FileOp calls[] = {FileOp::Exists, FileOp::Size, FileOp::Download, FileOp::Upload,
                                       FileOp::Delete, FileOp::Move, FileOp::List};

    std::unique_ptr<TesselLib::Storage> Open()
    {
        auto storage = std::make_unique<MemoryStorage>();
        storage_ = storage.get();
        return storage;
    }

    /// Past the storage, so without faults.
    void Put(const std::string& name, const std::string& text) { storage_->Put(name, text); }
    void Remove(const std::string& name) { storage_->Remove(name); }

    /// Does `operation` while the `nth` call fails, or with `lasting` each from there on. Whether it came to that call.
    template <class Operation>
    bool Reaches(Operation operation, FileOp call, int nth, const StorageFault& fault, bool lasting)
    {
        storage_->FailNext(call, "", nth, fault.status, lasting);
        operation();
        return storage_->ClearFaults();
    }

private:
    MemoryStorage* storage_ = nullptr;
};

/// As InMemory; it is the calls of the system that fail.
class OnFolder
{
public:
    static constexpr const char* calls[] = {"openat",    "fstat",    "fstatat",   "read",   "write",    "fsync",
                                            "fdatasync", "renameat", "renameat2", "linkat", "unlinkat", "readdir"};

    std::unique_ptr<TesselLib::Storage> Open()
    {
        std::unique_ptr<TesselLib::DirectoryStorage> storage;
        EXPECT_EQ(TesselLib::DirectoryStorage::Open(folder_.Path(), &storage), Nucleo::OK);
        return storage;
    }

    void Put(const std::string& name, const std::string& text)
    {
        std::ofstream(folder_.Path() / "user" / name) << text;
    }
    void Remove(const std::string& name) { std::filesystem::remove(folder_.Path() / "user" / name); }

    template <class Operation>
    bool Reaches(Operation operation, const char* call, int nth, const StorageFault& fault, bool lasting)
    {
        Traced([&] { return operation(), true; }, call, nth, fault.error, lasting);
        return trace.Reached();
    }

private:
    TemporaryFolder folder_;
};

}  // namespace VxTestSupport
