#include <VxCommon/Persistence/ScopedPersistStore.h>

namespace VxCommon
{

ScopedPersistStore::ScopedPersistStore(IPersistStore& store, const std::string& scope)
    : store_(&store), prefix_("/" + scope)
{}

std::vector<std::string> ScopedPersistStore::List(const std::string& path, bool recursive) const
{
    std::vector<std::string> keys = store_->List(prefix_ + path, recursive || path.empty());
    for (std::string& key : keys) {
        // By the set of the prefix's characters, not by the prefix as a text: 0 for every key that begins with "/".
        const std::size_t position = key.find_first_of(prefix_);
        const std::size_t cut = position == std::string::npos ? key.size() : position + prefix_.size();
        key.erase(0, cut);
    }
    return keys;
}

std::vector<std::uint8_t> ScopedPersistStore::Read(const std::string& path) const
{
    return store_->Read(prefix_ + path);
}

void ScopedPersistStore::Write(const std::string& path, const std::uint8_t* data, std::size_t size)
{
    store_->Write(prefix_ + path, data, size);
}

void ScopedPersistStore::Delete(const std::string& path)
{
    store_->Delete(prefix_ + path);
}

bool ScopedPersistStore::Exists(const std::string& path) const
{
    return store_->Exists(prefix_ + path);
}

void ScopedPersistStore::Clear()
{
    for (const std::string& key : store_->List(prefix_, true)) {
        store_->Delete(key);
    }
}

}  // namespace VxCommon
