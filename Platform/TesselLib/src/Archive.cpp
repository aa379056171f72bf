#include <array>
#include <cstring>
#include <new>

#include <TesselLib/Archive.h>
#include <TesselLib/Tar.h>

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

/// Bytes in memory of an allocator.
class Block
{
public:
    Block() = default;
    Block(Block&& other) noexcept : allocator_(other.allocator_), bytes_(std::exchange(other.bytes_, nullptr)) {}
    Block& operator=(Block&& other) noexcept
    {
        std::swap(allocator_, other.allocator_);
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    ~Block()
    {
        if (bytes_ != nullptr) {
            allocator_->Free(bytes_);
        }
    }

    Nucleo::Status Allocate(Nucleo::Allocator& allocator, std::size_t size)
    {
        allocator_ = &allocator;
        return allocator.Allocate(size != 0 ? size : 1, &bytes_);
    }

    std::uint8_t* Bytes() const noexcept { return static_cast<std::uint8_t*>(bytes_); }

private:
    Nucleo::Allocator* allocator_ = nullptr;
    void* bytes_ = nullptr;
};

struct Entry
{
    std::string name;
    Block data;
    std::size_t size = 0;
};

class TarArchive final : public Archive
{
public:
    Nucleo::Status Read(Nucleo::Stream& stream) override
    {
        try {
            std::vector<Entry> entries;
            const Nucleo::Status status = ReadEntries(stream, &entries);
            if (status == OK) {
                entries_ = std::move(entries);
            }
            return status;
        } catch (const std::exception&) {
            return ERROR_MEMORY;
        }
    }

    std::size_t Count() const override { return entries_.size(); }

    std::string_view Name(std::size_t index) const override
    {
        return index < entries_.size() ? std::string_view(entries_[index].name) : std::string_view{};
    }

    Nucleo::Status Find(std::string_view name, const std::uint8_t** data, std::size_t* size) const override
    {
        *data = nullptr;
        *size = 0;
        for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
            if (entry->name == name) {
                *data = entry->data.Bytes();
                *size = entry->size;
                return OK;
            }
        }
        return ERROR_NOT_FOUND;
    }

private:
    Nucleo::Status ReadEntries(Nucleo::Stream& stream, std::vector<Entry>* entries)
    {
        TarReader reader;
        Nucleo::Status status = reader.Open(stream);
        if (status != OK) {
            return status;
        }
        std::uint64_t total = 0;
        for (;;) {
            std::array<char, 512> name;
            TarEntry header;
            status = reader.NextEntry(name.data(), name.size(), &header);
            if (status != OK) {
                return status == ERROR_END ? OK : status;
            }
            if (header.type != 0) {
                continue;
            }
            if (header.size > reader.BytesLeft()) {
                return ERROR_END;
            }
            // Names count as well, so that an archive of many empty entries is no way around the limit.
            total += header.size + name.size();
            if (header.size > MaxSize || total > MaxSize) {
                return ERROR_LIMIT;
            }
            Entry entry;
            entry.name = name.data();
            entry.size = static_cast<std::size_t>(header.size);
            status = entry.data.Allocate(ObjectAllocator(), entry.size);
            if (status == OK) {
                status = reader.Read(entry.data.Bytes(), header.size);
            }
            if (status != OK) {
                return status;
            }
            entries->push_back(std::move(entry));
        }
    }

    std::vector<Entry> entries_;
};

}  // namespace

Nucleo::Status Archive_Construct(Archive** archive, Nucleo::Allocator* allocator) noexcept
{
    TarArchive* made = nullptr;
    const Nucleo::Status status = Nucleo::Construct(&made, allocator);
    *archive = made;
    return status;
}

}  // namespace TesselLib
