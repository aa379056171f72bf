#include <algorithm>
#include <cstring>
#include <limits>

#include <Nucleo/Stream.h>

namespace Nucleo
{

const Type& Stream::StaticType() noexcept
{
    static const Type type{"Stream", &Object::StaticType(), sizeof(Stream)};
    return type;
}

Status Stream::Read(void* /*buffer*/, std::size_t /*minimum*/, std::size_t /*maximum*/, std::size_t* count)
{
    *count = 0;
    return ERROR_UNSUPPORTED;
}

const std::uint8_t* Stream::ReadInPlace(std::size_t /*maximum*/, std::size_t* count)
{
    *count = 0;
    return nullptr;
}

Status Stream::Write(const void* /*data*/, std::size_t /*size*/)
{
    return ERROR_UNSUPPORTED;
}

std::uint64_t Stream::BytesLeft() const
{
    return std::numeric_limits<std::uint64_t>::max();
}

Status Stream::Reserve(std::uint64_t /*size*/)
{
    return OK;
}

Status Stream::Flush()
{
    return OK;
}

Status ReadExactly(Stream& stream, void* buffer, std::size_t size)
{
    std::size_t count = 0;
    return size == 0 ? OK : stream.Read(buffer, size, size, &count);
}

const Type& MemoryStream::StaticType() noexcept
{
    static const Type type{"MemoryStream", &Stream::StaticType(), sizeof(MemoryStream)};
    return type;
}

Status MemoryStream::Read(void* buffer, std::size_t minimum, std::size_t maximum, std::size_t* count)
{
    *count = std::min(maximum, Length() - position_);
    if (*count != 0) {
        std::memcpy(buffer, Data() + position_, *count);
        position_ += *count;
    }
    return *count >= minimum ? OK : ERROR_END;
}

const std::uint8_t* MemoryStream::ReadInPlace(std::size_t maximum, std::size_t* count)
{
    *count = std::min(maximum, Length() - position_);
    const std::uint8_t* data = *count != 0 ? Data() + position_ : nullptr;
    position_ += *count;
    return data;
}

Status MemoryStream::Write(const void* data, std::size_t size)
{
    if (attached_) {
        return ERROR_STATE;
    }
    try {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        content_.insert(content_.end(), bytes, bytes + size);
        return OK;
    } catch (const std::exception&) {  // bad_alloc, or length_error beyond what a vector can hold
        return ERROR_MEMORY;
    }
}

std::uint64_t MemoryStream::BytesLeft() const
{
    return Length() - position_;
}

Status MemoryStream::Reserve(std::uint64_t size)
{
    if (attached_) {
        return ERROR_STATE;
    }
    if (size > content_.max_size() - content_.size()) {
        return ERROR_MEMORY;
    }
    try {
        content_.reserve(content_.size() + size);
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

Status MemoryStream::Attach(const std::uint8_t* data, std::size_t size)
{
    if (data == nullptr && size != 0) {
        return ERROR_PARAMETER;
    }
    content_ = {};
    block_ = data;
    blockSize_ = size;
    position_ = 0;
    attached_ = true;
    return OK;
}

const std::uint8_t* MemoryStream::Data() const noexcept
{
    return attached_ ? block_ : content_.data();
}

std::size_t MemoryStream::Length() const noexcept
{
    return attached_ ? blockSize_ : content_.size();
}

std::vector<std::uint8_t> MemoryStream::TakeContent()
{
    if (attached_) {
        return {block_, block_ + blockSize_};
    }
    position_ = 0;
    return std::exchange(content_, {});
}

Status MemoryStream_Construct(MemoryStream** stream, Allocator* allocator) noexcept
{
    return Construct(stream, allocator);
}

}  // namespace Nucleo
