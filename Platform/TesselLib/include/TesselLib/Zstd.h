#pragma once
// Zstandard compression over streams.

#include <cstddef>

#include <Nucleo/Stream.h>

namespace TesselLib
{

enum class ZstdMode
{
    Read,
    Write
};

/// Compresses what is written to it into a target stream, or decompresses what it reads from one. After a failure every
/// further operation answers that failure's status.
///
/// A read reports ERROR_FORMAT at damage, an end inside a frame included, ERROR_LIMIT for a frame that needs a window
/// above 128 MiB, and ERROR_END at the end of the data; bytes decoded before the damage are delivered first. Frames
/// that follow one another are read as one.
class ZstdStream : public Nucleo::Stream
{
public:
    static const Nucleo::Type& StaticType() noexcept;

    /// Write: ends the frame and passes everything on. Read: nothing is left to do, OK. The stream takes and gives no
    /// more data then (ERROR_STATE).
    virtual Nucleo::Status Finish() = 0;
};

/// Write: one frame with checksum at `level`, 1 to 22 (else ERROR_PARAMETER), goes into `target`. Read: `target` is
/// read and `level` not used. `target` must outlive the stream. `allocator` (null: the default one) holds the object;
/// the compressor's own tables come from the process heap. On failure `*stream` is null.
Nucleo::Status ZstdStream_Construct(ZstdStream** stream, Nucleo::Stream& target, ZstdMode mode, int level,
                                    Nucleo::Allocator* allocator = nullptr) noexcept;

}  // namespace TesselLib
