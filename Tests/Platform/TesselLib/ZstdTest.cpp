#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include <TesselLib/Zstd.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/Streams.h>

using namespace Nucleo::Statuses;
using TesselLib::ZstdMode;
using TesselLib::ZstdStream;
using VxTestSupport::PieceStream;

namespace
{

/// Numbers that compress by about half.
std::string Sample(std::size_t size)
{
    std::minstd_rand random(7);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random() % 16); });
    return bytes;
}

std::string Compress(const std::string& bytes, int level, std::size_t piece = 1 << 20)
{
    PieceStream target({});
    Nucleo::Handle<ZstdStream> stream;
    EXPECT_EQ(ZstdStream_Construct(stream.Receive(), target, ZstdMode::Write, level), OK);
    for (std::size_t i = 0; i < bytes.size(); i += piece) {
        EXPECT_EQ(stream->Write(bytes.data() + i, std::min(piece, bytes.size() - i)), OK);
    }
    EXPECT_EQ(stream->Finish(), OK);
    EXPECT_EQ(stream->Write("x", 1), ERROR_STATE);
    EXPECT_EQ(stream->Finish(), ERROR_STATE);
    return target.Content();
}

/// Reads to the end; `*bytes` are those that came before it.
Nucleo::Status Decompress(const std::string& image, std::string* bytes, std::size_t minimum = 1,
                          std::size_t maximum = 4096)
{
    const auto source = VxTestSupport::StreamOf(image);
    Nucleo::Handle<ZstdStream> stream;
    EXPECT_EQ(ZstdStream_Construct(stream.Receive(), *source, ZstdMode::Read, 0), OK);
    Nucleo::Status status = OK;
    std::size_t count = 0;
    bytes->clear();
    while (status == OK) {
        std::string part(maximum, '\0');
        status = stream->Read(part.data(), minimum, maximum, &count);
        EXPECT_TRUE(status != OK || count >= minimum);
        bytes->append(part, 0, count);
    }
    char byte = 0;
    EXPECT_EQ(stream->Read(&byte, 1, 1, &count), status) << "an end is an end";
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(stream->Finish(), OK);
    return status;
}

TEST(ZstdTest, GivesBackWhatWasWritten)
{
    std::string back;
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 1'000'003U}) {
        const std::string bytes = Sample(size);
        const std::string image = Compress(bytes, 10);
        EXPECT_EQ(image, Compress(bytes, 10));
        for (const auto& [minimum, maximum] : {std::pair{1U, 4096U}, {4096, 4096}, {1, 1 << 20}, {100, 131'072}}) {
            EXPECT_EQ(Decompress(image, &back, minimum, maximum), ERROR_END);
            EXPECT_EQ(back, bytes) << size << " " << minimum << " " << maximum;
        }
    }
    EXPECT_EQ(Decompress(Compress(Sample(10'000), 1, 1), &back, 1, 1), ERROR_END);
    EXPECT_EQ(back, Sample(10'000));
    EXPECT_LT(Compress(std::string(100'000, 'x'), 22).size(), 100u);
    EXPECT_EQ(Decompress(Compress("12", 3) + Compress("3", 3), &back), ERROR_END);
    EXPECT_EQ(back, "123");
}

TEST(ZstdTest, DamageIsFoundAndWhatCameBeforeItIsDelivered)
{
    const std::string bytes = Sample(3000);
    const std::string image = Compress(bytes, 10);
    std::string back;
    for (std::size_t length = 1; length < image.size(); ++length) {
        EXPECT_EQ(Decompress(image.substr(0, length), &back, 1, 100), ERROR_FORMAT) << length;
        EXPECT_EQ(bytes.compare(0, back.size(), back), 0) << length;
        EXPECT_TRUE(back == bytes || length < image.size() - 4) << "only the checksum is cut";
    }
    for (std::size_t i = 0; i < image.size(); ++i) {
        std::string flipped = image;
        flipped[i] = static_cast<char>(flipped[i] ^ 0x10);
        const Nucleo::Status status = Decompress(flipped, &back);
        EXPECT_TRUE(back == bytes || status == ERROR_FORMAT || status == ERROR_LIMIT) << i << " passed as whole";
    }
    EXPECT_EQ(Decompress({}, &back), ERROR_END);
    EXPECT_EQ(Decompress("no frame", &back), ERROR_FORMAT);
    const std::string hugeWindow("\x28\xB5\x2F\xFD\0\xA8\1\0\0", 9);  // 2 GiB of memory
    EXPECT_EQ(Decompress(hugeWindow, &back), ERROR_LIMIT);
    EXPECT_TRUE(back.empty());

    // Blocks are of 128 KiB: a fourth one of no known kind leaves three, however much is asked for at once.
    const std::string large = Sample(4 * 131'072);
    std::string damaged = Compress(large, 10);
    std::size_t block = 6;  // behind the frame's header
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(damaged[block + i]); };
    for (int i = 0; i < 3; ++i) {
        block += 3 + (static_cast<std::size_t>(byte(0) | byte(1) << 8 | byte(2) << 16) >> 3);
    }
    damaged[block] = static_cast<char>(damaged[block] | 0x06);
    for (const std::size_t maximum : {4096U, 1U << 20}) {
        EXPECT_EQ(Decompress(damaged, &back, 1, maximum), ERROR_FORMAT);
        EXPECT_EQ(back, large.substr(0, 3 * 131'072));
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
    }
}

}  // namespace
