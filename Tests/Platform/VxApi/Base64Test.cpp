#include <numeric>

#include <gtest/gtest.h>

#include <VxApi/Base64.h>

namespace Vx
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

TEST(Base64, WritesTheKnownTextsAndReadsEveryLength)
{
    const std::pair<std::string_view, const char*> known[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [plain, text] : known) {
        const Bytes bytes(plain.begin(), plain.end());
        EXPECT_EQ(Base64Encode(bytes), text);
        EXPECT_EQ(Base64Decode(text), bytes);
    }
    Bytes bytes(300);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    for (; !bytes.empty(); bytes.pop_back()) {
        ASSERT_EQ(Base64Decode(Base64Encode(bytes)), bytes) << bytes.size();
    }
}

// All texts of up to five characters over the kinds of characters there are.
TEST(Base64, TakesExactlyWhatItWrites)
{
    const std::string kinds = "AQ/= \n";
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string text = texts[i];
        std::size_t position = 99;
        const auto bytes = Base64Decode(text, &position);
        if (bytes) {
            EXPECT_EQ(Base64Encode(*bytes), text);
            EXPECT_EQ(position, 99u);
        } else {
            EXPECT_LE(position, text.size()) << text;
        }
        for (std::size_t k = 0; text.size() < 5 && k < kinds.size(); ++k) {
            texts.push_back(text + kinds[k]);
        }
    }
}

TEST(Base64, NamesTheFirstBadCharacter)
{
    const std::pair<std::string_view, std::size_t> bad[] = {
        {"A", 1},        {"AAA", 3},      {"AAAAA", 5},    {"=", 0},         {"A===", 1},
        {"AQ=A", 3},     {"AQ==AQ==", 4}, {"AAAA=AAA", 4}, {"AAA=AAAA", 4},  {"AR==", 1},
        {"AR", 2},       {"AAAAAAF=", 6}, {"AAAAAQ=", 7},  {"AQ==\n", 4},    {"AAAA AAA", 4},
        {"AAAA-AA_", 4}, {"AAA\xC3", 3},  {"A!A!A!", 1},   {{"AA\0A", 4}, 2}};
    for (const auto& [text, position] : bad) {
        std::size_t found = 99;
        EXPECT_EQ(Base64Decode(text, &found), std::nullopt) << text;
        EXPECT_EQ(found, position) << text;
    }
    EXPECT_EQ(Base64Decode("?"), std::nullopt);
}

}  // namespace
}  // namespace Vx
