#pragma once
// Tar archives over streams. Readers and writers are used by one thread at a time.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <Nucleo/Stream.h>

namespace TesselLib
{

/// Writes a tar archive of regular files into a stream. Plain ustar headers while they suffice, pax headers beyond.
/// Equal entries give equal bytes: owner, group and times are 0, the mode is 0644.
class TarWriter
{
public:
    TarWriter();
    ~TarWriter();

    /// Starts an archive in `stream`, which must outlive the writer or its Close.
    Nucleo::Status Open(Nucleo::Stream& stream);

    /// Writes one regular file of `size` bytes read from `content`. A leading "/" of `name` is left out (exactly one).
    /// Names are bytes. ERROR_PARAMETER for a name that cannot come back as it was: empty after stripping, above 511
    /// bytes, holding a NUL, or ending in "/"; ERROR_END when `content` says that it holds fewer bytes than `size`.
    /// Both leave the archive as it was. After any other failure the archive is broken off: nothing more is written to
    /// its stream and the writer must be opened anew. ERROR_STATE when no archive is open.
    Nucleo::Status WriteFile(std::string_view name, Nucleo::Stream& content, std::uint64_t size);

    /// Writes the end blocks; the writer can be opened anew then. A writer that ends without it leaves the archive
    /// without its end blocks. ERROR_STATE when no archive is open.
    Nucleo::Status Close();

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// What a tar entry's header says.
struct TarEntry
{
    /// 0 for a regular file; another value for everything else, which includes hard links and names ending in "/".
    std::uint32_t type = 0;
    /// Bytes of data that follow. Of a sparse file its full length, holes included.
    std::uint64_t size = 0;
};

/// Reads a tar archive entry by entry.
class TarReader
{
public:
    TarReader();
    ~TarReader();

    /// Starts reading `stream`, which must outlive the reader or its Close. The archive's bytes are not looked at yet,
    /// so damage never shows here. The stream is read ahead: what lies behind the archive may be used up with it.
    Nucleo::Status Open(Nucleo::Stream& stream);

    /// Goes to the next entry, passing over data that was not read, and copies its name, NUL-ended and cut at
    /// `nameCapacity` - 1 bytes. ERROR_END at the end of the archive, ERROR_FORMAT at a damaged or cut header, behind
    /// data that is cut, and for a stream without a byte; else the stream's own status. Nothing more can be read then.
    /// The size is reported as the header claims it: compare it with BytesLeft() before memory is taken for it.
    Nucleo::Status NextEntry(char* name, std::size_t nameCapacity, TarEntry* entry);

    /// Bytes of the archive behind the present entry's header: no entry holds more data than this, holes of sparse
    /// files aside. The largest 64-bit value when the stream does not know its length.
    std::uint64_t BytesLeft() const;

    /// Reads exactly `size` bytes of the present entry's data. ERROR_END when the archive or the entry ends before
    /// that.
    Nucleo::Status Read(void* buffer, std::uint64_t size);

    /// The same into a vector, whose content is replaced. ERROR_MEMORY when `size` bytes cannot be had: compare a size
    /// that an archive claims with BytesLeft() first.
    Nucleo::Status Read(std::vector<std::uint8_t>* content, std::uint64_t size);

    Nucleo::Status Close();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace TesselLib
