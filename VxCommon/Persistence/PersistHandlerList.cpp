#include <algorithm>

#include <VxCommon/Persistence/PersistHandlerList.h>

namespace VxCommon
{

PersistHandlerList::PersistHandlerList(const PersistHandlerList& other)
{
    for (const auto& record : other.records_) {
        auto copy = std::make_shared<Handler>(*record);
        copy->saving.clear();  // A save that is under way is the other list's.
        copy->renotified.clear();
        records_.push_back(std::move(copy));
    }
}

PersistHandlerList& PersistHandlerList::operator=(const PersistHandlerList& other)
{
    if (this != &other) {
        PersistHandlerList copy(other);
        records_.swap(copy.records_);
    }
    return *this;
}

void* PersistHandlerList::Add(IPersistHandler& handler, const std::string& name)
{
    auto record = std::make_shared<Handler>();
    record->handler = &handler;
    record->name = name;
    return records_.emplace_back(std::move(record)).get();
}

bool PersistHandlerList::Remove(const void* handle)
{
    const auto found =
        std::find_if(records_.begin(), records_.end(), [handle](const auto& record) { return record.get() == handle; });
    if (found == records_.end()) {
        return false;
    }
    (*found)->registered = false;
    records_.erase(found);
    return true;
}

std::vector<PersistHandlerList::HandlerInfo> PersistHandlerList::ListRegistered() const
{
    std::vector<HandlerInfo> infos;
    infos.reserve(records_.size());
    for (const auto& record : records_) {
        infos.push_back({record->handler, record->name, record->changed, record->load});
    }
    return infos;
}

PersistHandlerList::Handler* PersistHandlerList::Find(const IPersistHandler& handler)
{
    const auto found = std::find_if(records_.begin(), records_.end(),
                                    [&handler](const auto& record) { return record->handler == &handler; });
    return found != records_.end() ? found->get() : nullptr;
}

bool PersistHandlerList::IsRegistered(const IPersistHandler& handler) const
{
    return std::any_of(records_.begin(), records_.end(),
                       [&handler](const auto& record) { return record->handler == &handler; });
}

std::set<std::string> PersistHandlerList::ChangedNames(PersistDomain domain) const
{
    std::set<std::string> names;
    for (const auto& record : records_) {
        if (!record->name.empty() && IsDomainChanged(*record, domain)) {
            names.insert(record->name);
        }
    }
    return names;
}

bool PersistHandlerList::IsChanged(PersistDomain domain) const
{
    return std::any_of(records_.begin(), records_.end(),
                       [domain](const auto& record) { return IsDomainChanged(*record, domain); });
}

bool PersistHandlerList::IsLoad(PersistDomain domain) const
{
    return std::any_of(records_.begin(), records_.end(),
                       [domain](const auto& record) { return IsDomainLoad(*record, domain); });
}

void PersistHandlerList::SetDomainChanged(Handler& record, PersistDomain domain, bool changed)
{
    if (changed) {
        record.changed.insert(domain);
    } else {
        record.changed.erase(domain);
    }
}

void PersistHandlerList::SetDomainLoad(Handler& record, PersistDomain domain, bool load)
{
    if (load) {
        record.load.insert(domain);
    } else {
        record.load.erase(domain);
    }
}

}  // namespace VxCommon
