#include <Host/MachineCounters.h>

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/ScopedClock.h>
#include <VxTestSupport/TemporaryFolder.h>

namespace VxHostTest
{
namespace
{

using testing::ElementsAre;
using VxHost::MachineCounters;
using VxHost::MachineReading;
namespace fs = std::filesystem;

std::string CoresIn(std::string_view text)
{
    std::string shown;
    for (const VxHost::CoreTimes& core : VxHost::ParseCoreTimes(text)) {
        shown += std::to_string(core.core) + ":" + std::to_string(core.busy) + "/" + std::to_string(core.idle) + " ";
    }
    return shown;
}

std::string InterfacesIn(std::string_view text)
{
    std::string shown;
    for (const VxHost::InterfaceBytes& interface : VxHost::ParseInterfaceBytes(text)) {
        shown += interface.name + ":" + std::to_string(interface.received) + "/" + std::to_string(interface.sent) + " ";
    }
    return shown;
}

TEST(ProcTextTest, WhatIsNotUnderstoodIsPassedOver)
{
    const struct
    {
        std::string (*shown)(std::string_view);
        std::string_view text;
        const char* expected;
    } cases[] = {
        {&CoresIn, "cpu  9 9 9 9\ncpu0 1 2 3 4 5 6 7 8 90 100\ncpu2 1 0 0 2\nintr 4 5\n", "0:27/9 2:1/2 "},
        {&CoresIn, "cpu0 1 2 3", ""},
        {&CoresIn, "cpu1 1 2 3 4 x 6", "1:6/4 "},
        {&CoresIn, "cpux 1 2 3 4\ncpu 1 2 3 4\ncpu-1 1 2 3 4\ncpu99999999999 1 2 3 4\nccpu0 1 2 3 4\n", ""},
        {&CoresIn, "cpu0 18446744073709551616 2 3 4", ""},
        {&CoresIn, std::string_view("\0\n\xFF cpu0\n\n   \ncpu7 1 1 1 1", 26), "7:3/1 "},
        {&CoresIn, "", ""},
        {&InterfacesIn,
         "Inter-|   Receive    |  Transmit\n face |bytes    packets |bytes    packets\n"
         "    lo: 10 0 0 0 0 0 0 0 20 0 0 0 0 0 0 0\n  eth0:30 1 2 3 4 5 6 7 40\n",
         "lo:10/20 eth0:30/40 "},
        {&InterfacesIn, "eth0: 1 2 3 4 5 6 7 8\n", ""},
        {&InterfacesIn, "eth0: 1 2 3 4 5 6 7 8 -9\neth1 1 2 3 4 5 6 7 8 9\n: 1 2 3 4 5 6 7 8 9\n", ""},
        {&InterfacesIn, "a\xFF: 1 2 3 4 5 6 7 8 9", "a\xFF:1/9 "},
        {&InterfacesIn, "\n:\n::\n", ""},
    };
    for (const auto& [shown, text, expected] : cases) {
        EXPECT_EQ(shown(text), expected) << text;
    }
}

class MachineCountersTest : public testing::Test
{
protected:
    void Write(const fs::path& file, const std::string& text) const
    {
        fs::create_directories((folder.Path() / file).parent_path());
        std::ofstream(folder.Path() / file) << text;
    }

    /// An interface as the kernel describes it.
    void Link(const std::string& name, const char* flags, const char* carrier, const char* speed) const
    {
        Write("net/" + name + "/flags", flags);
        Write("net/" + name + "/carrier", carrier);
        Write("net/" + name + "/speed", speed);
    }

    static std::string Dev(const char* name, std::uint64_t received, std::uint64_t sent)
    {
        return std::string(name) + ": " + std::to_string(received) + " 0 0 0 0 0 0 0 " + std::to_string(sent) + "\n";
    }

    std::vector<std::uint64_t> Loads()
    {
        std::vector<std::uint64_t> loads;
        for (const VxHost::CoreReading& core : counters.Read().cores) {
            loads.push_back(core.load);
        }
        return loads;
    }

    /// Name, rate in and rate out of each interface, `seconds` later.
    std::vector<std::string> Rates(double seconds)
    {
        now += static_cast<std::uint64_t>(seconds * 1e6);
        clock.SetTimer(now);
        std::vector<std::string> rates;
        for (const VxHost::InterfaceReading& interface : counters.Read().interfaces) {
            rates.push_back(interface.name + " " + std::to_string(interface.rxRate) + " " +
                            std::to_string(interface.txRate));
        }
        return rates;
    }

    VxTestSupport::TemporaryFolder folder;
    VxTestSupport::ScopedClock clock;
    VxTestSupport::ScopedLogCapture log;
    std::uint64_t now = 1'000'000;
    MachineCounters counters{{.stat = folder.Path() / "stat",
                              .netDev = folder.Path() / "dev",
                              .interfaces = folder.Path() / "net",
                              .volumes = {folder.Path(), folder.Path() / "missing", folder.Path(), "/proc"}}};
};

TEST_F(MachineCountersTest, LoadIsThatSinceTheReadingBefore)
{
    const struct
    {
        const char* stat;
        std::vector<std::uint64_t> loads;
    } readings[] = {
        {"cpu0 30 0 0 70\ncpu1 0 0 0 0\n", {30, 0}},         // Since boot.
        {"cpu0 31 0 0 71\ncpu1 9 0 0 0\n", {50, 100}},       //
        {"cpu0 31 0 0 71\ncpu1 9 0 0 8\n", {50, 0}},         // Core 0 has not ticked.
        {"cpu0 32 0 0 70\n", {100}},                         // Idle time that shrinks; core 1 is switched off.
        {"cpu0 33 0 0 73\ncpu1 1 0 0 1\n", {33, 50}},        // Core 1 begins anew.
        {"cpu1 1 0 0 2\ncpu0 33 0 0 73\nrubbish", {33, 0}},  // In any order.
        {"", {}},
    };
    double idle = 0;
    for (const auto& [stat, loads] : readings) {
        Write("stat", stat);
        EXPECT_EQ(Loads(), loads) << stat;
        for (const VxHost::CoreReading& core : counters.Read().cores) {
            if (core.number == 0) {  // It stays on: its time never goes backwards.
                EXPECT_GE(core.idleSeconds, std::exchange(idle, core.idleSeconds)) << stat;
            }
        }
    }
}

TEST_F(MachineCountersTest, RatesAreThoseOfTheTimeThatWentBy)
{
    Link("lo", "0x9\n", "1\n", "");
    Write("dev", Dev("lo", 5, 5) + Dev("a", 1000, 500));
    EXPECT_THAT(Rates(1), ElementsAre("a 0 0")) << "nothing to compare with";
    Write("dev", Dev("a", 2000, 500) + Dev("b", 77, 88));
    EXPECT_THAT(Rates(0.5), ElementsAre("a 2000 0", "b 0 0")) << "b is new";
    EXPECT_THAT(Rates(0), ElementsAre("a 2000 0", "b 0 0")) << "no time went by";
    Write("dev", Dev("b", 377, 0) + Dev("a", 100, 900));
    EXPECT_THAT(Rates(2), ElementsAre("b 150 0", "a 0 200")) << "counters that went backwards";
    Write("dev", Dev("a", 0xFFFFFFFFFFFFFFFF, 0));
    EXPECT_THAT(Rates(1e-6), ElementsAre("a 1000000000000000000 0"));
}

TEST_F(MachineCountersTest, LinksAreAsTheKernelDescribesThem)
{
    const struct
    {
        const char* name;
        const char* flags;
        const char* carrier;  // What reading it gives; none when it is switched off or the driver does not know.
        const char* speed;
        bool up;
        std::uint64_t capacity;
    } links[] = {{"wire", "0x1003\n", "1\n", "2500\n", true, 2'500'000'000},
                 {"unplugged", "0x1003\n", "0\n", "-1\n", false, 0},
                 {"off", "0x1002\n", "", "", false, 0},
                 {"vague", "0x1003\n", "", "4294967295000000\n", true, 0},
                 {"rubbish", "none\n", "x\n", "fast\n", false, 0}};
    std::string dev;
    for (const auto& link : links) {
        Link(link.name, link.flags, link.carrier, link.speed);
        dev += Dev(link.name, 1, 2);
    }
    Write("dev", dev + Dev("gone", 1, 2));
    const auto interfaces = counters.Read().interfaces;
    ASSERT_EQ(interfaces.size(), std::size(links) + 1);
    EXPECT_FALSE(interfaces.back().up) << "an interface that nobody describes";
    for (std::size_t i = 0; i < std::size(links); ++i) {
        EXPECT_EQ(interfaces[i].name, links[i].name);
        EXPECT_EQ(interfaces[i].up, links[i].up) << links[i].name;
        EXPECT_EQ(interfaces[i].capacity, links[i].capacity) << links[i].name;
    }
}

TEST_F(MachineCountersTest, WhatCannotBeReadStaysAndIsToldOnce)
{
    Write("stat", "cpu0 1 0 0 1\n");
    Write("dev", Dev("a", 1, 1));
    const MachineReading before = counters.Read();
    EXPECT_EQ(before.volumes.size(), 2U) << "one for each device";
    fs::remove(folder.Path() / "stat");
    fs::remove(folder.Path() / "dev");
    fs::create_directory(folder.Path() / "dev");
    counters.Read();
    const MachineReading after = counters.Read();
    EXPECT_EQ(after.cores.size(), 1U);
    EXPECT_EQ(after.interfaces.size(), 1U);
    EXPECT_GT(after.memoryCapacity, after.memoryUsed);
    const std::string text = " cannot be read; what it says of the machine is missing.";
    const std::string place = "W " + folder.Path().string();
    EXPECT_THAT(log.Texts(), ElementsAre(place + "/missing" + text, place + "/stat" + text, place + "/dev" + text));
}

}  // namespace
}  // namespace VxHostTest
