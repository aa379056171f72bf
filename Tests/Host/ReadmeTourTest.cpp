// Replays the tour of README.md against a fresh vxhost: what the page shows is what a reader gets.
//
// The tour is in the fenced blocks that begin with "```sh tour". A line that begins with "$ " is a command, the lines
// after it, up to the next command, are its output, in which "..." stands for anything. Commands that end or start
// vxhost are never given to a shell, where they would meet other processes: the test does them to its own.

#include <fnmatch.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

struct Step
{
    int line;
    std::string command;
    std::string expected;
};

std::vector<Step> ReadTour(const std::string& file)
{
    std::ifstream page(file);
    std::vector<Step> steps;
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(page, line);) {
        ++number;
        if (line.starts_with("```")) {
            inside = line.starts_with("```sh tour");
        } else if (inside && line.starts_with("$ ")) {
            steps.push_back({number, line.substr(2), ""});
        } else if (inside && !steps.empty()) {
            Step& step = steps.back();
            if (step.command.ends_with('\\')) {
                step.command += "\n" + line;
            } else {
                step.expected += line + "\n";
            }
        }
    }
    return steps;
}

/// `text` with the port of this run in place of the page's.
std::string OnPort(const HostProcess& host, const std::string& text)
{
    return std::regex_replace(text, std::regex("127\\.0\\.0\\.1:8080"), "127.0.0.1:" + std::to_string(host.Port()));
}

std::string WithoutEndOfLine(std::string text)
{
    text.erase(text.find_last_not_of("\r\n") + 1);
    return text;
}

/// Whether `text` is what `pattern` says, in which "..." stands for anything.
bool Matches(const std::string& pattern, const std::string& text)
{
    const std::string literal = std::regex_replace(pattern, std::regex(R"([*?[\]\\])"), R"(\$&)");
    return ::fnmatch(std::regex_replace(literal, std::regex(R"(\.\.\.)"), "*").c_str(), text.c_str(), 0) == 0;
}

/// What stands between the program and the "&" at the end.
std::vector<std::string> ArgumentsOf(const std::string& command)
{
    std::istringstream words(command.substr(0, command.rfind('&')));
    return {std::next(std::istream_iterator<std::string>(words)), std::istream_iterator<std::string>()};
}

TEST(ReadmeTourTest, CommandsAnswerAsThePageShows)
{
    const std::vector<Step> steps = ReadTour(VX_README);
    const VxTestSupport::TemporaryFolder folder;
    std::optional<HostProcess> host(std::in_place, folder.Path() / "data");
    std::string done;  // By the test instead of a shell.
    for (const Step& step : steps) {
        std::string output;
        if (step.command.find("kill") != std::string::npos) {
            host->WaitUntilSaved();
            host->Kill();
            done += "kill, ";
        } else if (step.command.starts_with("scripts/run")) {
            host.emplace(folder.Path() / "data", ArgumentsOf(step.command));
            output = host->ReadyLine();
            done += "start";
        } else {
            output = WithoutEndOfLine(RunCommand(folder.Path().string(), OnPort(*host, step.command)));
        }
        const std::string expected = WithoutEndOfLine(OnPort(*host, step.expected));
        EXPECT_TRUE(Matches(expected, output)) << "line " << step.line << ": " << step.command << "\nshown:\n"
                                               << expected << "\nbut it answers:\n"
                                               << output;
    }
    EXPECT_GT(steps.size(), 18U);
    EXPECT_EQ(done, "kill, start");
}

}  // namespace
}  // namespace VxHostTest
