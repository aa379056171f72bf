#include <gtest/gtest.h>

#include <VxRest/Path.h>

namespace
{

namespace Path = VxRest::Path;

TEST(Path, FormatPutsEncodedValuesInThePlaceOfKeys)
{
    EXPECT_EQ(Path::Format("/jobs/files/:jobFile/data", "a b/c%"), "/jobs/files/a%20b%2Fc%25/data");
    EXPECT_EQ(Path::Format("/:a/x/:b", std::vector<std::string_view>{"1", "2"}), "/1/x/2");
    EXPECT_EQ(Path::Format("/:a/:b", "1"), "/1/:b");
    EXPECT_EQ(Path::Format("/x/a:b", "1"), "/x/a:b");
}

TEST(Path, EveryByteComesBack)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const std::string encoded = Path::Encode(all);
    EXPECT_EQ(Path::Decode(encoded), all);
    EXPECT_EQ(encoded.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~%"),
              std::string::npos);
    EXPECT_EQ(Path::Decode("a+b%2a%2A"), "a+b**");
    for (const char* broken : {"%", "a%2", "%zz", "%2g", "%%20"}) {
        EXPECT_EQ(Path::Decode(broken), std::nullopt) << broken;
    }
}

TEST(Path, IsWithinComparesWholeDecodedSegments)
{
    const std::pair<const char*, const char*> within[] = {
        {"", "/jobs"}, {"/", "/"}, {"/jobs/", "//jobs//files"}, {"/files/a b", "/files/a%20b/data"}};
    for (const auto& [root, path] : within) {
        EXPECT_TRUE(Path::IsWithin(root, path)) << root << " " << path;
    }
    EXPECT_FALSE(Path::IsWithin("/jobs", "/jobs2"));
    EXPECT_FALSE(Path::IsWithin("/jobs/files", "/jobs"));
    EXPECT_EQ(Path::Segments("//a/%2F//b/"), (std::vector<std::string_view>{"a", "%2F", "b"}));
}

}  // namespace
