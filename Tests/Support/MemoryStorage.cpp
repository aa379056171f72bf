#include <algorithm>

#include <VxTestSupport/MemoryStorage.h>

using namespace Nucleo::Statuses;

namespace VxTestSupport
{

void MemoryStorage::FailNext(FileOp op, std::string_view name, int nth, Nucleo::Status status, bool lasting)
{
    const Nucleo::MutexGuard guard(mutex_);
    aims_.push_back({op, std::string(name), nth, status, lasting, {}});
    marked_ = files_;
}

void MemoryStorage::BeforeNext(FileOp op, std::string_view name, int nth, std::function<void()> hook)
{
    const Nucleo::MutexGuard guard(mutex_);
    aims_.push_back({op, std::string(name), nth, OK, false, std::move(hook)});
}

bool MemoryStorage::ClearFaults()
{
    const Nucleo::MutexGuard guard(mutex_);
    const auto waits = [](const Aim& aim) { return aim.callsLeft > 0; };
    const bool waiting = std::any_of(aims_.begin(), aims_.end(), waits);
    aims_.clear();
    return !waiting;
}

Nucleo::Status MemoryStorage::Enter(FileOp op, std::string_view name) const
{
    Nucleo::Status status = OK;
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
            } else if (status == OK) {
                status = aim->status;
            }
            aim = aim->lasting ? aim + 1 : aims_.erase(aim);
        }
    }
    for (const auto& hook : hooks) {
        hook();
    }
    return status != OK || !name.empty() || op == FileOp::List ? status : ERROR_NAME;
}

std::size_t MemoryStorage::Calls(FileOp op, std::string_view name) const
{
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = calls_.find({op, std::string(name)});
    return found != calls_.end() ? found->second : 0;
}

std::string MemoryStorage::LastDeletion() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return lastDeletion_;
}

std::size_t MemoryStorage::Writes(std::string_view name) const
{
    const Nucleo::MutexGuard guard(mutex_);
    std::size_t count = 0;
    for (const auto& [file, writes] : writes_) {
        count += name.empty() || file == name ? writes : 0;
    }
    return count;
}

void MemoryStorage::Mark()
{
    const Nucleo::MutexGuard guard(mutex_);
    marked_ = files_;
}

bool MemoryStorage::Unchanged(std::string_view name) const
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

void MemoryStorage::Put(std::string_view name, Bytes bytes)
{
    const Nucleo::MutexGuard guard(mutex_);
    files_[std::string(name)] = std::make_shared<const Bytes>(std::move(bytes));
}

void MemoryStorage::Put(std::string_view name, std::string_view text)
{
    Put(name, Bytes(text.begin(), text.end()));
}

std::optional<MemoryStorage::Bytes> MemoryStorage::Get(std::string_view name) const
{
    const auto bytes = Find(name);
    return bytes ? std::optional(*bytes) : std::nullopt;
}

void MemoryStorage::Remove(std::string_view name)
{
    const Nucleo::MutexGuard guard(mutex_);
    files_.erase(std::string(name));
}

std::vector<std::string> MemoryStorage::Names() const
{
    const Nucleo::MutexGuard guard(mutex_);
    std::vector<std::string> names;
    for (const auto& file : files_) {
        names.push_back(file.first);
    }
    return names;
}

std::shared_ptr<const MemoryStorage::Bytes> MemoryStorage::Find(std::string_view name) const
{
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = files_.find(name);
    return found != files_.end() ? found->second : nullptr;
}

bool MemoryStorage::FileExists(std::string_view path) const
{
    const std::string_view name = TesselLib::StorageName(path);
    const Nucleo::Status status = Enter(FileOp::Exists, name);
    return status == OK ? Find(name) != nullptr : status != ERROR_NOT_FOUND && status != ERROR_NAME;
}

Nucleo::Status MemoryStorage::FileSize(std::string_view path, std::uint64_t* size) const
{
    *size = 0;
    const std::string_view name = TesselLib::StorageName(path);
    if (const Nucleo::Status status = Enter(FileOp::Size, name); status != OK) {
        return status;
    }
    const auto bytes = Find(name);
    *size = bytes ? bytes->size() : 0;
    return bytes ? OK : ERROR_NOT_FOUND;
}

Nucleo::Status MemoryStorage::Download(std::string_view path, Nucleo::Stream& stream) const
{
    const std::string_view name = TesselLib::StorageName(path);
    const Nucleo::Status fault = Enter(FileOp::Download, name);
    const auto bytes = Find(name);
    if (fault != OK) {
        if (bytes) {
            stream.Write(bytes->data(), bytes->size() / 2);
        }
        return fault;
    }
    if (!bytes) {
        return ERROR_NOT_FOUND;
    }
    const Nucleo::Status status = stream.Reserve(bytes->size());
    return status == OK ? stream.Write(bytes->data(), bytes->size()) : status;
}

Nucleo::Status MemoryStorage::Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size)
{
    const std::string_view name = TesselLib::StorageName(path);
    if (const Nucleo::Status status = Enter(FileOp::Upload, name); status != OK) {
        return status;
    }
    if (data == nullptr && size != 0) {
        return ERROR_PARAMETER;
    }
    Put(name, size != 0 ? Bytes(data, data + size) : Bytes());
    const Nucleo::MutexGuard guard(mutex_);
    ++writes_[std::string(name)];
    return OK;
}

Nucleo::Status MemoryStorage::Delete(std::string_view path)
{
    const std::string_view name = TesselLib::StorageName(path);
    if (const Nucleo::Status status = Enter(FileOp::Delete, name); status != OK) {
        return status;
    }
    const Nucleo::MutexGuard guard(mutex_);
    lastDeletion_ = path;
    return files_.erase(std::string(name)) != 0 ? OK : ERROR_NOT_FOUND;
}

Nucleo::Status MemoryStorage::Move(std::string_view from, std::string_view to)
{
    const std::string_view name = TesselLib::StorageName(from);
    const std::string_view target = TesselLib::StorageName(to);
    if (const Nucleo::Status status = Enter(FileOp::Move, name); status != OK) {
        return status;
    }
    if (target.empty()) {
        return ERROR_NAME;
    }
    const auto bytes = Find(name);
    if (!bytes) {
        return ERROR_NOT_FOUND;
    }
    const Nucleo::MutexGuard guard(mutex_);
    files_.erase(std::string(name));
    files_[std::string(target)] = bytes;
    return OK;
}

Nucleo::Status MemoryStorage::List(std::string_view directory, std::vector<std::string>* names) const
{
    names->clear();
    if (const Nucleo::Status status = Enter(FileOp::List, {}); status != OK) {
        return status;
    }
    if (directory != "/user") {
        return ERROR_NOT_FOUND;
    }
    *names = Names();
    return OK;
}

}  // namespace VxTestSupport
