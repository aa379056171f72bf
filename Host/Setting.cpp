#include "Setting.h"

#include <utility>
#include <vector>

#include <VxApi/Exception.h>
#include <VxApi/JsonSerializer.h>
#include <VxApi/Locker.h>

namespace VxHost
{
namespace
{

// What a setting takes is some hundred bytes; an item of another size is none of ours.
constexpr std::size_t maxItemSize = 1 << 20;

constexpr Vx::Params::UpdateOptions restoring{.includeReadOnly = true, .lenient = true};

}  // namespace

Setting::Setting(std::string name, VxCommon::PersistDomain domain, SettingFactory factory,
                 VxCommon::PersistManager& manager)
    : name_(std::move(name)), domain_(domain), factory_(factory), manager_(manager), group_(factory_())
{
    registration_ = manager_.RegisterHandler(*this, name_);
}

Setting::~Setting()
{
    manager_.UnregisterHandler(registration_);
}

nlohmann::json Setting::Document() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return Vx::Params::NodeToJson(*group_);
}

nlohmann::json Setting::Schema() const
{
    return factory_()->Schema();
}

void Setting::Update(const nlohmann::json& document)
{
    const Vx::Locker locker(manager_.GetLock());
    bool changed = false;
    {
        const Nucleo::MutexGuard guard(mutex_);
        const nlohmann::json before = Vx::Params::NodeToJson(*group_);
        auto next = factory_();
        Vx::Params::Update(*next, before, restoring);
        Vx::Params::Update(*next, document);
        next->CheckTogether();
        if (Vx::Params::NodeToJson(*next) != before) {
            group_ = std::move(next);
            ++revision_;
            changed = true;
        }
        if (revision_ == savedRevision_) {
            return;
        }
    }
    if (changed) {
        changed_.Raise();  // First, since the values stand whatever becomes of handing them over.
    }
    manager_.NotifyChange(*this, domain_);
}

void Setting::Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store)
{
    if (domain == domain_) {
        Replace(factory_());
        Save(domain, store);
    }
}

void Setting::Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store)
{
    if (domain != domain_) {
        return;
    }
    if (!store.Exists(Item)) {
        Init(domain, store);
        return;
    }
    Replace(Read(store));
}

void Setting::Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store)
{
    if (domain != domain_) {
        return;
    }
    std::string text;
    std::uint64_t revision = 0;
    {
        const Nucleo::MutexGuard guard(mutex_);
        text = Vx::Properties::ToJsonText({{"version", ItemVersion}, {"values", Vx::Params::NodeToJson(*group_)}});
        revision = revision_;
    }
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    store.Write(Item, bytes.data(), bytes.size());
    const Nucleo::MutexGuard guard(mutex_);
    savedRevision_ = revision;
}

std::unique_ptr<SettingGroup> Setting::Read(const VxCommon::IPersistStore& store) const
{
    const std::vector<std::uint8_t> bytes = store.Read(Item);
    if (bytes.size() > maxItemSize) {
        VX_THROW(Nucleo::ERROR_LIMIT, "The stored setting '%s' has %llu bytes, more than %llu.", name_, bytes.size(),
                 maxItemSize);
    }
    const nlohmann::json item = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
    const auto version = item.is_object() ? item.find("version") : item.end();
    const auto values = item.is_object() ? item.find("values") : item.end();
    if (version == item.end() || !version->is_number_unsigned() || values == item.end() || !values->is_object()) {
        VX_THROW(Nucleo::ERROR_FORMAT, "The stored setting '%s' is no JSON object with \"version\" and \"values\".",
                 name_);
    }
    if (version->get<std::uint64_t>() > ItemVersion) {
        VX_THROW(Nucleo::ERROR_UNSUPPORTED, "The stored setting '%s' is of version %llu, which is newer than %llu.",
                 name_, version->get<std::uint64_t>(), ItemVersion);
    }
    auto group = factory_();
    Vx::Params::Update(*group, *values, restoring);
    group->CheckTogether();
    return group;
}

void Setting::Replace(std::unique_ptr<SettingGroup> group)
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        const bool same = Vx::Params::NodeToJson(*group) == Vx::Params::NodeToJson(*group_);
        group_ = std::move(group);
        savedRevision_ = revision_;
        if (same) {
            return;
        }
    }
    changed_.Raise();
}

}  // namespace VxHost
