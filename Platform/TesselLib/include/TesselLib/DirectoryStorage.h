#pragma once
// Node storage on a folder of this machine.

#include <filesystem>
#include <memory>

#include <TesselLib/Storage.h>

namespace TesselLib
{

/// Keeps the files of "/user" in the folder `user` under a data folder, and uploads in progress in the folder `tmp`
/// beside it. An upload writes a temporary file, syncs it, exchanges it with the old file and syncs the folder; the old
/// file waits in `tmp` until then. A failed sync is final: the upload has failed and the old file is back in its place
/// (on the few file systems that cannot exchange two files, readers may see the new one all the same). No name and no
/// link leads out of the folder, and whatever else than a file lies in it never makes a caller wait.
///
/// The data folder is locked (`lock` in it) against other storages, of this process and others, for the life of the
/// object.
class DirectoryStorage final : public Storage
{
public:
    /// Opens (and creates where missing) the data folder and locks it; left-over temporaries are removed. On failure
    /// `*storage` is null: ERROR_BUSY when another storage holds the folder, ERROR_ACCESS when `user` or `tmp` is there
    /// but no folder, else what creating or opening it met.
    static Nucleo::Status Open(const std::filesystem::path& dataFolder, std::unique_ptr<DirectoryStorage>* storage);

    ~DirectoryStorage() override;

    bool FileExists(std::string_view path) const override;
    Nucleo::Status FileSize(std::string_view path, std::uint64_t* size) const override;
    Nucleo::Status Download(std::string_view path, Nucleo::Stream& stream) const override;
    Nucleo::Status Upload(std::string_view path, const std::uint8_t* data, std::uint64_t size) override;
    Nucleo::Status Delete(std::string_view path) override;
    Nucleo::Status Move(std::string_view from, std::string_view to) override;
    Nucleo::Status List(std::string_view directory, std::vector<std::string>* names) const override;

    /// Bytes that the files in `user` and `tmp` take. Counted when the folder is opened and kept up from then on: what
    /// others change in the folder is seen when it is opened next.
    std::uint64_t UsedBytes() const;

    /// Frees what is kept in `tmp` only to make the next upload faster.
    void FreeSpare();

private:
    struct Folders;
    explicit DirectoryStorage(std::unique_ptr<Folders> folders);
    std::unique_ptr<Folders> folders_;
};

}  // namespace TesselLib
