#include <algorithm>
#include <limits>
#include <random>
#include <string>
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

/// Character by character over a 16-bit accumulator.
std::string PlainDecode(const std::string& text)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint16_t bits = 0;
    for (unsigned pending = 0; const char character : text.substr(0, text.find_first_of(std::string("=\0", 2)))) {
        const std::size_t found = alphabet.find(character);
        const int value = found == std::string::npos ? 0 : static_cast<int>(found);
        bits = static_cast<std::uint16_t>(bits << 6 | value);
        pending += 6;
        if (pending >= 8) {
            pending -= 8;
            bytes += static_cast<char>(bits >> pending);
        }
    }
    return bytes;
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

TEST(VcBase64Test, LenientAsCharacterByCharacter)
{
    for (const std::string text :
         {"T", "=", "=TQ", "T=Q", "TWFu\n", "T Q", "TW\xC3\xA9u", "-_-_", "\xFF\x80\xFF\x80"}) {
        EXPECT_EQ(Decode(text), PlainDecode(text)) << text;
    }
    std::mt19937 random(1);
    for (std::size_t length = 0; length < 200; ++length) {
        std::string bytes(length, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        const std::string text = Encode(bytes);
        ASSERT_EQ(Decode(text), bytes) << length;
        ASSERT_EQ(PlainDecode(text), bytes) << length;
        std::replace(bytes.begin(), bytes.end(), '=', '\x80');  // Any bytes as a text, but for what ends it.
        std::replace(bytes.begin(), bytes.end(), '\0', '\xFF');
        ASSERT_EQ(Decode(bytes), PlainDecode(bytes)) << length;
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
