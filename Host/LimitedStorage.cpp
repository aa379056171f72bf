#include "LimitedStorage.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include <VxCommon/Persistence/Job.h>

namespace VxHost
{
namespace
{

bool IsJob(std::string_view path)
{
    const std::string_view name = TesselLib::StorageName(path);
    const std::size_t dot = name.rfind('.');
    return dot != std::string_view::npos && name.substr(dot + 1) == VxCommon::Persist::Job::JOB_FILE_EXT;
}

}  // namespace

LimitedStorage::LimitedStorage(std::unique_ptr<TesselLib::DirectoryStorage> storage, std::filesystem::path folder,
                               std::uint64_t size)
    : storage_(std::move(storage)), folder_(std::move(folder)), size_(size)
{}

std::uint64_t LimitedStorage::Left() const
{
    return size_ - std::min(size_, storage_->UsedBytes());
}

std::uint64_t LimitedStorage::FreeBytes() const
{
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(folder_, error);
    if (error) {
        return 0;
    }
    return size_ == 0 ? space.available : std::min<std::uint64_t>(space.available, Left());
}

double LimitedStorage::PercentUsed() const
{
    if (size_ != 0) {
        return 100.0 * static_cast<double>(storage_->UsedBytes()) / static_cast<double>(size_);
    }
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(folder_, error);
    // What is free and not available is kept back for the system.
    const std::uintmax_t used = space.capacity - space.free;
    const std::uintmax_t usable = used + space.available;
    return error || usable == 0 ? 0.0 : 100.0 * static_cast<double>(used) / static_cast<double>(usable);
}

Nucleo::Status LimitedStorage::Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size)
{
    if (size_ == 0 || !IsJob(path)) {
        return storage_->Upload(path, data, size);
    }
    const Nucleo::MutexGuard guard(uploading_);
    if (size > Left()) {
        storage_->FreeSpare();
    }
    return size > Left() ? Nucleo::ERROR_DISK_FULL : storage_->Upload(path, data, size);
}

bool LimitedStorage::FileExists(std::string_view path) const
{
    return storage_->FileExists(path);
}

Nucleo::Status LimitedStorage::FileSize(std::string_view path, std::uint64_t* size) const
{
    return storage_->FileSize(path, size);
}

Nucleo::Status LimitedStorage::Download(std::string_view path, Nucleo::Stream& stream) const
{
    return storage_->Download(path, stream);
}

Nucleo::Status LimitedStorage::Delete(std::string_view path)
{
    return storage_->Delete(path);
}

Nucleo::Status LimitedStorage::Move(std::string_view from, std::string_view to)
{
    return storage_->Move(from, to);
}

Nucleo::Status LimitedStorage::List(std::string_view directory, std::vector<std::string>* names) const
{
    return storage_->List(directory, names);
}

}  // namespace VxHost
