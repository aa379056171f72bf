#include <algorithm>

#include <VxTestSupport/MemoryStorage.h>

using namespace Nucleo::Statuses;

namespace VxTestSupport
{

void MemoryStorage::FailNext(FileOp op, std::string_view name, int nth, Nucleo::Status status)
{
    const Nucleo::MutexGuard guard(mutex_);
    aims_.push_back({op, std::string(name), nth, status, {}});
    marked_ = files_;
}

void MemoryStorage::BeforeNext(FileOp op, std::string_view name, int nth, std::function<void()> hook)
{
    const Nucleo::MutexGuard guard(mutex_);
    aims_.push_back({op, std::string(name), nth, OK, std::move(hook)});
}

void MemoryStorage::ClearFaults()
{
    const Nucleo::MutexGuard guard(mutex_);
    aims_.clear();
}

Nucleo::Status MemoryStorage::Enter(FileOp op, std::string_view name) const
{
    Nucleo::Status status = OK;
    std::vector<std::function<void()>> hooks;
    {
        const Nucleo::MutexGuard guard(mutex_);
        ++calls_[{op, std::string(name)}];
        for (auto aim = aims_.begin(); aim != aims_.end();) {
            const bool reached = aim->op == op && (aim->name.empty() || aim->name == name) && --aim->callsLeft == 0;
            if (!reached) {
                ++aim;
                continue;
            }
            if (aim->hook) {
                hooks.push_back(std::move(aim->hook));
            } else if (status == OK) {
                status = aim->status;
            }
            aim = aims_.erase(aim);
        }
    }
    for (const auto& hook : hooks) {
        hook();
    }
    return status;
}

void MemoryStorage::Succeeded(FileOp op, std::string_view name) const
{
    ++successes_[{op, std::string(name)}];
}

std::size_t MemoryStorage::Count(const Counters& counters, FileOp op, std::string_view name)
{
    std::size_t count = 0;
    for (const auto& [key, value] : counters) {
        count += key.first == op && (name.empty() || key.second == name) ? value : 0;
    }
    return count;
}

std::size_t MemoryStorage::Calls(FileOp op, std::string_view name) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return Count(calls_, op, name);
}

std::size_t MemoryStorage::Writes(std::string_view name) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return Count(successes_, FileOp::Upload, name);
}

std::size_t MemoryStorage::Reads(std::string_view name) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return Count(successes_, FileOp::Download, name);
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
    if (name.empty()) {
        return std::equal(files_.begin(), files_.end(), marked_.begin(), marked_.end(), same);
    }
    const auto now = files_.find(name);
    const auto then = marked_.find(name);
    return now == files_.end() || then == marked_.end() ? (now == files_.end()) == (then == marked_.end())
                                                        : same(*now, *then);
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
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = files_.find(name);
    return found != files_.end() ? std::optional(*found->second) : std::nullopt;
}

void MemoryStorage::Remove(std::string_view name)
{
    const Nucleo::MutexGuard guard(mutex_);
    if (const auto found = files_.find(name); found != files_.end()) {
        files_.erase(found);
    }
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

bool MemoryStorage::FileExists(std::string_view path) const
{
    const std::string_view name = TesselLib::StorageName(path);
    if (Enter(FileOp::Exists, name) != OK) {
        return false;
    }
    const Nucleo::MutexGuard guard(mutex_);
    return files_.find(name) != files_.end();
}

Nucleo::Status MemoryStorage::FileSize(std::string_view path, std::uint64_t* size) const
{
    *size = 0;
    const std::string_view name = TesselLib::StorageName(path);
    if (const Nucleo::Status status = Enter(FileOp::Size, name); status != OK) {
        return status;
    }
    if (name.empty()) {
        return ERROR_NAME;
    }
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = files_.find(name);
    if (found == files_.end()) {
        return ERROR_NOT_FOUND;
    }
    *size = found->second->size();
    return OK;
}

Nucleo::Status MemoryStorage::Download(std::string_view path, Nucleo::Stream& stream) const
{
    const std::string_view name = TesselLib::StorageName(path);
    const Nucleo::Status fault = Enter(FileOp::Download, name);
    if (name.empty()) {
        return fault != OK ? fault : ERROR_NAME;
    }
    std::shared_ptr<const Bytes> bytes;
    {
        const Nucleo::MutexGuard guard(mutex_);
        if (const auto found = files_.find(name); found != files_.end()) {
            bytes = found->second;
        }
    }
    // The stream is the caller's: it is written without a lock.
    if (fault != OK) {
        if (bytes) {
            stream.Write(bytes->data(), bytes->size() / 2);
        }
        return fault;
    }
    if (!bytes) {
        return ERROR_NOT_FOUND;
    }
    Nucleo::Status status = stream.Reserve(bytes->size());
    if (status == OK) {
        status = stream.Write(bytes->data(), bytes->size());
    }
    if (status == OK) {
        const Nucleo::MutexGuard guard(mutex_);
        Succeeded(FileOp::Download, name);
    }
    return status;
}

Nucleo::Status MemoryStorage::Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size)
{
    const std::string_view name = TesselLib::StorageName(path);
    if (const Nucleo::Status status = Enter(FileOp::Upload, name); status != OK) {
        return status;
    }
    if (name.empty()) {
        return ERROR_NAME;
    }
    if (data == nullptr && size != 0) {
        return ERROR_PARAMETER;
    }
    auto bytes = size != 0 ? std::make_shared<const Bytes>(data, data + size) : std::make_shared<const Bytes>();
    const Nucleo::MutexGuard guard(mutex_);
    files_[std::string(name)] = std::move(bytes);
    Succeeded(FileOp::Upload, name);
    return OK;
}

Nucleo::Status MemoryStorage::Delete(std::string_view path)
{
    const std::string_view name = TesselLib::StorageName(path);
    if (const Nucleo::Status status = Enter(FileOp::Delete, name); status != OK) {
        return status;
    }
    if (name.empty()) {
        return ERROR_NAME;
    }
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = files_.find(name);
    if (found == files_.end()) {
        return ERROR_NOT_FOUND;
    }
    files_.erase(found);
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
