#include "StateLoader.h"

#include <set>

#include <Nucleo/XmlDocument.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxApi/TimeService.h>
#include <VxCommon/Persistence/PersistUtils.h>

namespace VxHost
{
namespace
{

using Vx::Logging::Level;
using VxCommon::PersistDomain;
using VxCommon::PersistManager;

constexpr const char* category = "Start";

void InitManager(PersistManager& manager)
{
    for (int attempt = 1;; ++attempt) {
        try {
            manager.Init();
            return;
        } catch (const std::exception& exception) {
            if (attempt == PersistManager::ReadAttempts || !PersistManager::MayPass(exception)) {
                Vx::LogException(VX_HERE, exception);
                manager.InitWithoutRecord(exception);
                return;
            }
        }
        Vx::TimeService::Current().Sleep(PersistManager::ReadPause);
    }
}

template <class Load>
void LoadDomain(PersistDomain domain, AutoSaveWatch& watch, Load load)
{
    try {
        load();
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Error, category, "The %s domain starts with defaults (%s).",
                            VxCommon::PersistDomain_Name(domain), exception.what());
        watch.Expect(domain);
    }
}

void TellOfTroubles(const PersistManager& manager, AutoSaveWatch& watch)
{
    for (const PersistManager::FileTrouble& trouble : manager.FileTroubles()) {
        const char* const state = trouble.unread ? "cannot be read" : "is damaged";
        const char* const instead = trouble.file == PersistManager::PERSIST_RECORD_FILE ? "no job is the default one"
                                                                                        : "defaults take its place";
        if (trouble.held) {
            Vx::Logging::Public(Level::Error, category,
                                "The file %s %s (%s) and could not be set aside: %s, in memory only until it can.",
                                trouble.file, state, trouble.reason, instead);
        } else if (trouble.keptAs.empty()) {
            Vx::Logging::Public(Level::Error, category, "The file %s %s (%s) and could not be kept: %s.", trouble.file,
                                state, trouble.reason, instead);
        } else {
            Vx::Logging::Public(Level::Error, category, "The file %s %s (%s): %s. What it held is kept as %s.",
                                trouble.file, state, trouble.reason, instead, trouble.keptAs);
            if (trouble.unread && trouble.file == PersistManager::PERSIST_RECORD_FILE) {
                watch.Expect(PersistDomain::GLOBAL);  // Its info names the copy.
            }
        }
    }
}

/// Whether the diagnosis copy of a file of `domain` or of the persist record holds all that was written.
bool IsWhole(const PersistManager& manager, PersistDomain domain, const std::string& copy)
{
    try {
        const std::vector<unsigned char> bytes = manager.FileData(copy);
        if (copy.starts_with(PersistManager::PERSIST_RECORD_FILE)) {
            Nucleo::XmlDocument document;
            VX_CHECK(document.Parse(std::string(bytes.begin(), bytes.end())));
            VX_CHECK(document.Child(document.Root(), "DefaultJob") ? Nucleo::OK : Nucleo::ERROR_NOT_FOUND);
        } else {
            DomainInfo::Check(domain, VxCommon::PersistUtils::DearchiveStore(bytes.data(), bytes.size()));
        }
        return true;
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Info, "The file %s, set aside unread, is not whole (%s).", copy, exception.what());
        return false;
    }
}

/// Looks again at what an earlier start set aside unread.
std::vector<std::string> FindWholeCopies(const PersistManager& manager, DomainInfo& info)
{
    std::vector<std::string> whole;
    for (const PersistDomain domain : {PersistDomain::GLOBAL, PersistDomain::WORKSPACE}) {
        std::set<std::string> copies = info.Unread(domain);
        std::erase_if(copies, [&manager](const std::string& copy) { return !manager.FileExists(copy); });
        for (const std::string& copy : copies) {
            if (IsWhole(manager, domain, copy)) {
                Vx::Logging::Public(Level::Warning, category,
                                    "The file %s, which could not be read at an earlier start, is whole.", copy);
                whole.push_back(copy);
            }
        }
        info.SetUnread(domain, std::move(copies));
    }
    return whole;
}

}  // namespace

StartReport LoadState(PersistManager& manager, DomainInfo& info, AutoSaveWatch& watch)
{
    InitManager(manager);
    LoadDomain(PersistDomain::GLOBAL, watch, [&] { manager.LoadGlobal(); });
    LoadDomain(PersistDomain::WORKSPACE, watch, [&] { manager.LoadWorkspace(); });
    TellOfTroubles(manager, watch);
    StartReport report;
    try {
        manager.LoadDefaultJob();
    } catch (const std::exception& exception) {
        report.failedJob = manager.DefaultJob();
        report.failedJobReason = Nucleo::StatusText(Vx::StatusOf(exception));
        Vx::Logging::Public(Level::Error, category, "The default job is not loaded, the factory job is (%s).",
                            exception.what());
    }
    report.wholeCopies = FindWholeCopies(manager, info);
    return report;
}

}  // namespace VxHost
