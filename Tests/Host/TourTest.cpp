// Replays what README.md and docs/rest.md show against fresh vxhosts, and holds the tables of docs/rest.md against one.
//
// A tour is in the fenced blocks that begin with "```sh tour". A line that begins with "$ " is a command, the lines
// after it, up to the next command, are its output, in which "..." stands for anything. Commands that end or start
// vxhost are never given to a shell, where they would meet other processes: the test does them to its own. Each command
// has a shell of its own; variables that a page sets are set in all that follow.

#include <fnmatch.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
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

/// Replays a page; answers what was done to vxhost by the test instead of a shell.
std::string Replay(const std::string& page)
{
    const VxTestSupport::TemporaryFolder folder;
    std::filesystem::current_path(folder.Path());  // The options of a vxhost name files as the page does.
    std::optional<HostProcess> host(std::in_place, "data");
    std::string done;
    std::string variables;
    const std::vector<Step> steps = ReadTour(page);
    for (const Step& step : steps) {
        std::string output;
        if (step.command.find("kill") != std::string::npos) {
            host->WaitUntilSaved();
            host->Kill();
            done += "kill, ";
        } else if (step.command.starts_with("scripts/run")) {
            host.emplace("data", ArgumentsOf(step.command));
            output = host->ReadyLine();
            done += "start, ";
        } else if (std::regex_match(step.command, std::regex("[A-Z]+=\\S+"))) {
            variables += step.command + "\n";
        } else {
            output = WithoutEndOfLine(RunCommand(folder.Path().string(), OnPort(*host, variables + step.command)));
        }
        const std::string expected = WithoutEndOfLine(OnPort(*host, step.expected));
        EXPECT_TRUE(Matches(expected, output)) << page << ":" << step.line << ": " << step.command << "\nshown:\n"
                                               << expected << "\nbut it answers:\n"
                                               << output;
    }
    std::filesystem::current_path("/");
    EXPECT_GT(steps.size(), 18U) << page;
    return done;
}

TEST(TourTest, ReadmeShowsWhatReadersGet)
{
    EXPECT_EQ(Replay(VX_README), "kill, start, ");
}

TEST(TourTest, RestPageShowsWhatReadersGet)
{
    EXPECT_EQ(Replay(VX_REST_PAGE), "kill, start, ");
}

/// The paths of the page's tables with their methods; keys are names in angle brackets.
std::map<std::string, std::string> ReadPaths()
{
    std::ifstream page(VX_REST_PAGE);
    const std::regex row(R"(\| (`/[^|]*) \| ([A-Z, ]+) \|.*)");
    const std::regex path("`([^`]*)`");
    std::map<std::string, std::string> paths;
    std::smatch cells;
    for (std::string line; std::getline(page, line);) {
        if (std::regex_match(line, cells, row)) {
            const std::string first = cells[1];
            for (std::sregex_iterator at(first.begin(), first.end(), path), end; at != end; ++at) {
                paths[(*at)[1]] = cells[2];
            }
        }
    }
    return paths;
}

TEST(TourTest, TablesOfTheRestPageNameEveryPathWithItsMethods)
{
    const VxTestSupport::TemporaryFolder folder;
    const HostProcess host(folder.Path() / "data");
    ASSERT_EQ(host.Post("/jobs/commands/save", R"({"name":"A"})").status, 204);
    const std::map<std::string, std::string> paths = ReadPaths();
    std::vector<std::regex> rows;
    for (const auto& [path, methods] : paths) {
        SCOPED_TRACE(path);
        rows.emplace_back(std::regex_replace(path, std::regex("<[a-z]+>"), "[^/]+"));
        std::string one = path;
        for (const auto& [key, value] : {std::pair{"/settings/<name>", "/settings/layout"},
                                         {"/nodes/<id>", "/nodes/100"},
                                         {"/sets/<id>", "/sets/0"},
                                         {"<name>", "A"}}) {
            one = std::regex_replace(one, std::regex(key), value);
        }
        const std::string allowed = "OPTIONS, " + std::regex_replace(methods, std::regex("GET"), "GET, HEAD");
        EXPECT_EQ(host.Request("OPTIONS", one).Header("Allow"), allowed);
        for (const char* method : {"GET", "HEAD", "PUT", "PATCH", "POST", "DELETE"}) {
            if (allowed.find(method) == std::string::npos) {
                const auto refused = host.Request(method, one);
                EXPECT_EQ(refused.status, 405) << method;
                EXPECT_EQ(refused.Header("Allow"), allowed) << method;
            }
        }
        if (methods.starts_with("GET")) {
            EXPECT_EQ(host.Request("HEAD", one).status, 200);
        }
    }
    std::vector<std::string> found{"/"};
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_TRUE(
            std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return std::regex_match(found[i], row); }))
            << found[i] << " is in no table";
        if (found[i] == "/notifications") {
            continue;  // Which does not end.
        }
        const auto document = nlohmann::json::parse(host.Get(found[i]).body, nullptr, false);
        const nlohmann::json links = document.is_object() ? document.at("_links") : nlohmann::json::object();
        for (const auto& link : links.value("item", nlohmann::json::array())) {
            found.push_back(link.at("href"));
        }
    }
    EXPECT_GT(found.size(), 15U);
}

}  // namespace
}  // namespace VxHostTest
