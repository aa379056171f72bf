#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <VxCommon/VcLib/VcBase64.h>
#include <VxTestSupport/FailingAllocator.h>

using namespace Nucleo::Statuses;

namespace
{

using ByteList = Nucleo::ArrayList<std::uint8_t>;

// Both work on exact copies on the heap: the sanitizers see a read of one byte too many.

std::string Encode(const std::string& bytes)
{
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    Nucleo::Handle<Nucleo::String> text;
    EXPECT_EQ(VcBase64_Encode(exact.data(), exact.size(), text.Receive(), nullptr), OK);
    return text ? std::string(text->View()) : "nothing";
}

std::string Decode(const std::string& text)
{
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    Nucleo::Handle<ByteList> list;
    EXPECT_EQ(VcBase64_Decode(exact.data(), list.Receive(), nullptr), OK);
    return list ? std::string(list->Items().begin(), list->Items().end()) : "nothing";
}

TEST(VcBase64Test, KnownTexts)
{
    const std::pair<std::string, std::string> known[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [bytes, text] : known) {
        EXPECT_EQ(Encode(bytes), text);
        EXPECT_EQ(Decode(text), bytes);
        EXPECT_EQ(Decode(text.substr(0, text.find('='))), bytes) << "without padding";
        EXPECT_EQ(Decode(text + "=" + text), bytes) << "behind the end";
    }
}

TEST(VcBase64Test, CharactersThatAreNoneCountAsZeroBits)
{
    const std::pair<std::string, std::string> known[] = {
        {"T", ""}, {"=", ""}, {"=TQ", ""}, {"T=Q", ""}, {"TWFu\n", "Man"}};
    for (const auto& [text, bytes] : known) {
        EXPECT_EQ(Decode(text), bytes) << text;
    }
    std::mt19937 random(1);
    std::string bytes;
    for (std::size_t length = 0; length < 200; ++length) {
        std::string text = Encode(bytes);
        ASSERT_EQ(Decode(text), bytes) << length;
        text.resize((length * 8 + 5) / 6);  // Without padding, and at each place something else in the place of an "A".
        for (char& character : text) {
            const char kept = std::exchange(character, 'A');
            const std::string zeroed = Decode(text);
            for (const char other : {'\x80', '\n', '-', '_', ' ', '\xFF', '@', '['}) {
                character = other;
                ASSERT_EQ(Decode(text), zeroed) << length;
            }
            character = kept;
        }
        bytes += static_cast<char>(random());
    }
}

TEST(VcBase64Test, TakesItsOutputAtOnceAndSurvivesEachFailure)
{
    const std::vector<std::uint8_t> bytes(100'000, 'x');
    const std::string text = Encode(std::string(bytes.begin(), bytes.end()));
    for (int failing = 0; failing < 3; ++failing) {  // the object, its content
        const Nucleo::Status expected = failing < 2 ? ERROR_MEMORY : OK;
        VxTestSupport::FailingAllocator forText(failing);
        VxTestSupport::FailingAllocator forBytes(failing);
        {
            Nucleo::Handle<Nucleo::String> encoded;
            Nucleo::Handle<ByteList> decoded;
            EXPECT_EQ(VcBase64_Encode(bytes.data(), bytes.size(), encoded.Receive(), &forText), expected);
            EXPECT_EQ(VcBase64_Decode(text.c_str(), decoded.Receive(), &forBytes), expected);
            EXPECT_TRUE(static_cast<bool>(encoded) == (expected == OK) &&
                        static_cast<bool>(decoded) == (expected == OK));
        }
        EXPECT_EQ(forText.Live() + forBytes.Live(), 0);
    }
    Nucleo::Handle<Nucleo::String> none;
    EXPECT_EQ(VcBase64_Encode(nullptr, std::numeric_limits<std::size_t>::max(), none.Receive(), nullptr), ERROR_MEMORY);
    EXPECT_EQ(VcBase64_Encode(nullptr, 0, none.Receive(), nullptr), OK);
}

}  // namespace
