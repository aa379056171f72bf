// What a running vxhost says of the machine, held against what the kernel says to the test: /metrics, and the page
// /metrics/prometheus as it is read by the parser of the Python client and by a real server.

#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <stdexcept>

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

/// Samples by name and labels: {"a_total": {"{\"core\":\"0\"}": 1.5}}.
json Parse(const TemporaryFolder& folder, const std::string& page)
{
    WriteFile(folder.Path() / "page", page);
    WriteFile(folder.Path() / "read.py", R"(
import json, sys
from prometheus_client.openmetrics.parser import text_string_to_metric_families
samples = {}
for family in text_string_to_metric_families(open(sys.argv[1], encoding="utf-8", newline="").read()):
    for sample in family.samples:
        values = samples.setdefault(sample.name, {})
        labels = json.dumps(sample.labels, sort_keys=True, separators=(",", ":"))
        assert labels not in values, (sample.name, labels)
        values[labels] = sample.value
print(json.dumps(samples))
)");
    // The system's own Python: the packages are installed for that one.
    const std::string output = RunCommand(folder.Path().string(), "/usr/bin/python3 -I read.py page");
    json samples = json::parse(output, nullptr, false);
    if (!samples.is_object()) {
        throw std::runtime_error("the parser said:\n" + output);
    }
    return samples;
}

/// As the parser's samples have them.
std::string Labels(const json& labels)
{
    return labels.dump();
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
    VxTestSupport::EventReader notices(host.Port(), "/notifications?path=/metrics");
    for (int i = 0; i < 2; ++i) {  // The second report is one with rates, and by then every node has made one.
        ASSERT_TRUE(notices.Next());
    }
    EXPECT_EQ(host.Get("/none").status, 404);
    const json earlier = host.Get("/status").Json();
    const HttpReply reply = host.Get(pagePath);
    const json later = host.Get("/status").Json();
    ASSERT_EQ(reply.status, 200) << reply.body;
    EXPECT_EQ(reply.Header("Content-Type"), "application/openmetrics-text; version=1.0.0; charset=utf-8");
    const json samples = Parse(folder, reply.body);

    EXPECT_EQ(samples.at("vx_build_info"), (json{{Labels({{"version", VxHost::Version}}), 1}}));
    EXPECT_EQ(samples.at("vx_controller_info"), (json{{Labels({{"application", "PixoraFirmware"},
                                                               {"controller_type", "virtual"},
                                                               {"address", "127.0.0.1"},
                                                               {"control_port", "0"},
                                                               {"web_port", std::to_string(host.Port())}}),
                                                       1}}));
    EXPECT_GE(samples.at("process_start_time_seconds").at("{}"), before);
    EXPECT_LE(samples.at("process_start_time_seconds").at("{}"), after);

    // The machine: /proc says the same, or more by now.
    const std::string stat = ReadFile("/proc/stat");
    const std::size_t cores = samples.at("vx_cpu_load_ratio").size();
    EXPECT_NE(stat.find("cpu" + std::to_string(cores - 1)), std::string::npos);
    EXPECT_EQ(stat.find("cpu" + std::to_string(cores)), std::string::npos) << "none is left out";
    std::istringstream core(stat.substr(stat.find("cpu0 ") + 5));
    const std::vector<double> ticks{std::istream_iterator<double>(core), {}};
    const double idle = samples.at("vx_cpu_seconds_total").at(Labels({{"core", "0"}, {"mode", "idle"}}));
    const double now = (ticks.at(3) + ticks.at(4)) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    EXPECT_LE(idle, now + 1) << "idle time may be counted back a little";
    EXPECT_GE(idle, now - 60);
    for (const json& load : samples.at("vx_cpu_load_ratio")) {
        EXPECT_TRUE(load >= 0 && load <= 1) << load;
    }
    std::ifstream memory("/proc/meminfo");
    std::string word;
    double kibibytes = 0;
    memory >> word >> kibibytes;
    EXPECT_EQ(samples.at("vx_memory_capacity_bytes").at("{}"), kibibytes * 1024) << word;
    EXPECT_LT(samples.at("vx_memory_used_bytes").at("{}"), kibibytes * 1024);
    struct statvfs root;
    ASSERT_EQ(::statvfs("/", &root), 0);
    EXPECT_EQ(samples.at("vx_storage_capacity_bytes").at(Labels({{"volume", "/"}})), root.f_blocks * root.f_frsize);

    const json metrics = host.Get("/metrics").Json();
    EXPECT_EQ(metrics.at("cpuCores").size(), cores);
    EXPECT_LE(metrics.at("cpuAverage"), metrics.at("cpuMax"));
    EXPECT_EQ(metrics.at("storageVolumes").at(0).at("capacity"), root.f_blocks * root.f_frsize);
    EXPECT_EQ(metrics.at("networkInterfaces").size(),
              samples.value("vx_network_receive_bytes_total", json::object()).size());

    EXPECT_EQ(samples.at("vx_node_online").size(), 3U);
    for (const json& age : samples.at("vx_node_report_age_seconds")) {
        EXPECT_TRUE(age >= 0 && age <= 60) << age;
    }
    EXPECT_EQ(samples.at("vx_node_report_age_seconds").size(), 3U);
    EXPECT_EQ(samples.at("vx_health_indicator")
                  .at(Labels({{"id", "2004"}, {"instance", "0"}, {"name", "Veloxa/MemoryCapacity"}})),
              kibibytes * 1024);

    EXPECT_TRUE(VxTestSupport::Eventually([&] {  // A line that was just logged is in the next report.
        const json log = host.Get("/health/sets/0?firstId=21300&lastId=21300").Json().at("indicators");
        return log.at(0).at("value") == host.Get("/status").Json().at("publicLogLastId");
    }));
    EXPECT_EQ(earlier.at("droppedHealthMessages"), 0);

    // What the host counts.
    const json& logs = samples.at("vx_log_entries_total");
    for (const auto& [log, id] : {std::pair("public", "publicLogLastId"), std::pair("private", "privateLogLastId")}) {
        EXPECT_GE(logs.at(Labels({{"log", log}})), earlier.at(id));
        EXPECT_LE(logs.at(Labels({{"log", log}})), later.at(id));
    }
    const double requests = samples.at("vx_http_requests_total").at("{}");
    EXPECT_EQ(requests, earlier.at("requests").get<double>() + 1);
    EXPECT_EQ(later.at("requests"), requests + 1);
    // This request itself has no answer yet, and notice streams do not count.
    const json& answers = samples.at("vx_http_answers_total");
    EXPECT_EQ(answers, (json{{Labels({{"class", "2xx"}}), requests - 3},
                             {Labels({{"class", "4xx"}}), 1},
                             {Labels({{"class", "5xx"}}), 0}}));
    EXPECT_EQ(samples.at("vx_http_request_duration_seconds_count").at("{}"), requests - 2);
    EXPECT_GT(samples.at("vx_http_request_duration_seconds_sum").at("{}"), 0);
    EXPECT_GE(samples.at("vx_http_connections").at("{}"), 1);
}

/// A monitoring server that collects a host's page every second.
class Collector
{
public:
    Collector(const fs::path& folder, std::uint16_t target)
        : process_({"prometheus", "--config.file=" + WriteConfiguration(folder, target),
                    "--storage.tsdb.path=" + (folder / "store").string(), "--web.listen-address=127.0.0.1:0"})
    {}

    /// Waits until a query has one value and `isRight` takes it.
    bool Await(const std::string& query, const std::function<bool(double)>& isRight)
    {
        return VxTestSupport::Eventually(
            [&] {
                const json results = Query(query).value("/data/result"_json_pointer, json::array());
                return results.size() == 1 && isRight(std::stod(results[0].at("value").at(1).get<std::string>()));
            },
            std::chrono::seconds(60));
    }

    std::string Log() const { return process_.Errors(); }

private:
    static std::string WriteConfiguration(const fs::path& folder, std::uint16_t target)
    {
        WriteFile(folder / "config.yml",
                  "global:\n  scrape_interval: 1s\nscrape_configs:\n  - job_name: vxhost\n    metrics_path: " +
                      std::string(pagePath) +
                      "\n    static_configs:\n      - targets: [\"127.0.0.1:" + std::to_string(target) + "\"]\n");
        return folder / "config.yml";
    }

    /// An empty document while it does not answer.
    json Query(const std::string& query)
    {
        const std::string said = "msg=\"Listening on\" address=127.0.0.1:";
        const std::string log = Log();
        const std::size_t at = log.find(said);
        if (at == std::string::npos || log.find('\n', at) == std::string::npos) {
            return json::object();
        }
        const auto port = static_cast<std::uint16_t>(std::stoul(log.substr(at + said.size(), 6)));
        const HttpReply reply = VxTestSupport::HttpRequest(port, "GET", "/api/v1/query?query=" + query);
        return reply.status == 200 ? reply.Json() : json::object();
    }

    ChildProcess process_;
};

TEST(PrometheusEndToEndTest, AServerCollectsThePage)
{
    const TemporaryFolder folder;
    const HostProcess host(folder.Path() / "data");
    Collector collector(folder.Path(), host.Port());
    EXPECT_TRUE(collector.Await("up", [](double value) { return value == 1; })) << collector.Log();
    const json samples = Parse(folder, host.Get(pagePath).body);
    const double own = samples.at("vx_memory_capacity_bytes").at("{}");
    EXPECT_TRUE(collector.Await("vx_memory_capacity_bytes", [own](double value) { return value == own; }));
    EXPECT_TRUE(collector.Await("vx_http_request_duration_seconds_count", [](double value) { return value > 1; }))
        << "it comes back";
}

}  // namespace
}  // namespace VxHostTest
