// The page /metrics/prometheus as those read it who collect it: the parser of the Python client, and a real server.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Host/Version.h>
#include <VxTestSupport/Gate.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;
using VxTestSupport::HttpReply;
using VxTestSupport::TemporaryFolder;
namespace fs = std::filesystem;

constexpr const char* pagePath = "/metrics/prometheus";

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Samples by name and labels: {"a_total": {"{\"core\": \"0\"}": 1.5}}.
json Parse(const TemporaryFolder& folder, const std::string& page)
{
    std::ofstream(folder.Path() / "page", std::ios::binary) << page;
    std::ofstream(folder.Path() / "read.py") << R"(
import json, sys
from prometheus_client.openmetrics.parser import text_string_to_metric_families
samples = {}
for family in text_string_to_metric_families(open(sys.argv[1], encoding="utf-8", newline="").read()):
    for sample in family.samples:
        values = samples.setdefault(sample.name, {})
        labels = json.dumps(sample.labels, sort_keys=True)
        assert labels not in values, (sample.name, labels)
        values[labels] = sample.value
print(json.dumps(samples))
)";
    // The system's own Python: the packages are installed for that one.
    const std::string output = RunCommand(folder.Path().string(), "/usr/bin/python3 -I read.py page");
    json samples = json::parse(output, nullptr, false);
    if (!samples.is_object()) {
        throw std::runtime_error("the parser said:\n" + output);
    }
    return samples;
}

std::string Labels(const json& labels)
{
    std::string text = "{";
    for (const auto& [name, value] : labels.items()) {
        text += (text.size() > 1 ? ", " : "") + json(name).dump() + ": " + value.dump();
    }
    return text + "}";
}

/// Waits until the last of the nodes, and so every one, has reported.
void AwaitReports(const HostProcess& host, std::uint32_t lastNode)
{
    const std::string wanted = "vx_node_report_age_seconds{node=\"" + std::to_string(lastNode) + "\"}";
    const auto reported = [&] { return host.Get(pagePath).body.find(wanted) != std::string::npos; };
    if (!VxTestSupport::Eventually(reported, std::chrono::seconds(60))) {
        throw std::runtime_error("a node does not report");
    }
}

double Now()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

TEST(PrometheusEndToEndTest, ThePageSaysWhatTheMachineAndTheStatusSay)
{
    const TemporaryFolder folder;
    const double before = Now();
    const HostProcess host(folder.Path() / "data", {"--nodes", "2"});
    const double after = Now();
    AwaitReports(host, 102);
    EXPECT_EQ(host.Get("/none").status, 404);
    const json earlier = host.Get("/status").Json();
    const HttpReply reply = host.Get(pagePath);
    const json later = host.Get("/status").Json();
    ASSERT_EQ(reply.status, 200) << reply.body;
    EXPECT_EQ(reply.Header("Content-Type"), "application/openmetrics-text; version=1.0.0; charset=utf-8");
    const json samples = Parse(folder, reply.body);

    EXPECT_EQ(samples.at("vx_build_info"), (json{{Labels({{"version", VxHost::Version}}), 1}}));
    EXPECT_GE(samples.at("process_start_time_seconds").at("{}"), before);
    EXPECT_LE(samples.at("process_start_time_seconds").at("{}"), after);

    // The machine: /proc says the same, or more by now.
    std::size_t cores = 0;
    std::ifstream stat("/proc/stat");
    for (std::string line; std::getline(stat, line);) {
        if (line.starts_with("cpu") && !line.starts_with("cpu ")) {
            const std::string core = line.substr(3, line.find(' ') - 3);
            std::istringstream fields(line.substr(line.find(' ')));
            const std::vector<double> ticks{std::istream_iterator<double>(fields), {}};
            const double idle = samples.at("vx_cpu_seconds_total").at(Labels({{"core", core}, {"mode", "idle"}}));
            const double busy = samples.at("vx_cpu_seconds_total").at(Labels({{"core", core}, {"mode", "busy"}}));
            const double now = (ticks.at(3) + ticks.at(4)) / static_cast<double>(::sysconf(_SC_CLK_TCK));
            EXPECT_LE(idle, now + 1) << "idle time may be counted back a little";
            EXPECT_GE(idle, now - 60);
            EXPECT_GT(busy, 0);
            const double load = samples.at("vx_cpu_load_ratio").at(Labels({{"core", core}}));
            EXPECT_TRUE(load >= 0 && load <= 1) << load;
            ++cores;
        }
    }
    EXPECT_GT(cores, 0U);
    EXPECT_EQ(samples.at("vx_cpu_load_ratio").size(), cores);
    std::ifstream memory("/proc/meminfo");
    std::string word;
    double kibibytes = 0;
    memory >> word >> kibibytes;
    EXPECT_EQ(samples.at("vx_memory_capacity_bytes").at("{}"), kibibytes * 1024) << word;
    EXPECT_LT(samples.at("vx_memory_used_bytes").at("{}"), kibibytes * 1024);
    EXPECT_GT(samples.at("vx_storage_capacity_bytes").at(Labels({{"volume", "/"}})), 0);

    EXPECT_EQ(samples.at("vx_node_online").size(), 3U);
    for (const json& age : samples.at("vx_node_report_age_seconds")) {
        EXPECT_TRUE(age >= 0 && age <= 60) << age;
    }
    EXPECT_EQ(samples.at("vx_node_report_age_seconds").size(), 3U);
    EXPECT_EQ(samples.at("vx_health_indicator")
                  .at(Labels({{"id", "2004"}, {"instance", "0"}, {"name", "Veloxa/MemoryCapacity"}})),
              kibibytes * 1024);

    // What the host counts.
    const json& logs = samples.at("vx_log_entries_total");
    for (const auto& [log, id] : {std::pair("public", "publicLogLastId"), std::pair("private", "privateLogLastId")}) {
        EXPECT_GE(logs.at(Labels({{"log", log}})), earlier.at(id));
        EXPECT_LE(logs.at(Labels({{"log", log}})), later.at(id));
    }
    const double requests = samples.at("vx_http_requests_total").at("{}");
    EXPECT_EQ(requests, earlier.at("requests").get<double>() + 1);
    EXPECT_EQ(later.at("requests"), requests + 1);
    // This request itself has no answer yet.
    const json& answers = samples.at("vx_http_answers_total");
    EXPECT_EQ(answers, (json{{Labels({{"class", "2xx"}}), requests - 2},
                             {Labels({{"class", "4xx"}}), 1},
                             {Labels({{"class", "5xx"}}), 0}}));
    EXPECT_EQ(samples.at("vx_http_request_duration_seconds_count").at("{}"), requests - 1);
    EXPECT_GT(samples.at("vx_http_request_duration_seconds_sum").at("{}"), 0);
    EXPECT_GE(samples.at("vx_http_connections").at("{}"), 1);
}

/// A monitoring server that collects a host's page every second. It ends with the object, and with this process.
class Collector
{
public:
    Collector(const fs::path& folder, std::uint16_t target) : log_(folder / "log")
    {
        std::ofstream(folder / "config.yml")
            << "global:\n  scrape_interval: 1s\nscrape_configs:\n"
            << "  - job_name: vxhost\n    metrics_path: " << pagePath << "\n"
            << "    static_configs:\n      - targets: [\"127.0.0.1:" << target << "\"]\n";
        std::vector<std::string> words = {"setpriv",
                                          "--pdeathsig",
                                          "KILL",
                                          "prometheus",
                                          "--config.file=" + (folder / "config.yml").string(),
                                          "--storage.tsdb.path=" + (folder / "store").string(),
                                          "--web.listen-address=127.0.0.1:0"};
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        const int error = ::posix_spawnp(&process_, "setpriv", &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), "setpriv");
        }
    }
    ~Collector()
    {
        if (process_ != -1) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
        }
    }
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    /// The values of a query by labels "core" and "instance", when there are `count` of them and all are numbers that
    /// `isRight` takes.
    json Await(const std::string& query, std::size_t count, const std::function<bool(double)>& isRight)
    {
        json answer;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < end) {
            if (::waitpid(process_, nullptr, WNOHANG) != 0) {
                process_ = -1;
                throw std::runtime_error("prometheus has ended:\n" + ReadFile(log_));
            }
            answer = Query(query);
            json found;
            for (const json& result : answer.value("/data/result"_json_pointer, json::array())) {
                const double value = std::stod(result.at("value").at(1).get<std::string>());
                if (isRight(value)) {
                    found[Labels({{"core", result.at("metric").value("core", "")},
                                  {"instance", result.at("metric").at("instance")}})] = value;
                }
            }
            if (found.size() == count) {
                return found;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));  // Between two looks at the deadline.
        }
        throw std::runtime_error("the last answer to " + query + " is " + answer.dump() + ":\n" + ReadFile(log_));
    }

private:
    /// Null while it does not answer.
    json Query(const std::string& query)
    {
        const std::string said = "msg=\"Listening on\" address=127.0.0.1:";
        const std::string log = ReadFile(log_);
        const std::size_t at = log.find(said);
        if (at == std::string::npos || log.find('\n', at) == std::string::npos) {
            return json::object();
        }
        const auto port = static_cast<std::uint16_t>(std::stoul(log.substr(at + said.size(), 6)));
        const HttpReply reply = VxTestSupport::HttpRequest(port, "GET", "/api/v1/query?query=" + query);
        return reply.status == 200 ? reply.Json() : json::object();
    }

    const fs::path log_;
    pid_t process_ = -1;
};

TEST(PrometheusEndToEndTest, AServerCollectsThePage)
{
    const TemporaryFolder folder;
    const HostProcess host(folder.Path() / "data");
    Collector collector(folder.Path(), host.Port());
    const std::string instance = "127.0.0.1:" + std::to_string(host.Port());
    EXPECT_EQ(collector.Await("up", 1, [](double value) { return value == 1; }),
              (json{{Labels({{"core", ""}, {"instance", instance}}), 1}}));

    const json samples = Parse(folder, host.Get(pagePath).body);
    const json loads = collector.Await("vx_cpu_load_ratio", samples.at("vx_cpu_load_ratio").size(),
                                       [](double value) { return value >= 0 && value <= 1; });
    for (const auto& [core, load] : samples.at("vx_cpu_load_ratio").items()) {
        EXPECT_TRUE(loads.contains(Labels({{"core", json::parse(core).at("core")}, {"instance", instance}}))) << loads;
    }
    for (const char* name : {"vx_memory_capacity_bytes", "process_start_time_seconds"}) {
        const double own = samples.at(name).at("{}");
        EXPECT_NO_THROW(collector.Await(name, 1, [own](double value) { return value == own; })) << name;
    }
    // It comes back.
    EXPECT_NO_THROW(
        collector.Await("vx_http_request_duration_seconds_count", 1, [](double value) { return value > 1; }));
}

}  // namespace
}  // namespace VxHostTest
