#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <string>

#include <TesselLib/Tar.h>

#include "src/LibArchive.h"

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

constexpr std::size_t maxNameLength = 511;

enum Format : std::size_t
{
    Ustar,
    Pax,
    Gnu,
    FormatCount
};

using Buffer = std::array<std::uint8_t, 64 * 1024>;

/// A ustar header holds a long name in two fields, split at a "/" that is left out and put back by every reader;
/// libarchive splits at the first one that leaves 100 bytes or less behind it. Where another "/" stands before that
/// one, readers find the first field to end in "/" already and put none back.
bool LosesSlashWhenSplit(std::string_view name)
{
    constexpr std::size_t fieldLength = 100;
    if (name.size() <= fieldLength) {
        return false;
    }
    const std::size_t split = std::max<std::size_t>(name.size() - fieldLength - 1, 1);
    return name[split] == '/' && name[split - 1] == '/';
}

}  // namespace

// libarchive writes one format an archive, and its pax writer is four times as slow as the ustar one. So the ustar
// writer makes the archive; writers of other formats, made when first needed, add the entries that ustar cannot hold to
// the same stream: pax what it refuses, GNU (the whole name in one piece) what it would change.
struct TarWriter::State
{
    explicit State(Nucleo::Stream& stream) : target(&stream) {}
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    Nucleo::Status Make(Format format);
    Nucleo::Status SelectFormat(archive* handle, Format format) const;
    Nucleo::Status WriteHeader(std::string_view name, std::uint64_t size, archive** taker);
    Nucleo::Status WriteContent(archive* taker, Nucleo::Stream& content, std::uint64_t size);
    Nucleo::Status Close();

    /// What made a call fail: the stream's own status where it was the reason.
    Nucleo::Status Failure(archive* handle) const
    {
        return streamStatus != OK ? streamStatus : StatusOf(handle, ERROR_STATE);
    }

    static la_ssize_t WriteBlock(archive* handle, void* state, const void* data, size_t size);

    Nucleo::Stream* target;
    bool muted = false;  // Nothing more goes to the stream.
    Nucleo::Status streamStatus = OK;
    std::array<ArchiveHandle, FormatCount> writers;
    EntryHandle entry;
    std::string nameText;
    std::unique_ptr<Buffer> buffer;  // For contents that are not in memory.
};

TarWriter::State::~State()
{
    // libarchive frees all it holds only when it is closed, and closing writes end blocks.
    muted = true;
    for (const ArchiveHandle& writer : writers) {
        if (writer) {
            ::archive_write_close(writer.get());
        }
    }
}

la_ssize_t TarWriter::State::WriteBlock(archive* handle, void* state, const void* data, size_t size)
{
    auto* self = static_cast<State*>(state);
    if (self->muted) {
        return static_cast<la_ssize_t>(size);
    }
    self->streamStatus = self->target->Write(data, size);
    if (self->streamStatus != OK) {
        ::archive_set_error(handle, EIO, "the stream failed");
        return -1;
    }
    return static_cast<la_ssize_t>(size);
}

Nucleo::Status TarWriter::State::SelectFormat(archive* handle, Format format) const
{
    bool selected = false;
    switch (format) {
        case Ustar:
            selected = Succeeded(::archive_write_set_format_ustar(handle));
            break;
        case Pax:
            // Names are bytes: without the option one that is not UTF-8 would be changed.
            selected = Succeeded(::archive_write_set_format_pax_restricted(handle)) &&
                       Succeeded(::archive_write_set_format_option(handle, "pax", "hdrcharset", "BINARY"));
            break;
        default:
            selected = Succeeded(::archive_write_set_format_gnutar(handle));
            break;
    }
    return selected ? OK : Failure(handle);
}

Nucleo::Status TarWriter::State::Make(Format format)
{
    ArchiveHandle made(::archive_write_new());
    if (!made) {
        return ERROR_MEMORY;
    }
    if (const Nucleo::Status status = SelectFormat(made.get(), format); status != OK) {
        return status;
    }
    // Blocks of no size: each header and each piece of data goes to the stream as it is, without a copy in between, and
    // the archive ends with its two end blocks.
    if (!Succeeded(::archive_write_set_bytes_per_block(made.get(), 0)) ||
        !Succeeded(::archive_write_set_bytes_in_last_block(made.get(), 1)) ||
        !Succeeded(::archive_write_open(made.get(), this, nullptr, &WriteBlock, nullptr))) {
        return Failure(made.get());
    }
    writers[format] = std::move(made);
    return OK;
}

Nucleo::Status TarWriter::State::WriteHeader(std::string_view name, std::uint64_t size, archive** taker)
{
    nameText.assign(name);
    ::archive_entry_clear(entry.get());
    ::archive_entry_set_pathname(entry.get(), nameText.c_str());
    ::archive_entry_set_filetype(entry.get(), AE_IFREG);
    ::archive_entry_set_perm(entry.get(), 0644);
    ::archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    Format format = LosesSlashWhenSplit(name) ? Gnu : Ustar;
    for (;;) {
        if (!writers[format]) {
            if (const Nucleo::Status status = Make(format); status != OK) {
                return status;
            }
        }
        *taker = writers[format].get();
        const int result = ::archive_write_header(*taker, entry.get());
        if (Succeeded(result)) {
            return OK;
        }
        if (result != ARCHIVE_FAILED || format != Ustar) {
            return Failure(*taker);
        }
        format = Pax;  // It cannot be split into the header's fields; nothing was written.
    }
}

Nucleo::Status TarWriter::State::WriteContent(archive* taker, Nucleo::Stream& content, std::uint64_t size)
{
    constexpr std::size_t maxStep = std::size_t{1} << 30;
    while (size != 0) {
        std::size_t count = 0;
        const void* bytes =
            content.ReadInPlace(static_cast<std::size_t>(std::min<std::uint64_t>(size, maxStep)), &count);
        if (bytes == nullptr) {
            if (!buffer) {
                buffer = std::make_unique<Buffer>();
            }
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size, buffer->size()));
            if (const Nucleo::Status status = content.Read(buffer->data(), wanted, wanted, &count); status != OK) {
                return status;
            }
            bytes = buffer->data();
        }
        if (::archive_write_data(taker, bytes, count) != static_cast<la_ssize_t>(count)) {
            return Failure(taker);
        }
        size -= count;
    }
    // Now, so that the padding is there before the other writer goes on.
    return Succeeded(::archive_write_finish_entry(taker)) ? OK : Failure(taker);
}

Nucleo::Status TarWriter::State::Close()
{
    archive* ustar = writers[Ustar].get();
    return Succeeded(::archive_write_close(ustar)) ? OK : Failure(ustar);
}

TarWriter::TarWriter() = default;

TarWriter::~TarWriter() = default;

Nucleo::Status TarWriter::Open(Nucleo::Stream& stream)
{
    try {
        state_.reset();
        auto state = std::make_unique<State>(stream);
        state->entry.reset(::archive_entry_new());
        state->nameText.reserve(maxNameLength);
        if (!state->entry) {
            return ERROR_MEMORY;
        }
        const Nucleo::Status status = state->Make(Ustar);
        if (status == OK) {
            state_ = std::move(state);
        }
        return status;
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    }
}

Nucleo::Status TarWriter::WriteFile(std::string_view name, Nucleo::Stream& content, std::uint64_t size)
{
    if (!state_) {
        return ERROR_STATE;
    }
    if (name.starts_with('/')) {
        name.remove_prefix(1);
    }
    if (name.empty() || name.size() > maxNameLength || name.ends_with('/') || name.find('\0') != name.npos ||
        size > static_cast<std::uint64_t>(std::numeric_limits<la_int64_t>::max())) {
        return ERROR_PARAMETER;
    }
    if (content.BytesLeft() < size) {
        return ERROR_END;
    }
    Nucleo::Status status = ERROR_MEMORY;
    try {
        archive* taker = nullptr;
        status = state_->WriteHeader(name, size, &taker);
        if (status == OK) {
            status = state_->WriteContent(taker, content, size);
        }
    } catch (const std::bad_alloc&) {
    }
    if (status != OK) {
        state_.reset();
    }
    return status;
}

Nucleo::Status TarWriter::Close()
{
    if (!state_) {
        return ERROR_STATE;
    }
    const Nucleo::Status status = state_->Close();
    state_.reset();
    return status;
}

}  // namespace TesselLib
