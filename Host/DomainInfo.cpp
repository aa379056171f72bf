#include "DomainInfo.h"

#include <ctime>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <Nucleo/Clock.h>
#include <VxApi/Exception.h>

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

std::size_t CountItems(const VxCommon::IPersistStore& store)
{
    return store.List("", true).size();
}

}  // namespace

void DomainInfo::Begin(PersistDomain domain, VxCommon::IPersistStore& store)
{
    Write(store, 0);
    const Nucleo::MutexGuard guard(mutex_);
    saves_.at(Index(domain)) = 0;
    begun_.at(Index(domain)) = true;
}

void DomainInfo::Save(PersistDomain domain, VxCommon::IPersistStore& store)
{
    const std::uint64_t saves = Saves(domain) + 1;
    Write(store, saves);
    const Nucleo::MutexGuard guard(mutex_);
    saves_.at(Index(domain)) = saves;
}

void DomainInfo::Load(PersistDomain domain, const VxCommon::IPersistStore& store)
{
    std::uint64_t saves = 0;
    if (store.Exists(Item)) {
        const std::vector<std::uint8_t> bytes = store.Read(Item);
        const nlohmann::json info = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
        const auto number = [&info, domain](const char* name) {
            const auto found = info.is_object() ? info.find(name) : info.end();
            if (found == info.end() || !found->is_number_unsigned()) {
                VX_THROW(Nucleo::ERROR_FORMAT, "%s of the %s store is no JSON object with a whole number \"%s\".", Item,
                         VxCommon::PersistDomain_Name(domain), name);
            }
            return found->get<std::uint64_t>();
        };
        const std::uint64_t items = number("items");
        saves = number("saves");
        if (const std::size_t found = CountItems(store); found < items) {
            VX_THROW(Nucleo::ERROR_FORMAT, "The %s store is damaged: %llu of its %llu items are left.",
                     VxCommon::PersistDomain_Name(domain), found, items);
        }
    } else if (domain != PersistDomain::JOB) {
        VX_THROW(Nucleo::ERROR_FORMAT, "The %s store is damaged or was not written by vxhost: it has no %s.",
                 VxCommon::PersistDomain_Name(domain), Item);
    }
    const Nucleo::MutexGuard guard(mutex_);
    saves_.at(Index(domain)) = saves;
    begun_.at(Index(domain)) = false;
}

std::uint64_t DomainInfo::Saves(PersistDomain domain) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return saves_.at(Index(domain));
}

bool DomainInfo::HasBegun(PersistDomain domain) const
{
    const Nucleo::MutexGuard guard(mutex_);
    return begun_.at(Index(domain));
}

void DomainInfo::Write(VxCommon::IPersistStore& store, std::uint64_t saves) const
{
    const std::size_t items = CountItems(store) + (store.Exists(Item) ? 0 : 1);
    const std::string text = nlohmann::json({{"program", "vxhost"},
                                             {"version", Version},
                                             {"items", items},
                                             {"saves", saves},
                                             {"savedAt", TimeText(Nucleo::DateTime_Now())}})
                                 .dump();
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    store.Write(Item, bytes.data(), bytes.size());
}

}  // namespace VxHost
