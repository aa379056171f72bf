// Holds docs/embedding.md and its example equal: every block of code on the page is a piece of Tests/Consumer. Only the
// indentation may differ.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace
{

std::string WithoutIndentation(const std::string& line)
{
    return line.substr(std::min(line.find_first_not_of(" \t"), line.size())) + "\n";
}

/// The blocks of code, by the number of the line before them.
std::map<int, std::string> BlocksOf(const std::filesystem::path& page)
{
    std::ifstream file(page);
    std::map<int, std::string> blocks;
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const std::string text = WithoutIndentation(line);
        if (text.starts_with("```")) {
            inside = !inside;
            if (inside) {
                blocks[number] = "\n";  // A piece begins where a line does.
            }
        } else if (inside) {
            blocks.rbegin()->second += text;
        }
    }
    EXPECT_FALSE(inside) << "the last block has no end";
    return blocks;
}

std::string AllFilesOf(const std::filesystem::path& folder)
{
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        all += "\n--- " + entry.path().string() + "\n";
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            all += WithoutIndentation(line);
        }
    }
    return all;
}

TEST(EmbeddingGuideTest, EveryBlockIsAPieceOfTheExample)
{
    const std::map<int, std::string> blocks = BlocksOf(VX_EMBEDDING_GUIDE);
    const std::string example = AllFilesOf(VX_EXAMPLE);
    EXPECT_GE(blocks.size(), 10U);
    for (const auto& [line, code] : blocks) {
        EXPECT_GT(code.size(), 1U) << "The block at line " << line << " is empty.";
        EXPECT_NE(example.find(code), std::string::npos)
            << VX_EMBEDDING_GUIDE << ":" << line << " is not a piece of any file in " << VX_EXAMPLE << ":" << code;
    }
}

}  // namespace
