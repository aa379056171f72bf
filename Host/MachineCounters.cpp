#include "MachineCounters.h"

#include <net/if.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <utility>

#include <Nucleo/Clock.h>
#include <VxApi/Logging.h>
#include <VxCommon/TesselSystem/TesselSystem.h>

namespace VxHost
{
namespace
{

namespace fs = std::filesystem;

/// How much a counter has grown; 0 when it went backwards.
std::uint64_t Growth(std::uint64_t before, std::uint64_t now)
{
    return now > before ? now - before : 0;
}

std::uint64_t Percent(std::uint64_t busy, std::uint64_t idle)
{
    const double share = static_cast<double>(busy) / (static_cast<double>(busy) + static_cast<double>(idle));
    return static_cast<std::uint64_t>(std::lround(100.0 * share));
}

/// `bytes` in `microseconds`, which are not 0, as bytes a second; at most 10^18, however wild the counter.
std::uint64_t Rate(std::uint64_t bytes, std::uint64_t microseconds)
{
    const double rate = static_cast<double>(bytes) * 1e6 / static_cast<double>(microseconds);
    return static_cast<std::uint64_t>(std::min(rate, 1e18));
}

/// What the kernel tells of an interface beside its counters.
struct Link
{
    bool loopback = false;
    bool up = false;
    std::uint64_t capacity = 0;
};

Link ReadLink(const fs::path& folder, const std::string& name)
{
    Link link;
    unsigned flags = 0;
    unsigned carrier = 1;
    std::int64_t megabits = 0;
    if (std::ifstream(folder / name / "flags") >> std::hex >> flags) {
        link.loopback = (flags & IFF_LOOPBACK) != 0;
    } else {
        link.loopback = name == "lo";
    }
    // An interface that is switched off cannot be asked for its carrier; one that has no idea of it is up.
    std::ifstream(folder / name / "carrier") >> carrier;
    link.up = (flags & IFF_UP) != 0 && carrier != 0;
    constexpr std::int64_t highest = 1'000'000'000'000;  // What is above is none: -1 without a sign, for example.
    if (std::ifstream(folder / name / "speed") >> megabits && megabits > 0 && megabits < highest) {
        link.capacity = static_cast<std::uint64_t>(megabits) * 1'000'000;
    }
    return link;
}

}  // namespace

MachineCounters::MachineCounters(Places places) : places_(std::move(places)) {}

MachineReading MachineCounters::Read()
{
    ReadCores();
    ReadInterfaces();
    ReadVolumes();
    ReadMemory();
    return reading_;
}

void MachineCounters::Complain(const fs::path& place)
{
    if (complained_.insert(place).second) {
        Vx_Debug_Log(Warning, "%s cannot be read; what it says of the machine is missing.", place.string());
    }
}

std::optional<std::string> MachineCounters::ReadText(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string text;
    char buffer[4096];
    while (stream.read(buffer, sizeof buffer) || stream.gcount() > 0) {
        text.append(buffer, static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.is_open() || stream.bad()) {
        Complain(file);
        return std::nullopt;
    }
    return text;
}

void MachineCounters::ReadCores()
{
    const auto text = ReadText(places_.stat);
    if (!text) {
        return;
    }
    static const double ticksPerSecond = static_cast<double>(::sysconf(_SC_CLK_TCK));
    std::map<std::uint32_t, Core> cores;
    for (const CoreTimes& now : ParseCoreTimes(*text)) {
        const Core then = cores_[now.core];
        const std::uint64_t busy = Growth(then.times.busy, now.busy);
        const std::uint64_t idle = Growth(then.times.idle, now.idle);
        // Nothing new is known after an interval without a tick.
        Core& core = cores[now.core] = {now, busy + idle != 0 ? Percent(busy, idle) : then.load};
        if (now.busy >= then.times.busy) {
            // The kernel may count waiting for devices back a little; who reads a counter must not see that.
            core.times.idle = std::max(now.idle, then.times.idle);
        }
    }
    cores_ = std::move(cores);
    reading_.cores.clear();
    for (const auto& [number, core] : cores_) {
        reading_.cores.push_back({number, core.load, static_cast<double>(core.times.busy) / ticksPerSecond,
                                  static_cast<double>(core.times.idle) / ticksPerSecond});
    }
}

void MachineCounters::ReadInterfaces()
{
    const auto text = ReadText(places_.netDev);
    if (!text) {
        return;
    }
    const std::uint64_t now = Nucleo::UpTime_Now();
    const std::uint64_t elapsed = Growth(trafficTime_, now);
    std::map<std::string, Traffic> traffic;
    reading_.interfaces.clear();
    for (const InterfaceBytes& bytes : ParseInterfaceBytes(*text)) {
        const Link link = ReadLink(places_.interfaces, bytes.name);
        if (link.loopback || traffic.contains(bytes.name)) {
            continue;
        }
        Traffic& added = traffic[bytes.name] = {bytes, 0, 0};
        if (const auto then = traffic_.find(bytes.name); then != traffic_.end()) {
            const Traffic& before = then->second;
            added.receiveRate =
                elapsed != 0 ? Rate(Growth(before.bytes.received, bytes.received), elapsed) : before.receiveRate;
            added.sendRate = elapsed != 0 ? Rate(Growth(before.bytes.sent, bytes.sent), elapsed) : before.sendRate;
        }
        reading_.interfaces.push_back(
            {bytes.name, link.up, link.capacity, bytes.received, bytes.sent, added.receiveRate, added.sendRate});
    }
    traffic_ = std::move(traffic);
    trafficTime_ = now;
}

void MachineCounters::ReadVolumes()
{
    reading_.volumes.clear();
    std::set<dev_t> devices;
    for (const fs::path& path : places_.volumes) {
        struct stat file;
        struct statvfs volume;
        if (::stat(path.c_str(), &file) != 0 || ::statvfs(path.c_str(), &volume) != 0) {
            Complain(path);
        } else if (devices.insert(file.st_dev).second) {
            const std::uint64_t block = volume.f_frsize;
            reading_.volumes.push_back(
                {path.string(), Growth(volume.f_bfree, volume.f_blocks) * block, volume.f_blocks * block});
        }
    }
}

void MachineCounters::ReadMemory()
{
    reading_.memoryCapacity = VxCommon::TesselSystem::MemoryCapacity();
    reading_.memoryUsed = Growth(VxCommon::TesselSystem::MemoryAvailable(), reading_.memoryCapacity);
}

}  // namespace VxHost
