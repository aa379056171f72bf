#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <memory>
#include <vector>

#include <TesselLib/Zstd.h>

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

Nucleo::Status StatusOfCode(std::size_t code)
{
    switch (::ZSTD_getErrorCode(code)) {
        case ZSTD_error_memory_allocation:
            return ERROR_MEMORY;
        case ZSTD_error_frameParameter_windowTooLarge:
            return ERROR_LIMIT;
        default:
            return ERROR_FORMAT;
    }
}

class Compressor final : public ZstdStream
{
public:
    Compressor(Nucleo::Stream& target, int level)
        : target_(target), context_(::ZSTD_createCCtx()), output_(::ZSTD_CStreamOutSize())
    {
        if (!context_ ||
            ::ZSTD_isError(::ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_compressionLevel, level)) != 0 ||
            ::ZSTD_isError(::ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_checksumFlag, 1)) != 0) {
            throw std::bad_alloc();
        }
    }

    Nucleo::Status Write(const void* data, std::size_t size) override { return Pass(data, size, ZSTD_e_continue); }

    Nucleo::Status Finish() override
    {
        const Nucleo::Status status = Pass(nullptr, 0, ZSTD_e_end);
        if (status == OK) {
            outcome_ = ERROR_STATE;
        }
        return status;
    }

private:
    Nucleo::Status Pass(const void* data, std::size_t size, ZSTD_EndDirective directive)
    {
        if (outcome_ != OK) {
            return outcome_;
        }
        ZSTD_inBuffer input{data, size, 0};
        for (;;) {
            ZSTD_outBuffer output{output_.data(), output_.size(), 0};
            const std::size_t left = ::ZSTD_compressStream2(context_.get(), &output, &input, directive);
            if (::ZSTD_isError(left) != 0) {
                return outcome_ = StatusOfCode(left);
            }
            if (output.pos != 0) {
                if (const Nucleo::Status status = target_.Write(output_.data(), output.pos); status != OK) {
                    return outcome_ = status;
                }
            }
            if (directive == ZSTD_e_end ? left == 0 : input.pos == input.size) {
                return OK;
            }
        }
    }

    struct FreeContext
    {
        void operator()(ZSTD_CCtx* context) const noexcept { ::ZSTD_freeCCtx(context); }
    };

    Nucleo::Stream& target_;
    std::unique_ptr<ZSTD_CCtx, FreeContext> context_;
    std::vector<std::uint8_t> output_;
    Nucleo::Status outcome_ = OK;  // Once it is something else nothing more is written.
};

class Decompressor final : public ZstdStream
{
public:
    // The window is limited to the library's default of 128 MiB, so that a frame's header cannot ask for more memory.
    explicit Decompressor(Nucleo::Stream& source)
        : source_(source), context_(::ZSTD_createDCtx()), buffer_(::ZSTD_DStreamInSize())
    {
        if (!context_) {
            throw std::bad_alloc();
        }
    }

    Nucleo::Status Read(void* buffer, std::size_t minimum, std::size_t maximum, std::size_t* count) override
    {
        ZSTD_outBuffer output{buffer, maximum, 0};
        while (output.pos < maximum && outcome_ == OK) {
            if (!pending_ && position_ == length_) {
                if (output.pos >= std::max<std::size_t>(minimum, 1)) {
                    break;
                }
                Fetch();
                continue;
            }
            Step(output);
        }
        *count = output.pos;
        return output.pos >= minimum ? OK : outcome_;
    }

    Nucleo::Status Finish() override
    {
        outcome_ = outcome_ == OK ? ERROR_STATE : outcome_;
        return OK;
    }

private:
    void Fetch()
    {
        position_ = 0;
        length_ = 0;
        const Nucleo::Status status = source_.Read(buffer_.data(), 1, buffer_.size(), &length_);
        if (status != OK && length_ == 0) {
            // An end inside a frame is damage.
            outcome_ = status == ERROR_END && insideFrame_ ? ERROR_FORMAT : status;
        }
    }

    /// Lets the library take one step: give decoded bytes out, or use one header or one block. More at once would lose
    /// data, since a call that meets damage forgets what it has decoded before.
    void Step(ZSTD_outBuffer& output)
    {
        const std::size_t step = pending_ ? 0 : std::min(length_ - position_, wanted_);
        ZSTD_inBuffer input{buffer_.data() + position_, step, 0};
        const std::size_t before = output.pos;
        const std::size_t hint = ::ZSTD_decompressStream(context_.get(), &output, &input);
        position_ += input.pos;
        if (::ZSTD_isError(hint) != 0) {
            outcome_ = StatusOfCode(hint);
            return;
        }
        insideFrame_ = hint != 0;
        // The library asks for a block together with the next one's header of 3 bytes.
        wanted_ = hint > 3 ? hint - 3 : std::max<std::size_t>(hint, 1);
        // A full output may have left decoded bytes inside the library.
        pending_ = output.pos == output.size && output.pos != before && hint != 0;
    }

    struct FreeContext
    {
        void operator()(ZSTD_DCtx* context) const noexcept { ::ZSTD_freeDCtx(context); }
    };

    Nucleo::Stream& source_;
    std::unique_ptr<ZSTD_DCtx, FreeContext> context_;
    std::vector<std::uint8_t> buffer_;  // Compressed bytes: [position_, length_) are still to be decoded.
    std::size_t position_ = 0;
    std::size_t length_ = 0;
    std::size_t wanted_ = 1;  // What the library can use at once.
    bool insideFrame_ = false;
    bool pending_ = false;
    Nucleo::Status outcome_ = OK;  // Once it is something else nothing more is read.
};

}  // namespace

Nucleo::Status ZstdStream_Construct(ZstdStream** stream, Nucleo::Stream& target, ZstdMode mode, int level,
                                    Nucleo::Allocator* allocator) noexcept
{
    *stream = nullptr;
    Nucleo::Status status = ERROR_PARAMETER;
    if (mode == ZstdMode::Read) {
        Decompressor* made = nullptr;
        status = Nucleo::Construct(&made, allocator, target);
        *stream = made;
    } else if (level >= 1 && level <= 22) {
        Compressor* made = nullptr;
        status = Nucleo::Construct(&made, allocator, target, level);
        *stream = made;
    }
    return status;
}

}  // namespace TesselLib
