#pragma once
// Node storage in memory with faults that a test aims: which operation, which file, which call, which status. It passes
// the same contract test as the storage on a folder. Safe on any thread.

#include <algorithm>
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
    void FailNext(FileOp op, std::string_view name, int nth, Nucleo::Status status, bool lasting = false)
    {
        const Nucleo::MutexGuard guard(mutex_);
        aims_.push_back({op, std::string(name), nth, status, lasting, {}});
        marked_ = files_;
    }

    /// Calls `hook` before the `nth` call of `op` on `name` from now on is looked at, once, on the calling thread and
    /// without a lock: it may use the storage, for instance to let a file vanish between a check and a download.
    void BeforeNext(FileOp op, std::string_view name, int nth, std::function<void()> hook)
    {
        const Nucleo::MutexGuard guard(mutex_);
        aims_.push_back({op, std::string(name), nth, Nucleo::OK, false, std::move(hook)});
    }

    /// Drops the faults and hooks, and returns whether every one of them had fired.
    bool ClearFaults()
    {
        const Nucleo::MutexGuard guard(mutex_);
        const auto waits = [](const Aim& aim) { return aim.callsLeft > 0; };
        const bool waiting = std::any_of(aims_.begin(), aims_.end(), waits);
        aims_.clear();
        return !waiting;
    }

    /// Calls of an operation on this file since construction, failed ones included. List is always on the name "", Move
    /// on that of the file that moves.
    std::size_t Calls(FileOp op, std::string_view name) const
    {
        const Nucleo::MutexGuard guard(mutex_);
        const auto found = calls_.find({op, std::string(name)});
        return found != calls_.end() ? found->second : 0;
    }

    /// The path of the last deletion as it was given, with or without "/user/".
    std::string LastDeletion() const
    {
        const Nucleo::MutexGuard guard(mutex_);
        return lastDeletion_;
    }

    /// Uploads that succeeded.
    std::size_t Writes(std::string_view name = {}) const
    {
        const Nucleo::MutexGuard guard(mutex_);
        std::size_t count = 0;
        for (const auto& [file, writes] : writes_) {
            count += name.empty() || file == name ? writes : 0;
        }
        return count;
    }

    /// Remembers the present content for Unchanged().
    void Mark()
    {
        const Nucleo::MutexGuard guard(mutex_);
        marked_ = files_;
    }

    /// Whether the file (with "" every file) is as it was at the last Mark() or FailNext(): there with the same bytes,
    /// or missing both times.
    bool Unchanged(std::string_view name = {}) const
    {
        const Nucleo::MutexGuard guard(mutex_);
        const auto same = [](const Files::value_type& a, const Files::value_type& b) {
            return a.first == b.first && *a.second == *b.second;
        };
        const auto files = [name](const Files& all) {
            return name.empty() ? std::pair(all.begin(), all.end()) : all.equal_range(name);
        };
        const auto [now, nowEnd] = files(files_);
        const auto [then, thenEnd] = files(marked_);
        return std::equal(now, nowEnd, then, thenEnd, same);
    }

    /// The content, past faults, hooks and counters.
    void Put(std::string_view name, Bytes bytes)
    {
        const Nucleo::MutexGuard guard(mutex_);
        files_[std::string(name)] = std::make_shared<const Bytes>(std::move(bytes));
    }

    void Put(std::string_view name, std::string_view text) { Put(name, Bytes(text.begin(), text.end())); }

    std::optional<Bytes> Get(std::string_view name) const
    {
        const auto bytes = Find(name);
        return bytes ? std::optional(*bytes) : std::nullopt;
    }

    void Remove(std::string_view name)
    {
        const Nucleo::MutexGuard guard(mutex_);
        files_.erase(std::string(name));
    }

    std::vector<std::string> Names() const
    {
        const Nucleo::MutexGuard guard(mutex_);
        std::vector<std::string> names;
        for (const auto& file : files_) {
            names.push_back(file.first);
        }
        return names;
    }

    bool FileExists(std::string_view path) const override
    {
        const std::string_view name = TesselLib::StorageName(path);
        const Nucleo::Status status = Enter(FileOp::Exists, name);
        return status == Nucleo::OK ? Find(name) != nullptr
                                    : status != Nucleo::ERROR_NOT_FOUND && status != Nucleo::ERROR_NAME;
    }

    Nucleo::Status FileSize(std::string_view path, std::uint64_t* size) const override
    {
        *size = 0;
        const std::string_view name = TesselLib::StorageName(path);
        if (const Nucleo::Status status = Enter(FileOp::Size, name); status != Nucleo::OK) {
            return status;
        }
        const auto bytes = Find(name);
        *size = bytes ? bytes->size() : 0;
        return bytes ? Nucleo::OK : Nucleo::ERROR_NOT_FOUND;
    }

    Nucleo::Status Download(std::string_view path, Nucleo::Stream& stream) const override
    {
        const std::string_view name = TesselLib::StorageName(path);
        const Nucleo::Status fault = Enter(FileOp::Download, name);
        const auto bytes = Find(name);
        if (fault != Nucleo::OK) {
            if (bytes) {
                stream.Write(bytes->data(), bytes->size() / 2);
            }
            return fault;
        }
        if (!bytes) {
            return Nucleo::ERROR_NOT_FOUND;
        }
        const Nucleo::Status status = stream.Reserve(bytes->size());
        return status == Nucleo::OK ? stream.Write(bytes->data(), bytes->size()) : status;
    }

    Nucleo::Status Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size) override
    {
        const std::string_view name = TesselLib::StorageName(path);
        if (const Nucleo::Status status = Enter(FileOp::Upload, name); status != Nucleo::OK) {
            return status;
        }
        if (data == nullptr && size != 0) {
            return Nucleo::ERROR_PARAMETER;
        }
        Put(name, size != 0 ? Bytes(data, data + size) : Bytes());
        const Nucleo::MutexGuard guard(mutex_);
        ++writes_[std::string(name)];
        return Nucleo::OK;
    }

    Nucleo::Status Delete(std::string_view path) override
    {
        const std::string_view name = TesselLib::StorageName(path);
        if (const Nucleo::Status status = Enter(FileOp::Delete, name); status != Nucleo::OK) {
            return status;
        }
        const Nucleo::MutexGuard guard(mutex_);
        lastDeletion_ = path;
        return files_.erase(std::string(name)) != 0 ? Nucleo::OK : Nucleo::ERROR_NOT_FOUND;
    }

    Nucleo::Status Move(std::string_view from, std::string_view to) override
    {
        const std::string_view name = TesselLib::StorageName(from);
        const std::string_view target = TesselLib::StorageName(to);
        if (const Nucleo::Status status = Enter(FileOp::Move, name); status != Nucleo::OK) {
            return status;
        }
        if (target.empty()) {
            return Nucleo::ERROR_NAME;
        }
        const auto bytes = Find(name);
        if (!bytes) {
            return Nucleo::ERROR_NOT_FOUND;
        }
        const Nucleo::MutexGuard guard(mutex_);
        files_.erase(std::string(name));
        files_[std::string(target)] = bytes;
        return Nucleo::OK;
    }

    Nucleo::Status List(std::string_view directory, std::vector<std::string>* names) const override
    {
        names->clear();
        if (const Nucleo::Status status = Enter(FileOp::List, {}); status != Nucleo::OK) {
            return status;
        }
        if (directory != "/user") {
            return Nucleo::ERROR_NOT_FOUND;
        }
        *names = Names();
        return Nucleo::OK;
    }

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
    Nucleo::Status Enter(FileOp op, std::string_view name) const VX_EXCLUDES(mutex_)
    {
        Nucleo::Status status = Nucleo::OK;
        std::vector<std::function<void()>> hooks;
        {
            const Nucleo::MutexGuard guard(mutex_);
            ++calls_[{op, std::string(name)}];
            for (auto aim = aims_.begin(); aim != aims_.end();) {
                const bool reached = aim->op == op && (aim->name.empty() || aim->name == name) && --aim->callsLeft <= 0;
                if (!reached) {
                    ++aim;
                    continue;
                }
                if (aim->hook) {
                    hooks.push_back(std::move(aim->hook));
                } else if (status == Nucleo::OK) {
                    status = aim->status;
                }
                aim = aim->lasting ? aim + 1 : aims_.erase(aim);
            }
        }
        for (const auto& hook : hooks) {
            hook();
        }
        return status != Nucleo::OK || !name.empty() || op == FileOp::List ? status : Nucleo::ERROR_NAME;
    }

    std::shared_ptr<const Bytes> Find(std::string_view name) const VX_EXCLUDES(mutex_)
    {
        const Nucleo::MutexGuard guard(mutex_);
        const auto found = files_.find(name);
        return found != files_.end() ? found->second : nullptr;
    }

    mutable Nucleo::Mutex mutex_;
    Files files_ VX_GUARDED_BY(mutex_);
    Files marked_ VX_GUARDED_BY(mutex_);
    mutable std::vector<Aim> aims_ VX_GUARDED_BY(mutex_);
    mutable std::map<std::pair<FileOp, std::string>, std::size_t> calls_ VX_GUARDED_BY(mutex_);
    std::map<std::string, std::size_t, std::less<>> writes_ VX_GUARDED_BY(mutex_);
    std::string lastDeletion_ VX_GUARDED_BY(mutex_);
};

}  // namespace VxTestSupport
