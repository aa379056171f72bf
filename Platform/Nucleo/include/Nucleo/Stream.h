#pragma once
// Byte streams. A stream is used by one thread at a time.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <Nucleo/Object.h>

namespace Nucleo
{

/// A sequence of bytes that can be read, written, or both, from a moving position.
class Stream : public Object
{
public:
    static const Type& StaticType() noexcept;

    /// Reads between `minimum` and `maximum` bytes into `buffer` and says in `*count` how many. OK when at least
    /// `minimum` were read; ERROR_END when the data ended before that (`*count` bytes were read all the same); another
    /// status when the source failed. Streams that cannot be read answer ERROR_UNSUPPORTED.
    virtual Status Read(void* buffer, std::size_t minimum, std::size_t maximum, std::size_t* count);

    /// Passes over up to `maximum` bytes, `*count` of them, and answers where they lie in the stream's own memory, so
    /// that nobody has to copy them; valid until the stream's next operation that is not const. Null, with `*count` 0,
    /// at the end and of streams that do not hold their bytes in memory: Read is the way then.
    virtual const std::uint8_t* ReadInPlace(std::size_t maximum, std::size_t* count);

    /// Writes all `size` bytes or fails. Streams that cannot be written answer ERROR_UNSUPPORTED.
    virtual Status Write(const void* data, std::size_t size);

    /// Bytes that a reader still has before it, when the stream knows; otherwise the largest 64-bit value.
    virtual std::uint64_t BytesLeft() const;

    /// Says that about `size` bytes will be written. ERROR_MEMORY when that much cannot be had; nothing has changed
    /// then.
    virtual Status Reserve(std::uint64_t size);

    /// What was written is where it belongs when it returns. OK for streams that keep nothing back.
    virtual Status Flush();

protected:
    Stream() = default;
};

/// Reads exactly `size` bytes; ERROR_END when fewer are left.
Status ReadExactly(Stream& stream, void* buffer, std::size_t size);

/// A stream in memory: growable, or attached to a block that the caller keeps alive and that is only read.
class MemoryStream final : public Stream
{
public:
    static const Type& StaticType() noexcept;

    Status Read(void* buffer, std::size_t minimum, std::size_t maximum, std::size_t* count) override;

    const std::uint8_t* ReadInPlace(std::size_t maximum, std::size_t* count) override;

    /// Appends at the end. ERROR_STATE when the stream is attached to a block, ERROR_MEMORY when it cannot grow.
    Status Write(const void* data, std::size_t size) override;

    std::uint64_t BytesLeft() const override;
    Status Reserve(std::uint64_t size) override;

    /// Reads from now on from `size` bytes at `data`, which stay the caller's and must outlive their use. Drops what
    /// the stream held; the position is 0. ERROR_PARAMETER when `data` is null and `size` is not 0.
    Status Attach(const std::uint8_t* data, std::size_t size);

    const std::uint8_t* Data() const noexcept;
    std::size_t Length() const noexcept;

    /// Hands the whole content of a growable stream to the caller and leaves the stream empty at position 0. Of an
    /// attached stream it is a copy and the stream stays as it was.
    std::vector<std::uint8_t> TakeContent();

private:
    template <class T, class... Args>
    friend Status Construct(T** object, Allocator* allocator, Args&&... args) noexcept;
    MemoryStream() = default;

    std::vector<std::uint8_t> content_;
    const std::uint8_t* block_ = nullptr;  // Set while attached.
    std::size_t blockSize_ = 0;
    std::size_t position_ = 0;
    bool attached_ = false;
};

/// Makes an empty growable stream at position 0. `allocator`: null for the default one.
Status MemoryStream_Construct(MemoryStream** stream, Allocator* allocator = nullptr) noexcept;

}  // namespace Nucleo
