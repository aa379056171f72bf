// The health of a running vxhost, held against what the kernel says to the test.

#include <sys/statvfs.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include <VxTestSupport/Gate.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;

std::size_t CountCores()
{
    std::size_t count = 0;
    std::ifstream stat("/proc/stat");
    for (std::string line; std::getline(stat, line);) {
        count += line.starts_with("cpu") && !line.starts_with("cpu ") ? 1 : 0;
    }
    return count;
}

std::uint64_t MemoryTotal()
{
    std::ifstream info("/proc/meminfo");
    std::string word;
    std::uint64_t kilobytes = 0;
    info >> word >> kilobytes;
    return kilobytes * 1024;
}

/// Received bytes of all interfaces but "lo", in the kernel's order.
std::vector<std::uint64_t> ReceivedBytes()
{
    std::vector<std::uint64_t> bytes;
    std::ifstream dev("/proc/net/dev");
    std::string line;
    std::getline(dev, line);
    std::getline(dev, line);
    while (std::getline(dev, line)) {
        std::replace(line.begin(), line.end(), ':', ' ');
        std::istringstream words(line);
        std::string name;
        std::uint64_t received = 0;
        if (words >> name >> received && name != "lo") {
            bytes.push_back(received);
        }
    }
    return bytes;
}

TEST(HealthEndToEndTest, MetricsAreTheMachinesOwn)
{
    const VxTestSupport::TemporaryFolder folder;
    const auto before = ReceivedBytes();
    const HostProcess host(folder.Path() / "data", {"--nodes", "1"});
    VxTestSupport::EventReader notices(host.Port(), "/notifications?path=/metrics");
    for (int i = 0; i < 2; ++i) {  // The second report is one with rates.
        ASSERT_TRUE(notices.Next());
    }
    const json metrics = host.Get("/metrics").Json();
    const auto after = ReceivedBytes();
    EXPECT_EQ(metrics.at("cpuCores").size(), CountCores());
    EXPECT_LE(metrics.at("cpuAverage"), metrics.at("cpuMax"));
    EXPECT_LE(metrics.at("cpuMax"), 100);
    const json& interfaces = metrics.at("networkInterfaces");
    ASSERT_EQ(interfaces.size(), before.size());
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        EXPECT_GE(interfaces[i].at("rxBytes"), before[i]) << metrics;
        EXPECT_LE(interfaces[i].at("rxBytes"), after[i]) << metrics;
    }
    const json schema = host.Get("/metrics?schema=true").Json().at("_schema").at("properties");
    EXPECT_EQ(schema.at("cpuCores").at("items").at("properties").at("value").at("type"), "integer");
    struct statvfs root;
    ASSERT_EQ(::statvfs("/", &root), 0);
    EXPECT_EQ(metrics.at("storageVolumes").at(0).at("capacity"), root.f_blocks * root.f_frsize);

    const json memory = host.Get("/health/sets/0?firstId=2004&lastId=2004").Json().at("indicators");
    ASSERT_EQ(memory.size(), 1U);
    EXPECT_EQ(memory[0].at("value"), MemoryTotal());
    EXPECT_TRUE(VxTestSupport::Eventually([&] {  // A line that was just logged is in the next report.
        const json log = host.Get("/health/sets/0?firstId=21300&lastId=21300").Json().at("indicators");
        return log.at(0).at("value") == host.Get("/status").Json().at("publicLogLastId");
    }));
    EXPECT_EQ(host.Request("PATCH", "/health/nodes/100", R"({"reporting": false})").status, 409);
    EXPECT_EQ(host.Get("/status").Json().at("droppedHealthMessages"), 0);
}

}  // namespace
}  // namespace VxHostTest
