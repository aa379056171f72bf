#pragma once
// Store images and compression. Static operations only; safe on any thread for distinct arguments.

#include <vector>

#include <TesselLib/Archive.h>
#include <TesselLib/Tar.h>
#include <VxCommon/Persistence/PersistStore.h>

namespace VxCommon
{

/// A store's image is a tar archive with one regular file per key and nothing beside them. The leading "/" of a key is
/// left out of the entry's name and put back in front of it, so keys that begin with "/" come back as they were. Keys
/// that no image can keep are left out of it. Failures of the platform are thrown as Vx::Exception with its status.
class VXCOMMON_API PersistUtils
{
public:
    /// The longest path that an image keeps, in bytes, without its leading "/".
    static constexpr std::size_t MaxPathLength = 511;

    /// Whether an image keeps an item of this path: it does not end in "/", holds no NUL, and has at most MaxPathLength
    /// bytes after one leading "/".
    static bool IsPathKept(const std::string& path) noexcept;

    /// A path for people: control bytes as \xNN, cut after about 100 bytes.
    static std::string PrintablePath(const std::string& path);

    /// The image of all keys, in the order in which the store lists them.
    static std::vector<unsigned char> ArchiveStore(const PersistStore& store);

    /// The same, deleting each key just before its entry is written; keys that no image can keep stay in the store.
    /// When an entry fails, its key and those before it are gone; the keys after it are still there.
    static std::vector<unsigned char> ArchiveAndResetStore(PersistStore& store);

    /// A new store with the image's regular files. Reading stops without an error at the end of the archive or at a
    /// damaged header; an archive that is cut inside an entry's data throws.
    static PersistStore DearchiveStore(const unsigned char* data, unsigned long long size);

    /// A Zstandard stream of the bytes, level 10.
    static std::vector<unsigned char> Compress(const unsigned char* data, unsigned long long size);

    /// The bytes of a Zstandard stream; of a damaged or cut one what comes before the damage, without an error.
    static std::vector<unsigned char> Decompress(const unsigned char* data, unsigned long long size);

    /// A copy of the bytes: the choice of no compression, with the signature of Compress.
    static std::vector<unsigned char> PassThru(const unsigned char* data, unsigned long long size);

private:
    static void AddToTar(TesselLib::TarWriter& tar, const std::vector<unsigned char>& data, const std::string& name);
};

}  // namespace VxCommon

/// Reads the platform's archive from `size` bytes at `data`, which need not outlive the call. The caller releases
/// `*archive`; on failure it is null and the status is that of the first step that failed.
extern "C" VXCOMMON_API Nucleo::Status GetArchive(const void* data, unsigned long long size,
                                                  TesselLib::Archive** archive);
