#pragma once
// What the fuzz targets share.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <Nucleo/Stream.h>

/// Ends the program, which is how a target reports a fault.
inline void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

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
