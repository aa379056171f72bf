#include "DomainInfo.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <Nucleo/Clock.h>
#include <VxApi/Exception.h>
#include <VxCommon/Persistence/PersistUtils.h>

#include "Version.h"

namespace VxHost
{
namespace
{

using VxCommon::PersistDomain;

std::size_t Index(PersistDomain domain)
{
    return static_cast<std::size_t>(domain);
}

/// "2026-03-01T12:30:00Z"
std::string TimeText(std::uint64_t microseconds)
{
    const auto seconds = static_cast<std::time_t>(microseconds / 1'000'000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

/// How many items an image of the store will hold.
std::size_t CountItems(const VxCommon::IPersistStore& store)
{
    const std::vector<std::string> paths = store.List("", true);
    return static_cast<std::size_t>(std::count_if(paths.begin(), paths.end(), &VxCommon::PersistUtils::IsPathKept));
}

/// Whether a file of this name may be a diagnosis copy of what the manager keeps: "Global.tar.d01".
bool IsCopyName(const std::string& name)
{
    for (const char* file : {VxCommon::Persist::Global::GLOBAL_FILE, VxCommon::Persist::Workspace::WORKSPACE_FILE,
                             VxCommon::PersistManager::PERSIST_RECORD_FILE}) {
        const std::string before = std::string(file) + ".d";
        if (name.starts_with(before) && name.size() == before.size() + 2) {
            return name.find_first_not_of("0123456789", before.size()) == std::string::npos;
        }
    }
    return false;
}

/// The item's object; an empty one when it is missing or no object.
nlohmann::json ReadItem(const VxCommon::IPersistStore& store)
{
    if (!store.Exists(DomainInfo::Item)) {
        return nlohmann::json::object();
    }
    const std::vector<std::uint8_t> bytes = store.Read(DomainInfo::Item);
    nlohmann::json info = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
    return info.is_object() ? info : nlohmann::json::object();
}

}  // namespace

void DomainInfo::Begin(PersistDomain domain, VxCommon::IPersistStore& store)
{
    Write(domain, store, 0);
    const Nucleo::MutexGuard guard(mutex_);
    saves_.at(Index(domain)) = 0;
}

void DomainInfo::Save(PersistDomain domain, VxCommon::IPersistStore& store)
{
    const std::uint64_t saves = Saves(domain) + 1;
    Write(domain, store, saves);
    const Nucleo::MutexGuard guard(mutex_);
    saves_.at(Index(domain)) = saves;
}

void DomainInfo::Load(PersistDomain domain, const VxCommon::IPersistStore& store)
{
    const std::uint64_t saves = Check(domain, store);
    std::set<std::string> unread;
    const nlohmann::json info = ReadItem(store);
    if (const auto found = info.find("unread"); found != info.end() && found->is_array()) {
        for (const nlohmann::json& copy : *found) {
            if (copy.is_string() && IsCopyName(copy.get<std::string>())) {
                unread.insert(copy.get<std::string>());
            }
        }
    }
    const Nucleo::MutexGuard guard(mutex_);
    saves_.at(Index(domain)) = saves;
    unread_.at(Index(domain)) = std::move(unread);
}

std::uint64_t DomainInfo::Check(PersistDomain domain, const VxCommon::IPersistStore& store)
{
    if (!store.Exists(Item)) {
        if (domain != PersistDomain::JOB) {
            VX_THROW(Nucleo::ERROR_FORMAT, "The %s store is damaged or was not written by vxhost: it has no %s.",
                     VxCommon::PersistDomain_Name(domain), Item);
        }
        return 0;
    }
    const nlohmann::json info = ReadItem(store);
    const auto number = [&info, domain](const char* name) {
        const auto found = info.find(name);
        if (found == info.end() || !found->is_number_unsigned()) {
            VX_THROW(Nucleo::ERROR_FORMAT, "%s of the %s store is no JSON object with a whole number \"%s\".", Item,
                     VxCommon::PersistDomain_Name(domain), name);
        }
        return found->get<std::uint64_t>();
    };
    const std::uint64_t items = number("items");
    const std::uint64_t saves = number("saves");
    if (const std::size_t found = CountItems(store); found < items) {
        VX_THROW(Nucleo::ERROR_FORMAT, "The %s store is damaged: %llu of its %llu items are left.",
                 VxCommon::PersistDomain_Name(domain), found, items);
    }
    return saves;
}

std::uint64_t DomainInfo::Saves(PersistDomain domain) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return saves_.at(Index(domain));
}

std::set<std::string> DomainInfo::Unread(PersistDomain domain) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return unread_.at(Index(domain));
}

void DomainInfo::SetUnread(PersistDomain domain, std::set<std::string> copies)
{
    const Nucleo::MutexGuard guard(mutex_);
    unread_.at(Index(domain)) = std::move(copies);
}

std::set<std::string> DomainInfo::AllUnread(PersistDomain domain) const
{
    std::set<std::string> copies = Unread(domain);
    for (const auto& trouble : manager_.FileTroubles()) {
        const bool isWorkspace = trouble.file == VxCommon::Persist::Workspace::WORKSPACE_FILE;
        if (trouble.unread && !trouble.keptAs.empty() && domain != PersistDomain::JOB &&
            isWorkspace == (domain == PersistDomain::WORKSPACE)) {
            copies.insert(trouble.keptAs);
        }
    }
    return copies;
}

void DomainInfo::Write(PersistDomain domain, VxCommon::IPersistStore& store, std::uint64_t saves) const
{
    const std::size_t items = CountItems(store) + (store.Exists(Item) ? 0 : 1);
    nlohmann::json info{{"program", "vxhost"},
                        {"version", Version},
                        {"items", items},
                        {"saves", saves},
                        {"savedAt", TimeText(Nucleo::DateTime_Now())}};
    if (const std::set<std::string> unread = AllUnread(domain); !unread.empty()) {
        info["unread"] = unread;
    }
    const std::string text = info.dump();
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    store.Write(Item, bytes.data(), bytes.size());
}

}  // namespace VxHost
