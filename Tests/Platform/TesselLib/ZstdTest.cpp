#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <TesselLib/Zstd.h>
#include <VxTestSupport/FailingAllocator.h>

using namespace Nucleo::Statuses;
using TesselLib::ZstdMode;
using TesselLib::ZstdStream;
using Bytes = std::vector<std::uint8_t>;

namespace
{

Nucleo::Handle<Nucleo::MemoryStream> Memory(const Bytes& bytes = {})
{
    Nucleo::Handle<Nucleo::MemoryStream> stream;
    EXPECT_EQ(Nucleo::MemoryStream_Construct(stream.Receive()), OK);
    EXPECT_EQ(stream->Write(bytes.data(), bytes.size()), OK);
    return stream;
}

/// Numbers that compress by about half.
Bytes Sample(std::size_t size)
{
    std::minstd_rand random(7);
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random() % 16); });
    return bytes;
}

Bytes Compress(const Bytes& bytes, int level, std::size_t piece = 1 << 20)
{
    const auto target = Memory();
    Nucleo::Handle<ZstdStream> stream;
    EXPECT_EQ(ZstdStream_Construct(stream.Receive(), *target, ZstdMode::Write, level), OK);
    for (std::size_t i = 0; i < bytes.size(); i += piece) {
        EXPECT_EQ(stream->Write(bytes.data() + i, std::min(piece, bytes.size() - i)), OK);
    }
    EXPECT_EQ(stream->Finish(), OK);
    EXPECT_EQ(stream->Write("x", 1), ERROR_STATE);
    EXPECT_EQ(stream->Finish(), ERROR_STATE);
    return target->TakeContent();
}

/// Reads to the end; `*bytes` are those that came before it.
Nucleo::Status Decompress(const Bytes& image, Bytes* bytes, std::size_t minimum = 1, std::size_t maximum = 4096)
{
    const auto source = Memory(image);
    Nucleo::Handle<ZstdStream> stream;
    EXPECT_EQ(ZstdStream_Construct(stream.Receive(), *source, ZstdMode::Read, 0), OK);
    Nucleo::Status status = OK;
    while (status == OK) {
        Bytes part(maximum);
        std::size_t count = 0;
        status = stream->Read(part.data(), minimum, maximum, &count);
        EXPECT_TRUE(status != OK || count >= minimum);
        bytes->insert(bytes->end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(count));
    }
    std::size_t count = 1;
    std::uint8_t byte = 0;
    EXPECT_EQ(stream->Read(&byte, 1, 1, &count), status) << "an end is an end";
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(stream->Finish(), OK);
    return status;
}

TEST(ZstdTest, GivesBackWhatWasWritten)
{
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 1'000'003U}) {
        const Bytes bytes = Sample(size);
        const Bytes image = Compress(bytes, 10);
        EXPECT_EQ(image, Compress(bytes, 10));
        for (const auto& [minimum, maximum] : {std::pair{1, 4096}, {4096, 4096}, {1, 1 << 20}, {100, 131'072}}) {
            Bytes back;
            EXPECT_EQ(Decompress(image, &back, static_cast<std::size_t>(minimum), static_cast<std::size_t>(maximum)),
                      ERROR_END);
            EXPECT_EQ(back, bytes) << size << " " << minimum << " " << maximum;
        }
    }
    Bytes back;
    EXPECT_EQ(Decompress(Compress(Sample(10'000), 1, 1), &back, 1, 1), ERROR_END);
    EXPECT_EQ(back, Sample(10'000));
    EXPECT_LT(Compress(Bytes(100'000, 'x'), 22).size(), 100u);
    Bytes frames = Compress({1, 2}, 3);
    const Bytes second = Compress({3}, 3);
    frames.insert(frames.end(), second.begin(), second.end());
    back.clear();
    EXPECT_EQ(Decompress(frames, &back), ERROR_END);
    EXPECT_EQ(back, (Bytes{1, 2, 3}));
}

TEST(ZstdTest, DamageIsFoundAndWhatCameBeforeItIsDelivered)
{
    const Bytes bytes = Sample(3000);
    const Bytes image = Compress(bytes, 10);
    for (std::size_t length = 1; length < image.size(); ++length) {
        Bytes back;
        EXPECT_EQ(Decompress({image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length)}, &back, 1, 100),
                  ERROR_FORMAT)
            << length;
        ASSERT_LE(back.size(), bytes.size());
        EXPECT_TRUE(std::equal(back.begin(), back.end(), bytes.begin())) << length;
        EXPECT_TRUE(back == bytes || length < image.size() - 4) << "only the checksum is cut";
    }
    for (std::size_t i = 0; i < image.size(); ++i) {
        Bytes flipped = image;
        flipped[i] ^= 0x10;
        Bytes back;
        const Nucleo::Status status = Decompress(flipped, &back);
        EXPECT_TRUE(back == bytes || status == ERROR_FORMAT || status == ERROR_LIMIT) << i << " passed as whole";
    }
    Bytes back;
    EXPECT_EQ(Decompress({}, &back), ERROR_END);
    EXPECT_EQ(Decompress({'n', 'o', ' ', 'f', 'r', 'a', 'm', 'e'}, &back), ERROR_FORMAT);
    const Bytes hugeWindow{0x28, 0xB5, 0x2F, 0xFD, 0x00, 0xA8, 0x01, 0x00, 0x00};  // 2 GiB of memory
    EXPECT_EQ(Decompress(hugeWindow, &back), ERROR_LIMIT);
    EXPECT_TRUE(back.empty());

    // Blocks are of 128 KiB: a fourth one of no known kind leaves three, however much is asked for at once.
    const Bytes large = Sample(4 * 131'072);
    Bytes damaged = Compress(large, 10);
    std::size_t block = 6;  // behind the frame's header
    for (int i = 0; i < 3; ++i) {
        block +=
            3 + (static_cast<std::size_t>(damaged[block] | damaged[block + 1] << 8 | damaged[block + 2] << 16) >> 3);
    }
    damaged[block] |= 0x06;
    for (const std::size_t maximum : {4096U, 1U << 20}) {
        back.clear();
        EXPECT_EQ(Decompress(damaged, &back, 1, maximum), ERROR_FORMAT);
        EXPECT_EQ(back, Bytes(large.begin(), large.begin() + 3 * 131'072));
    }
}

class BrokenStream final : public Nucleo::Stream
{
public:
    Nucleo::Status Write(const void* /*data*/, std::size_t /*size*/) override { return ERROR_DISK_FULL; }
    Nucleo::Status Read(void* /*b*/, std::size_t /*min*/, std::size_t /*max*/, std::size_t* count) override
    {
        *count = 0;
        return ERROR_IO;
    }
};

TEST(ZstdTest, RefusesWhatItCannotDo)
{
    BrokenStream broken;
    ZstdStream* none = nullptr;
    for (const int level : {0, 23, -1}) {
        EXPECT_EQ(ZstdStream_Construct(&none, broken, ZstdMode::Write, level), ERROR_PARAMETER);
        EXPECT_EQ(none, nullptr);
    }
    Nucleo::Handle<ZstdStream> stream;
    std::size_t count = 0;
    char byte = 0;
    ASSERT_EQ(ZstdStream_Construct(stream.Receive(), broken, ZstdMode::Write, 1), OK);
    EXPECT_EQ(stream->Read(&byte, 1, 1, &count), ERROR_UNSUPPORTED);
    EXPECT_EQ(stream->Write("x", 1), OK);
    EXPECT_EQ(stream->Finish(), ERROR_DISK_FULL);
    EXPECT_EQ(stream->Write("x", 1), ERROR_DISK_FULL);
    ASSERT_EQ(ZstdStream_Construct(stream.Receive(), broken, ZstdMode::Read, 0), OK);
    EXPECT_EQ(stream->Write("x", 1), ERROR_UNSUPPORTED);
    EXPECT_EQ(stream->Read(&byte, 1, 1, &count), ERROR_IO);

    for (const ZstdMode mode : {ZstdMode::Read, ZstdMode::Write}) {
        VxTestSupport::FailingAllocator failing(0);
        EXPECT_EQ(ZstdStream_Construct(&none, broken, mode, 1, &failing), ERROR_MEMORY);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(failing.Live(), 0);
    }
}

}  // namespace
