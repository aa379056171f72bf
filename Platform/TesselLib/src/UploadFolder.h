#pragma once
// The folder in which files are written before they take their place, and where files wait that were replaced.
// Its operations may be called from any thread.

#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstdint>

#include <Nucleo/Lock.h>
#include <Nucleo/Status.h>

#include "src/FileDescriptor.h"

namespace TesselLib
{

/// Name of a file in the upload folder.
using UploadName = std::array<char, 32>;

/// Temporaries of one data folder.
///
/// Bringing a new file onto the medium takes a journal commit besides its data, and so does the rename that follows; of
/// a small upload that is most of the time. So the file that an upload has replaced is kept as the *spare*, and the
/// next upload writes over its blocks. A spare is only used when nobody else has it open and no other name leads to it,
/// so neither a download that is under way nor a copy by hard link ever sees its bytes change.
class UploadFolder
{
public:
    /// Files above this size are freed when they are replaced.
    static constexpr std::int64_t MaxSpareSize = 16 * 1024 * 1024;

    /// `usedBytes` counts the bytes of the data folder's files: what a finished temporary takes is added, what is
    /// removed is taken off. It must outlive the object.
    explicit UploadFolder(std::atomic<std::int64_t>& usedBytes) : usedBytes_(usedBytes) {}
    ~UploadFolder();
    UploadFolder(const UploadFolder&) = delete;
    UploadFolder& operator=(const UploadFolder&) = delete;

    /// Opens the folder `tmp` of `dataFolder`, made where missing, and removes what an earlier process left in it.
    Nucleo::Status Open(int dataFolder);

    int Descriptor() const noexcept { return folder_.Get(); }

    /// A name that no other temporary has.
    UploadName NextName() noexcept;

    /// Writes a temporary of these bytes and brings it onto the medium. On failure nothing is left of it.
    Nucleo::Status Write(const std::uint8_t* data, std::uint64_t size, UploadName* name) VX_EXCLUDES(mutex_);

    /// Removes a finished temporary of `size` bytes.
    void Remove(const UploadName& name, std::int64_t size) noexcept;

    /// Takes over `replaced`, a file of `size` bytes that has left the user folder for good and whose place was taken
    /// by one with the attributes `successor`: it becomes the spare, or is removed.
    void Retire(const UploadName& replaced, std::int64_t size, const struct stat& successor) VX_EXCLUDES(mutex_);

    void RemoveSpare() VX_EXCLUDES(mutex_);

private:
    struct Spare
    {
        UploadName name{};  // Empty while there is none.
        std::int64_t size = 0;
    };

    FileDescriptor TakeSpare(Spare* spare) VX_EXCLUDES(mutex_);
    Nucleo::Status RemoveLeftovers() const;

    // Constant after Open.
    FileDescriptor folder_;

    std::atomic<std::int64_t>& usedBytes_;
    std::atomic<std::uint64_t> lastNumber_{0};

    Nucleo::Mutex mutex_;  // A leaf: nothing is called out to under it.
    Spare spare_ VX_GUARDED_BY(mutex_);
};

}  // namespace TesselLib
