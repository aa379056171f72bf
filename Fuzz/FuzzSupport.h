#pragma once
// What the fuzz targets share.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <Nucleo/Stream.h>

/// Ends the program, which is how a target reports a fault.
inline void Require(bool condition, const char* what = "")
{
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

/// The input as numbers that choose what is done; 0 when it is used up.
class Choices
{
public:
    Choices(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool Empty() const { return next_ == end_; }
    std::uint8_t Byte() { return next_ != end_ ? *next_++ : std::uint8_t{0}; }
    std::size_t Word() { return Byte() | std::size_t{Byte()} << 8; }
    std::string_view Rest() const { return {reinterpret_cast<const char*>(next_), std::size_t(end_ - next_)}; }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

/// The input a piece at a time, without a length and without a place in memory.
class PieceStream final : public Nucleo::Stream
{
public:
    /// At most `more` bytes beyond the least that is asked for come at once. `data` must outlive the stream.
    PieceStream(const std::uint8_t* data, std::size_t size, std::size_t more) : data_(data), left_(size), more_(more) {}

    Nucleo::Status Read(void* buffer, std::size_t minimum, std::size_t maximum, std::size_t* count) override
    {
        *count = std::min({maximum, minimum + std::min(more_, maximum), left_});
        if (*count != 0) {
            std::memcpy(buffer, data_, *count);
        }
        data_ += *count;
        left_ -= *count;
        return *count >= minimum ? Nucleo::OK : Nucleo::ERROR_END;
    }

private:
    const std::uint8_t* data_;
    std::size_t left_;
    std::size_t more_;
};
