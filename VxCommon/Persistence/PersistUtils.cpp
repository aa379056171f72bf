#include <functional>

#include <Nucleo/Stream.h>
#include <TesselLib/Zstd.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistUtils.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

constexpr int compressionLevel = 10;
constexpr std::size_t nameCapacity = PersistUtils::MaxPathLength + 1;  // With the NUL at the end.
constexpr std::size_t decompressBlock = 4096;

constexpr std::uint64_t tarBlock = 512;

using StreamHandle = Nucleo::Handle<Nucleo::MemoryStream>;

std::vector<std::string> KeptKeys(const PersistStore& store)
{
    std::vector<std::string> keys = store.List("", false);
    std::erase_if(keys, std::not_fn(&PersistUtils::IsPathKept));
    return keys;
}

// About what the image of these items will take; long names take some more.
std::uint64_t ImageSize(const PersistStore& store, const std::vector<std::string>& keys)
{
    std::uint64_t size = 2 * tarBlock;
    for (const std::string& key : keys) {
        size += tarBlock + (store.Contents(key).size() + tarBlock - 1) / tarBlock * tarBlock;
    }
    return size;
}

}  // namespace

bool PersistUtils::IsPathKept(const std::string& path) noexcept
{
    const std::size_t length = path.size() - (path.starts_with('/') ? 1 : 0);
    return length <= MaxPathLength && !path.ends_with('/') && path.find('\0') == std::string::npos;
}

std::string PersistUtils::PrintablePath(const std::string& path)
{
    char text[104];
    Vx::Logging::EscapeText(path, text, sizeof text);
    return text;
}

std::vector<unsigned char> PersistUtils::ArchiveStore(const PersistStore& store)
{
    StreamHandle image;
    VX_CHECK(Nucleo::MemoryStream_Construct(image.Receive()));
    TesselLib::TarWriter tar;
    VX_CHECK(tar.Open(*image));
    const std::vector<std::string> keys = KeptKeys(store);
    VX_CHECK(image->Reserve(ImageSize(store, keys)));
    for (const std::string& key : keys) {
        AddToTar(tar, store.Contents(key), key);
    }
    VX_CHECK(tar.Close());
    return image->TakeContent();
}

std::vector<unsigned char> PersistUtils::ArchiveAndResetStore(PersistStore& store)
{
    StreamHandle image;
    VX_CHECK(Nucleo::MemoryStream_Construct(image.Receive()));
    TesselLib::TarWriter tar;
    VX_CHECK(tar.Open(*image));
    const std::vector<std::string> keys = KeptKeys(store);
    VX_CHECK(image->Reserve(ImageSize(store, keys)));
    for (const std::string& key : keys) {
        const std::vector<unsigned char> value = store.Read(key);
        store.Delete(key);
        AddToTar(tar, value, key);
    }
    VX_CHECK(tar.Close());
    return image->TakeContent();
}

void PersistUtils::AddToTar(TesselLib::TarWriter& tar, const std::vector<unsigned char>& data, const std::string& name)
{
    StreamHandle content;
    VX_CHECK(Nucleo::MemoryStream_Construct(content.Receive()));
    VX_CHECK(content->Attach(data.data(), data.size()));
    VX_CHECK(tar.WriteFile(name, *content, data.size()));
}

PersistStore PersistUtils::DearchiveStore(const unsigned char* data, unsigned long long size)
{
    PersistStore store;
    StreamHandle image;
    VX_CHECK(Nucleo::MemoryStream_Construct(image.Receive()));
    VX_CHECK(image->Attach(data, size));
    TesselLib::TarReader tar;
    VX_CHECK(tar.Open(*image));

    char key[1 + nameCapacity] = "/";
    TesselLib::TarEntry entry;
    while (tar.NextEntry(key + 1, nameCapacity, &entry) == OK) {
        // A header may claim any size: an entry that claims more than is left is cut, and no memory is taken for it.
        VX_CHECK(entry.size <= tar.BytesLeft() ? OK : ERROR_END);
        std::vector<unsigned char> value;
        VX_CHECK(tar.Read(&value, entry.size));
        if (entry.type == 0) {
            store.Write(key, std::move(value));
        }
    }
    tar.Close();
    return store;
}

std::vector<unsigned char> PersistUtils::Compress(const unsigned char* data, unsigned long long size)
{
    StreamHandle target;
    VX_CHECK(Nucleo::MemoryStream_Construct(target.Receive()));
    Nucleo::Handle<TesselLib::ZstdStream> zstd;
    VX_CHECK(TesselLib::ZstdStream_Construct(zstd.Receive(), *target, TesselLib::ZstdMode::Write, compressionLevel));
    // Writing to memory fails only without memory; what was compressed so far is returned then.
    zstd->Write(data, size);
    zstd->Finish();
    return target->TakeContent();
}

std::vector<unsigned char> PersistUtils::Decompress(const unsigned char* data, unsigned long long size)
{
    StreamHandle source;
    VX_CHECK(Nucleo::MemoryStream_Construct(source.Receive()));
    VX_CHECK(source->Attach(data, size));
    Nucleo::Handle<TesselLib::ZstdStream> zstd;
    VX_CHECK(TesselLib::ZstdStream_Construct(zstd.Receive(), *source, TesselLib::ZstdMode::Read, 0));

    std::vector<unsigned char> bytes;
    unsigned char block[decompressBlock];
    std::size_t count = 0;
    // Damage ends the data like its end does.
    while (zstd->Read(block, 1, sizeof block, &count) == OK && count != 0) {
        bytes.insert(bytes.end(), block, block + count);
    }
    zstd->Finish();
    return bytes;
}

std::vector<unsigned char> PersistUtils::PassThru(const unsigned char* data, unsigned long long size)
{
    return {data, data + size};
}

}  // namespace VxCommon

Nucleo::Status GetArchive(const void* data, unsigned long long size, TesselLib::Archive** archive)
{
    *archive = nullptr;
    VxCommon::StreamHandle block;
    if (const auto status = Nucleo::MemoryStream_Construct(block.Receive()); status != Nucleo::OK) {
        return status;
    }
    if (const auto status = block->Attach(static_cast<const std::uint8_t*>(data), size); status != Nucleo::OK) {
        return status;
    }
    Nucleo::Handle<TesselLib::Archive> result;
    if (const auto status = TesselLib::Archive_Construct(result.Receive()); status != Nucleo::OK) {
        return status;
    }
    if (const auto status = result->Read(*block); status != Nucleo::OK) {
        return status;
    }
    *archive = result.Detach();
    return Nucleo::OK;
}
