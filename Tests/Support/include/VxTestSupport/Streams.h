#pragma once
// Streams over the bytes of a test.

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <Nucleo/Stream.h>

namespace VxTestSupport
{

/// A stream in memory over these bytes, which must outlive it.
inline Nucleo::Handle<Nucleo::MemoryStream> StreamOf(std::string_view bytes)
{
    Nucleo::Handle<Nucleo::MemoryStream> stream;
    EXPECT_EQ(Nucleo::MemoryStream_Construct(stream.Receive()), Nucleo::OK);
    EXPECT_EQ(stream->Attach(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), Nucleo::OK);
    return stream;
}

/// Gives and takes bytes as a pipe would: no length, no place in memory, in pieces, and a failure at a chosen byte,
/// behind which nothing may be asked of it.
class PieceStream final : public Nucleo::Stream
{
public:
    static constexpr std::size_t whole = std::numeric_limits<std::size_t>::max() / 2;

    /// Gives at most `piece` bytes more than it must. Fails behind the byte `failsAt`.
    explicit PieceStream(std::string content, std::size_t piece = whole, std::size_t failsAt = whole)
        : content_(std::move(content)), piece_(piece), failsAt_(failsAt)
    {}
    Nucleo::Status Read(void* buffer, std::size_t minimum, std::size_t maximum, std::size_t* count) override
    {
        EXPECT_FALSE(failed_) << "reading goes on after a failure";
        *count = std::min({maximum, minimum + piece_, content_.size() - position_});
        std::memcpy(buffer, content_.data() + position_, *count);
        position_ += *count;
        failed_ = position_ > failsAt_ || *count < minimum;
        return position_ > failsAt_ ? Nucleo::ERROR_IO : failed_ ? Nucleo::ERROR_END : Nucleo::OK;
    }
    Nucleo::Status Write(const void* data, std::size_t size) override
    {
        EXPECT_FALSE(failed_) << "writing goes on after a failure";
        failed_ = content_.size() + size > failsAt_;
        content_.append(static_cast<const char*>(data), failed_ ? 0 : size);
        return failed_ ? Nucleo::ERROR_DISK_FULL : Nucleo::OK;
    }
    const std::string& Content() const { return content_; }
    std::size_t Position() const { return position_; }

private:
    std::string content_;
    std::size_t piece_;
    std::size_t failsAt_;
    std::size_t position_ = 0;
    bool failed_ = false;
};

}  // namespace VxTestSupport
