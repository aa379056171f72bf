#pragma once
// Plain values on a stream: arrays of values whose types an assembly knows how to write and read
// (Assembly::AddFormats). docs/files.md says what lies on the stream. A serializer is used by one thread at a time; the
// stream and the assembly must outlive it.
//
// Numbers go straight into and out of a buffer where it has the room or the bytes, and otherwise the general way over
// the stream. What the stream answers is returned unchanged, and nothing more should be written or read after a
// failure.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>
#include <type_traits>

#include <Nucleo/ArrayList.h>
#include <Nucleo/Assembly.h>
#include <Nucleo/Stream.h>

namespace Nucleo
{

/// Writes. What was written is on the stream after Close().
class Serializer
{
public:
    /// Characters of the names on a stream.
    static constexpr std::size_t MaxText = 31;

    Serializer(Stream& stream, const Assembly& types) noexcept : stream_(stream), types_(types) {}
    Serializer(const Serializer&) = delete;
    Serializer& operator=(const Serializer&) = delete;

    /// Writes the head. `format` is "kdat5" or "kdat6" (ERROR_FORMAT for another), `version` selects among the ways in
    /// which a type is written. Numbers are written in this machine's byte order, or in the other one with
    /// `swapByteOrder`.
    Status Open(std::string_view format, Version version, bool swapByteOrder);

    /// Writes an array of registered values. ERROR_UNSUPPORTED when the type is not written in this format and version.
    template <class T>
    Status WriteArray(std::span<const T> items)
    {
        return WriteArray(TypeOf<T>(), items.data(), items.size());
    }

    /// Hands what is buffered to the stream.
    Status Close();

    // What the write functions of value types use.

    /// A number, in the stream's byte order.
    template <class T>
    Status WriteValue(T value)
    {
        static_assert(std::is_arithmetic_v<T>);
        auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value);
        if (swap_) {
            std::reverse(bytes.begin(), bytes.end());
        }
        if (buffer_.size() - used_ < bytes.size()) {
            return WriteBytes(bytes.data(), bytes.size());
        }
        std::memcpy(buffer_.data() + used_, bytes.data(), bytes.size());
        used_ += bytes.size();
        return OK;
    }

    /// Bytes as they are.
    Status WriteBytes(const void* data, std::size_t size);

private:
    Status WriteArray(const Type& type, const void* items, std::size_t count);
    Status WriteText(std::string_view text);

    Stream& stream_;
    const Assembly& types_;
    std::string_view format_;
    Version version_{};
    bool swap_ = false;
    std::size_t used_ = 0;
    std::array<std::uint8_t, 4096> buffer_;
};

/// Reads what a Serializer wrote, and takes not a byte more from the stream. Whatever the bytes are, reading ends with
/// a status, and no more memory is taken than what the stream holds asks for.
class Deserializer
{
public:
    Deserializer(Stream& stream, const Assembly& types) noexcept : stream_(stream), types_(types) {}
    Deserializer(const Deserializer&) = delete;
    Deserializer& operator=(const Deserializer&) = delete;

    /// Reads the head, which says format, version and byte order. ERROR_FORMAT when it is none, or names a format that
    /// is not known.
    Status Open();

    /// Reads an array into a new list, in memory of `allocator` (null: the default one). On failure `*list` is null:
    /// ERROR_UNSUPPORTED when the type is not written in this format and version, ERROR_CONTENT when the array is of
    /// another type, ERROR_END when fewer items are left than it claims.
    template <class T>
    Status ReadArray(ArrayList<T>** list, Allocator* allocator)
    {
        *list = nullptr;
        const ValueFormat* format = nullptr;
        std::uint64_t left = 0;
        std::size_t room = 0;
        Status status = BeginArray(TypeOf<T>(), &format, &left, &room);
        if (status != OK) {
            return status;
        }
        Handle<ArrayList<T>> made;
        status = ArrayList<T>::Make(made.Receive(), room, allocator);
        while (status == OK && left != 0) {
            const std::size_t first = made->Count();
            const std::size_t count = std::min<std::uint64_t>(left, std::max(first, UncheckedItems));
            status = made->Resize(first + count);
            if (status == OK) {
                status = format->read(*this, &made->At(first), count);
            }
            left -= count;
        }
        if (status == OK) {
            *list = made.Detach();
        }
        return status;
    }

    // What the read functions of value types use. On failure the target holds anything.

    /// A number, in the stream's byte order.
    template <class T>
    Status ReadValue(T* value)
    {
        static_assert(std::is_arithmetic_v<T>);
        std::array<std::uint8_t, sizeof(T)> bytes;
        if (end_ - at_ < bytes.size()) {
            if (const Status status = ReadBytes(bytes.data(), bytes.size()); status != OK) {
                return status;
            }
        } else {
            std::memcpy(bytes.data(), buffer_.data() + at_, bytes.size());
            at_ += bytes.size();
        }
        if (swap_) {
            std::reverse(bytes.begin(), bytes.end());
        }
        *value = std::bit_cast<T>(bytes);
        return OK;
    }

    /// Bytes as they are. ERROR_END when fewer are left.
    Status ReadBytes(void* data, std::size_t size);

private:
    /// Items that memory is taken for at first when the stream does not know how many bytes are left; it grows with
    /// what was read.
    static constexpr std::size_t UncheckedItems = 256;

    Status BeginArray(const Type& type, const ValueFormat** format, std::uint64_t* count, std::size_t* room);
    Status ReadText(std::array<char, Serializer::MaxText>* buffer, std::string_view* text);

    Stream& stream_;
    const Assembly& types_;
    std::string_view format_;
    Version version_{};
    bool swap_ = false;
    std::uint64_t expected_ = 0;  // Bytes that still belong to the array and are on the stream.
    std::size_t at_ = 0;          // The bytes from at_ to end_ of the buffer have been taken from the stream.
    std::size_t end_ = 0;
    std::array<std::uint8_t, 4096> buffer_;
};

}  // namespace Nucleo
