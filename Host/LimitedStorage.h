#pragma once
// The data folder's files and the room that is left for them.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Lock.h>
#include <TesselLib/DirectoryStorage.h>

namespace VxHost
{

/// A storage on a folder whose jobs keep within a size: an upload of a job file (extension "vpjob") that would bring
/// the use above it is refused with ERROR_DISK_FULL and writes nothing. Everything else, above all the domains and the
/// record, is written as long as the file system takes it. Safe on any thread.
class LimitedStorage final : public TesselLib::Storage
{
public:
    /// `storage` keeps its files in `folder`, which may take `size` bytes; 0: what its file system has.
    LimitedStorage(std::unique_ptr<TesselLib::DirectoryStorage> storage, std::filesystem::path folder,
                   std::uint64_t size);

    /// Bytes that may still be written: what the file system has for programs, within the size. 0 when that cannot be
    /// read.
    std::uint64_t FreeBytes() const;

    /// How full it is, in percent: of the size, or of what programs may use of the file system. 0 when that cannot be
    /// read.
    double PercentUsed() const;

    bool FileExists(std::string_view path) const override;
    Nucleo::Status FileSize(std::string_view path, std::uint64_t* size) const override;
    Nucleo::Status Download(std::string_view path, Nucleo::Stream& stream) const override;
    Nucleo::Status Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size) override;
    Nucleo::Status Delete(std::string_view path) override;
    Nucleo::Status Move(std::string_view from, std::string_view to) override;
    Nucleo::Status List(std::string_view directory, std::vector<std::string>* names) const override;

private:
    /// Bytes of the size that are not used.
    std::uint64_t Left() const;

    // Constant after construction.
    const std::unique_ptr<TesselLib::DirectoryStorage> storage_;
    const std::filesystem::path folder_;
    const std::uint64_t size_;

    /// Held while a job is uploaded, so that two that fit one by one do not pass the size together. Outermost: the
    /// storage's locks are taken under it.
    Nucleo::Mutex uploading_;
};

}  // namespace VxHost
