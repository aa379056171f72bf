#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>

#include <TesselLib/Tar.h>

#include "src/LibArchive.h"

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

constexpr std::size_t blockSize = 512;
constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();

using Block = std::array<std::uint8_t, blockSize>;
using Space = std::array<std::uint8_t, 64 * 1024>;

/// The fields of a header block that have to be known beside what libarchive tells.
constexpr std::size_t sizeOffset = 124;
constexpr std::size_t sizeLength = 12;
constexpr std::size_t checksumOffset = 148;
constexpr std::size_t checksumLength = 8;

/// The value of an octal field; 0 when it is no number.
std::uint64_t Octal(const Block& header, std::size_t offset, std::size_t length)
{
    std::uint64_t value = 0;
    std::size_t i = offset;
    const std::size_t end = offset + length;
    while (i < end && header[i] == ' ') {
        ++i;
    }
    for (; i < end && header[i] >= '0' && header[i] <= '7'; ++i) {
        value = value * 8 + (header[i] - std::uint64_t{'0'});
    }
    return value;
}

bool IsHeader(const Block& block)
{
    std::uint64_t sum = checksumLength * std::uint64_t{' '};
    for (std::size_t i = 0; i < blockSize; ++i) {
        const bool inChecksum = i >= checksumOffset && i < checksumOffset + checksumLength;
        sum += inChecksum ? 0 : block[i];
    }
    return block[0] != 0 && sum == Octal(block, checksumOffset, checksumLength);
}

std::uint64_t Padded(std::uint64_t size)
{
    return size + (blockSize - size % blockSize) % blockSize;
}

}  // namespace

// libarchive reads headers and the data of regular files. Of other entries (links, folders, regular files whose names
// end in "/") it takes the header alone, whatever size that says; data behind it would be taken for the next header and
// end the archive there, silently when the data begins with zeros. Such data is "foreign": it is read here, past
// libarchive, which starts anew behind it.
struct TarReader::State
{
    explicit State(Nucleo::Stream& stream) : source(&stream), left(stream.BytesLeft()) {}

    Nucleo::Status Start();
    Nucleo::Status NextHeader(archive_entry** header);
    std::uint64_t FindForeignData(archive_entry* header);
    Nucleo::Status PassOverForeignData();

    /// Copies up to `size` bytes (or drops them, when `target` is null) past libarchive; answers how many there were.
    std::uint64_t ReadPast(std::uint8_t* target, std::uint64_t size);

    /// Puts the next bytes into the buffer: whole blocks, but at the archive's end. False when there are none.
    bool Fetch();

    /// Where in the archive libarchive is: behind what it has used, not behind what it was given.
    std::uint64_t Position() const
    {
        return tarStart + static_cast<std::uint64_t>(::archive_filter_bytes(tar.get(), 0));
    }

    std::uint64_t BytesBehind(std::uint64_t position) const;

    /// What made a call of libarchive fail: the source's own status where it was the reason.
    Nucleo::Status Failure(Nucleo::Status otherwise) const
    {
        return sourceStatus != OK && sourceStatus != ERROR_END ? sourceStatus : StatusOf(tar.get(), otherwise);
    }

    static la_ssize_t ReadBlock(archive* handle, void* state, const void** data);

    Nucleo::Stream* source;
    Nucleo::Status sourceStatus = OK;  // What ended the source: ERROR_END or a failure.
    Nucleo::Status outcome = OK;       // What ended the archive.
    std::uint64_t left;                // Bytes behind the present header.

    ArchiveHandle tar;           // Null until the first entry is asked for.
    std::uint64_t tarStart = 0;  // Where in the archive libarchive started.

    // The bytes at hand: in the source's own memory, or fetched into `space`.
    const std::uint8_t* buffer = nullptr;
    std::unique_ptr<Space> space;
    std::uint64_t bufferStart = 0;  // Where in the archive the buffer begins.
    std::size_t bufferLength = 0;
    std::size_t used = 0;  // Bytes of the buffer that libarchive was given, or that were read past it.

    bool foreign = false;   // The present entry's data is foreign: these bytes, then padding.
    bool maybeEnd = false;  // It begins with zeros, so it may as well be the archive's end.
    std::uint64_t foreignLeft = 0;
    std::uint64_t foreignPadding = 0;
};

bool TarReader::State::Fetch()
{
    if (sourceStatus != OK) {
        return false;
    }
    bufferStart += bufferLength;
    bufferLength = 0;
    used = 0;
    buffer = source->ReadInPlace(std::numeric_limits<std::size_t>::max(), &bufferLength);
    if (buffer != nullptr) {
        return true;
    }
    if (!space) {
        space.reset(new (std::nothrow) Space);
        if (!space) {
            sourceStatus = ERROR_MEMORY;
            return false;
        }
    }
    buffer = space->data();
    sourceStatus = source->Read(space->data(), space->size(), space->size(), &bufferLength);
    return bufferLength != 0 && (sourceStatus == OK || sourceStatus == ERROR_END);
}

la_ssize_t TarReader::State::ReadBlock(archive* handle, void* state, const void** data)
{
    auto* self = static_cast<State*>(state);
    if (self->used == self->bufferLength && !self->Fetch()) {
        if (self->sourceStatus == ERROR_END) {
            return 0;
        }
        ::archive_set_error(handle, EIO, "the stream failed");
        return -1;
    }
    *data = self->buffer + self->used;
    return static_cast<la_ssize_t>(self->bufferLength - std::exchange(self->used, self->bufferLength));
}

Nucleo::Status TarReader::State::Start()
{
    tar.reset(::archive_read_new());
    if (!tar) {
        return ERROR_MEMORY;
    }
    tarStart = bufferStart + used;
    if (!Succeeded(::archive_read_support_format_tar(tar.get())) ||
        !Succeeded(::archive_read_open(tar.get(), this, nullptr, &ReadBlock, nullptr))) {
        return Failure(ERROR_FORMAT);
    }
    return OK;
}

std::uint64_t TarReader::State::ReadPast(std::uint8_t* target, std::uint64_t size)
{
    std::uint64_t done = 0;
    while (done < size && (used < bufferLength || Fetch())) {
        const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(size - done, bufferLength - used));
        if (target != nullptr) {
            std::memcpy(target + done, buffer + used, step);
        }
        used += step;
        done += step;
    }
    return done;
}

/// Of an entry that is no plain regular file: finds out whether data follows that libarchive does not see, and makes it
/// the present data. Answers its size, as far as it is certain to be data.
std::uint64_t TarReader::State::FindForeignData(archive_entry* header)
{
    const auto seen = static_cast<std::uint64_t>(std::max<la_int64_t>(::archive_entry_size(header), 0));
    if (::archive_entry_filetype(header) == AE_IFREG && seen != 0) {
        return seen;  // A hard link of a pax archive: its data is libarchive's.
    }
    const std::uint64_t position = Position();
    if (position < bufferStart + blockSize || position > bufferStart + bufferLength) {
        return 0;  // libarchive has looked ahead: it judges by itself whether data follows.
    }
    auto index = static_cast<std::size_t>(position - bufferStart);
    Block block;
    std::memcpy(block.data(), buffer + index - blockSize, blockSize);
    const std::uint64_t size = seen != 0 ? seen : Octal(block, sizeOffset, sizeLength);
    if (size == 0) {
        return 0;
    }
    if (index == bufferLength) {
        if (!Fetch()) {
            return 0;
        }
        index = 0;
    }
    block.fill(0);
    std::memcpy(block.data(), buffer + index, std::min(blockSize, bufferLength - index));
    if (IsHeader(block)) {
        return 0;  // The size meant something else, such as a folder's quota.
    }
    used = index;
    foreign = true;
    maybeEnd = std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; });
    foreignLeft = size;
    foreignPadding = Padded(size) - size;
    return maybeEnd ? 0 : size;
}

Nucleo::Status TarReader::State::PassOverForeignData()
{
    foreign = false;
    const bool whole = ReadPast(nullptr, foreignLeft) == foreignLeft;
    ReadPast(nullptr, foreignPadding);
    if (used < bufferLength || Fetch()) {
        return Start();
    }
    if (sourceStatus != ERROR_END) {
        return sourceStatus;
    }
    return whole || maybeEnd ? ERROR_END : ERROR_FORMAT;
}

Nucleo::Status TarReader::State::NextHeader(archive_entry** header)
{
    if (foreign || !tar) {
        if (const Nucleo::Status status = foreign ? PassOverForeignData() : Start(); status != OK) {
            return status;
        }
    }
    const int result = ::archive_read_next_header(tar.get(), header);
    if (result == ARCHIVE_EOF) {
        return ERROR_END;
    }
    return Succeeded(result) && ::archive_entry_pathname(*header) != nullptr ? OK : Failure(ERROR_FORMAT);
}

std::uint64_t TarReader::State::BytesBehind(std::uint64_t position) const
{
    const std::uint64_t unread = source->BytesLeft();
    return unread == unknown ? unknown : unread + (bufferStart + bufferLength) - position;
}

TarReader::TarReader() = default;

TarReader::~TarReader() = default;

Nucleo::Status TarReader::Open(Nucleo::Stream& stream)
{
    try {
        state_ = std::make_unique<State>(stream);
        return OK;
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    }
}

Nucleo::Status TarReader::NextEntry(char* name, std::size_t nameCapacity, TarEntry* entry)
{
    if (!state_) {
        return ERROR_STATE;
    }
    if (nameCapacity == 0) {
        return ERROR_PARAMETER;
    }
    archive_entry* header = nullptr;
    if (state_->outcome == OK) {
        state_->outcome = state_->NextHeader(&header);
    }
    if (state_->outcome != OK) {
        return state_->outcome;
    }
    const std::string_view path = ::archive_entry_pathname(header);
    const std::string_view cut = path.substr(0, nameCapacity - 1);
    std::memcpy(name, cut.data(), cut.size());
    name[cut.size()] = '\0';

    state_->left = state_->BytesBehind(state_->Position());
    const auto fileType = static_cast<std::uint32_t>(::archive_entry_filetype(header));
    if (fileType == AE_IFREG && ::archive_entry_hardlink(header) == nullptr) {
        *entry = {0, static_cast<std::uint64_t>(std::max<la_int64_t>(::archive_entry_size(header), 0))};
    } else {
        *entry = {fileType != 0 ? fileType : AE_IFREG, state_->FindForeignData(header)};
    }
    return OK;
}

std::uint64_t TarReader::BytesLeft() const
{
    return state_ ? state_->left : 0;
}

Nucleo::Status TarReader::Read(void* buffer, std::uint64_t size)
{
    if (!state_ || !state_->tar || state_->outcome != OK) {
        return ERROR_STATE;
    }
    auto* target = static_cast<std::uint8_t*>(buffer);
    if (state_->foreign) {
        const std::uint64_t wanted = state_->maybeEnd ? 0 : std::min(size, state_->foreignLeft);
        const std::uint64_t done = state_->ReadPast(target, wanted);
        state_->foreignLeft -= done;
        return done == size ? OK : ERROR_END;
    }
    while (size != 0) {
        const la_ssize_t count = ::archive_read_data(state_->tar.get(), target, size);
        if (count < 0 && state_->sourceStatus != ERROR_END) {
            return state_->Failure(ERROR_FORMAT);
        }
        if (count <= 0) {
            return ERROR_END;
        }
        target += count;
        size -= static_cast<std::uint64_t>(count);
    }
    return OK;
}

Nucleo::Status TarReader::Read(std::vector<std::uint8_t>* content, std::uint64_t size)
{
    if (!state_ || !state_->tar || state_->outcome != OK) {
        return ERROR_STATE;
    }
    try {
        content->clear();
        if (state_->foreign) {
            content->resize(size);
            return Read(content->data(), size);
        }
        content->reserve(size);
        while (content->size() < size) {
            // The blocks lie in libarchive's input: one copy, and no bytes that are zeroed to be written over.
            const void* block = nullptr;
            std::size_t length = 0;
            la_int64_t offset = 0;
            const int result = ::archive_read_data_block(state_->tar.get(), &block, &length, &offset);
            if (result == ARCHIVE_EOF || (!Succeeded(result) && state_->sourceStatus == ERROR_END)) {
                return ERROR_END;
            }
            if (!Succeeded(result) || offset < 0 || static_cast<std::uint64_t>(offset) < content->size() ||
                static_cast<std::uint64_t>(offset) > size) {
                return state_->Failure(ERROR_FORMAT);
            }
            content->resize(static_cast<std::size_t>(offset));  // A hole in a sparse file.
            const auto* bytes = static_cast<const std::uint8_t*>(block);
            content->insert(content->end(), bytes, bytes + std::min<std::uint64_t>(length, size - content->size()));
        }
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

Nucleo::Status TarReader::Close()
{
    if (!state_) {
        return ERROR_STATE;
    }
    state_.reset();
    return OK;
}

}  // namespace TesselLib
