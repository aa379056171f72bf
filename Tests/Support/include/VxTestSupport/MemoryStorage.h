#pragma once
// Node storage in memory with faults that a test aims: which operation, which file, which call, which status. It passes
// the same contract test as the storage on a folder. Safe on any thread.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Lock.h>
#include <TesselLib/Storage.h>

namespace VxTestSupport
{

/// The operations of a storage.
enum class FileOp
{
    Exists,
    Size,
    Download,
    Upload,
    Delete,
    Move,
    List
};

/// Files are named by their bare names ("Global.tar") in everything that a test calls; the storage's own operations
/// take the "/user/" form as well and count and fail alike. The name "" stands for every file.
class MemoryStorage final : public TesselLib::Storage
{
public:
    using Bytes = std::vector<std::uint8_t>;

    /// Makes the `nth` call (1: the next) of `op` on `name` from now on fail with `status`, once, or with `lasting`
    /// each call from there on. Several can be aimed; each counts the calls that reach it on its own, and the first
    /// aimed wins where two fall on one call. A failing Exists answers true unless the status says that there is no
    /// such file; a failing Download has written the first half of the file, as a disk that breaks down would. Also
    /// marks, as Mark() does.
    void FailNext(FileOp op, std::string_view name, int nth, Nucleo::Status status, bool lasting = false);

    /// Calls `hook` before the `nth` call of `op` on `name` from now on is looked at, once, on the calling thread and
    /// without a lock: it may use the storage, for instance to let a file vanish between a check and a download.
    void BeforeNext(FileOp op, std::string_view name, int nth, std::function<void()> hook);

    /// Drops the faults and hooks, and returns whether every one of them had fired.
    bool ClearFaults();

    /// Calls of an operation on this file since construction, failed ones included. List is always on the name "", Move
    /// on that of the file that moves.
    std::size_t Calls(FileOp op, std::string_view name) const;

    /// The path of the last deletion as it was given, with or without "/user/".
    std::string LastDeletion() const;

    /// Uploads that succeeded.
    std::size_t Writes(std::string_view name = {}) const;

    /// Remembers the present content for Unchanged().
    void Mark();

    /// Whether the file (with "" every file) is as it was at the last Mark() or FailNext(): there with the same bytes,
    /// or missing both times.
    bool Unchanged(std::string_view name = {}) const;

    /// The content, past faults, hooks and counters.
    void Put(std::string_view name, Bytes bytes);
    void Put(std::string_view name, std::string_view text);
    std::optional<Bytes> Get(std::string_view name) const;
    void Remove(std::string_view name);
    std::vector<std::string> Names() const;

    bool FileExists(std::string_view path) const override;
    Nucleo::Status FileSize(std::string_view path, std::uint64_t* size) const override;
    Nucleo::Status Download(std::string_view path, Nucleo::Stream& stream) const override;
    Nucleo::Status Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size) override;
    Nucleo::Status Delete(std::string_view path) override;
    Nucleo::Status Move(std::string_view from, std::string_view to) override;
    Nucleo::Status List(std::string_view directory, std::vector<std::string>* names) const override;

private:
    using Files = std::map<std::string, std::shared_ptr<const Bytes>, std::less<>>;

    /// Something that happens at a chosen call: a fault or a hook.
    struct Aim
    {
        FileOp op;
        std::string name;
        int callsLeft;
        Nucleo::Status status;  // OK for a hook
        bool lasting;
        std::function<void()> hook;
    };

    /// Counts the call and answers what it is to fail with: what was aimed at it, or a name that is none.
    Nucleo::Status Enter(FileOp op, std::string_view name) const VX_EXCLUDES(mutex_);
    std::shared_ptr<const Bytes> Find(std::string_view name) const VX_EXCLUDES(mutex_);

    mutable Nucleo::Mutex mutex_;
    Files files_ VX_GUARDED_BY(mutex_);
    Files marked_ VX_GUARDED_BY(mutex_);
    mutable std::vector<Aim> aims_ VX_GUARDED_BY(mutex_);
    mutable std::map<std::pair<FileOp, std::string>, std::size_t> calls_ VX_GUARDED_BY(mutex_);
    std::map<std::string, std::size_t, std::less<>> writes_ VX_GUARDED_BY(mutex_);
    std::string lastDeletion_ VX_GUARDED_BY(mutex_);
};

}  // namespace VxTestSupport
