// How long does it take to replace a file for good? The storage's upload, against a database that commits the same
// bytes into one row (write-ahead log, synchronous=FULL), and against writing over a file in place and syncing it,
// which is what the disk itself costs and is not safe: a crash in between leaves a mixture.
//
// The folder is made below VX_BENCHMARK_FOLDER, or below the working directory: a temporary folder may be in memory.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <TesselLib/DirectoryStorage.h>

namespace
{

namespace fs = std::filesystem;

/// A folder of its own on the disk that is measured, removed at the end.
class BenchmarkFolder
{
public:
    BenchmarkFolder()
    {
        const char* base = std::getenv("VX_BENCHMARK_FOLDER");
        std::string pattern = (fs::path(base != nullptr ? base : ".") / "durable-replace-XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr) {
            path_ = pattern;
        }
    }
    ~BenchmarkFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    BenchmarkFolder(const BenchmarkFolder&) = delete;
    BenchmarkFolder& operator=(const BenchmarkFolder&) = delete;

    const fs::path& Path() const { return path_; }

private:
    fs::path path_;
};

/// Bytes that no disk compresses away; one differs from call to call, as a changed setting would make it.
class Content
{
public:
    explicit Content(const benchmark::State& state) : bytes_(static_cast<std::size_t>(state.range(0)))
    {
        std::uint64_t value = 0x9E3779B97F4A7C15U;
        for (std::uint8_t& byte : bytes_) {
            value ^= value << 13;
            value ^= value >> 7;
            value ^= value << 17;
            byte = static_cast<std::uint8_t>(value);
        }
    }

    const std::vector<std::uint8_t>& Next()
    {
        ++bytes_.front();
        return bytes_;
    }

private:
    std::vector<std::uint8_t> bytes_;
};

void Ours(benchmark::State& state)
{
    const BenchmarkFolder folder;
    std::unique_ptr<TesselLib::DirectoryStorage> storage;
    if (TesselLib::DirectoryStorage::Open(folder.Path(), &storage) != Nucleo::OK) {
        state.SkipWithError("the folder cannot be opened");
        return;
    }
    Content content(state);
    for (auto _ : state) {
        const auto& bytes = content.Next();
        if (storage->Upload("Global.tar", bytes.data(), bytes.size()) != Nucleo::OK) {
            state.SkipWithError("the upload failed");
            break;
        }
    }
}

struct CloseDatabase
{
    void operator()(sqlite3* database) const { ::sqlite3_close(database); }
};
struct FinalizeStatement
{
    void operator()(sqlite3_stmt* statement) const { ::sqlite3_finalize(statement); }
};

void Sqlite(benchmark::State& state)
{
    const BenchmarkFolder folder;
    sqlite3* opened = nullptr;
    ::sqlite3_open((folder.Path() / "database").c_str(), &opened);
    const std::unique_ptr<sqlite3, CloseDatabase> database(opened);
    const char* setup =
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; CREATE TABLE files(name TEXT PRIMARY KEY, data BLOB)";
    sqlite3_stmt* prepared = nullptr;
    if (::sqlite3_exec(opened, setup, nullptr, nullptr, nullptr) != SQLITE_OK ||
        ::sqlite3_prepare_v2(opened, "INSERT OR REPLACE INTO files VALUES('Global.tar', ?)", -1, &prepared, nullptr) !=
            SQLITE_OK) {
        state.SkipWithError("the database cannot be opened");
        return;
    }
    const std::unique_ptr<sqlite3_stmt, FinalizeStatement> statement(prepared);
    Content content(state);
    for (auto _ : state) {
        const auto& bytes = content.Next();
        ::sqlite3_bind_blob64(prepared, 1, bytes.data(), bytes.size(), SQLITE_STATIC);
        const int result = ::sqlite3_step(prepared);
        ::sqlite3_reset(prepared);
        if (result != SQLITE_DONE) {
            state.SkipWithError("the commit failed");
            break;
        }
    }
}

void Overwrite(benchmark::State& state)
{
    const BenchmarkFolder folder;
    const int file = ::open((folder.Path() / "file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    Content content(state);
    for (auto _ : state) {
        const auto& bytes = content.Next();
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t written = ::pwrite(file, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
            if (written <= 0) {
                break;
            }
            done += static_cast<std::size_t>(written);
        }
        if (done != bytes.size() || ::fdatasync(file) != 0) {
            state.SkipWithError("the file cannot be written");
            break;
        }
    }
    ::close(file);
}

void Sizes(benchmark::internal::Benchmark* test)
{
    test->Arg(10 * 1024)->Arg(1024 * 1024)->Arg(10 * 1024 * 1024);
    // The disk's time is what counts, and it does not show as the processor's.
    test->UseRealTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(Ours)->Name("DurableReplace/ours")->Apply(Sizes);
BENCHMARK(Sqlite)->Name("DurableReplace/sqlite")->Apply(Sizes);
BENCHMARK(Overwrite)->Name("DurableReplace/overwrite")->Apply(Sizes);

}  // namespace
