#include "ProblemSources.h"

#include <net/if.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include <Nucleo/Format.h>
#include <VxCommon/Persistence/PersistUtils.h>

namespace VxHost
{
namespace
{

namespace fs = std::filesystem;
using VxCommon::PersistDomain;

constexpr VcProblemSeverity potential = VcProblemSeverity_Potential;
constexpr VcProblemSeverity blocking = VcProblemSeverity_Blocking;

template <class... Args>
std::string Text(const char* format, const Args&... args)
{
    return Nucleo::Print(format, Nucleo::MakeFormatArgs(args...));
}

/// What to tell of a file that could not be used at start, while there is something to be told.
std::optional<Finding> Tell(const VxCommon::PersistManager& manager,
                            const VxCommon::PersistManager::FileTrouble& trouble)
{
    const char* const state = trouble.unread ? "could not be read" : "was damaged";
    if (trouble.held) {
        return Finding{
            blocking, "Start",
            Text("The file %s %s at start (%s) and cannot be set aside: what it should hold is in memory only.",
                 trouble.file, state, trouble.reason)};
    }
    if (trouble.keptAs.empty()) {
        return Finding{potential, "Start",
                       Text("The file %s %s at start (%s), and what it held could not be kept.", trouble.file, state,
                            trouble.reason)};
    }
    if (manager.FileExists(trouble.keptAs)) {
        return Finding{
            potential, "Start",
            Text("The file %s %s at start; what it held is kept as %s.", trouble.file, state, trouble.keptAs)};
    }
    return std::nullopt;
}

}  // namespace

std::vector<std::string> DownInterfaces(const fs::path& folder)
{
    std::vector<std::string> down;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        unsigned flags = 0;
        unsigned carrier = 1;
        std::ifstream(at->path() / "flags") >> std::hex >> flags;
        // An interface that is switched off cannot be asked for its carrier.
        if ((flags & IFF_UP) != 0 && (flags & IFF_LOOPBACK) == 0 && std::ifstream(at->path() / "carrier") >> carrier &&
            carrier == 0) {
            down.push_back(at->path().filename());
        }
    }
    std::sort(down.begin(), down.end());
    return down;
}

ProblemSource StorageProblems(StorageLimits limits, std::function<double()> use)
{
    return [limits, use = std::move(use)] {
        constexpr const char* text = "The storage of the data folder is more than %u %% full.";
        std::vector<Finding> findings;
        const double percent = use();
        if (percent > limits.blocking) {
            findings.push_back({blocking, "Storage", Text(text, limits.blocking)});
        } else if (percent > limits.warning) {
            findings.push_back({potential, "Storage", Text(text, limits.warning)});
        }
        return findings;
    };
}

ProblemSource SaveProblems(const VxCommon::PersistManager& manager, const AutoSaveWatch& watch)
{
    return [&manager, &watch] {
        constexpr std::size_t maxItems = 100;  // Of a domain: a list that is longer helps nobody.
        std::vector<Finding> findings;
        for (const PersistDomain domain : {PersistDomain::GLOBAL, PersistDomain::WORKSPACE, PersistDomain::JOB}) {
            const std::string name = VxCommon::PersistDomain_Name(domain);
            if (watch.FailedSaves(domain) > 0) {
                findings.push_back({blocking, "Auto-save", Text("The %s domain cannot be saved.", name)});
            }
            std::vector<std::string> items = manager.UnkeptItems(domain);
            items.resize(std::min(items.size(), maxItems));
            for (const std::string& item : items) {
                findings.push_back({potential, "Auto-save",
                                    Text("The item '%s' of %s is not saved: no image can keep its path.",
                                         VxCommon::PersistUtils::PrintablePath(item), name)});
            }
        }
        return findings;
    };
}

ProblemSource StartProblems(const VxCommon::PersistManager& manager, StartReport report)
{
    return [&manager, report = std::move(report)]() mutable {
        std::vector<Finding> findings;
        for (const auto& trouble : manager.FileTroubles()) {
            if (auto finding = Tell(manager, trouble)) {
                findings.push_back(std::move(*finding));
            }
        }
        if (manager.IsRecordUnwritten()) {
            findings.push_back({blocking, "Start",
                                Text("%s cannot be written: which job is the default one is in memory only.",
                                     VxCommon::PersistManager::PERSIST_RECORD_FILE)});
        }
        for (const std::string& copy : report.wholeCopies) {
            if (manager.FileExists(copy)) {
                findings.push_back({potential, "Start",
                                    Text("The file %s, which could not be read at an earlier start, is whole. To bring "
                                         "it back, stop vxhost and rename it to %s.",
                                         copy, VxCommon::NodeStorage::StripExtension(copy))});
            }
        }
        if (!manager.LoadedJob().empty() || manager.DefaultJob() != report.failedJob) {
            report.failedJob.clear();  // Settled, whatever comes later.
        }
        if (!report.failedJob.empty()) {
            findings.push_back({potential, "Start",
                                Text("The default job %s could not be loaded at start (%s); the factory job runs.",
                                     report.failedJob, report.failedJobReason)});
        }
        return findings;
    };
}

std::vector<Finding> NetworkProblems()
{
    std::vector<Finding> findings;
    for (const std::string& interface : DownInterfaces()) {
        findings.push_back({potential, "Network", Text("The interface %s is down.", interface)});
    }
    return findings;
}

}  // namespace VxHost
