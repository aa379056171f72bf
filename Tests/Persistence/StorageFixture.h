#pragma once
// What the tests of storage and manager stand on: a virtual system whose one node keeps its files in memory.

#include <gmock/gmock.h>

#include <Tests/Persistence/FakeHandler.h>
#include <VxCommon/Persistence/PersistUtils.h>
#include <VxCommon/TesselSystem/TesselSystem.h>
#include <VxTestSupport/TestSystem.h>

namespace VxCommon
{

using VxTestSupport::FileOp;

class StorageFixture : public testing::Test
{
protected:
    std::string Text(const std::string& file) const
    {
        const auto bytes = files_.Get(file);
        return bytes ? std::string(bytes->begin(), bytes->end()) : "(missing)";
    }

    void RemoveFiles()
    {
        for (const std::string& name : files_.Names()) {
            files_.Remove(name);
        }
    }

    VxTestSupport::TestSystem platform_;
    VxTestSupport::MemoryStorage& files_ = platform_.Storage();
    TesselSystem system_{Vx::Object<void*>(platform_.NewSystemReference()), &platform_.Node(),
                         IPlatformAttributes::ApplicationType::PixoraFirmware, nullptr};
};

using Map = std::map<std::string, std::string>;

/// A store with these items.
inline PersistStore StoreOf(const Map& items)
{
    PersistStore store;
    for (const auto& [path, text] : items) {
        const Bytes bytes = ToBytes(text);
        store.Write(path, bytes.data(), bytes.size());
    }
    return store;
}

/// The image of a store with these items.
inline Bytes Image(const Map& items)
{
    return PersistUtils::ArchiveStore(StoreOf(items));
}

inline PersistStore Dearchive(const Bytes& image)
{
    return PersistUtils::DearchiveStore(image.data(), image.size());
}

/// The items of a store.
inline Map Items(const IPersistStore& store)
{
    Map items;
    for (const std::string& key : store.List("", true)) {
        const auto bytes = store.Read(key);
        items[key].assign(bytes.begin(), bytes.end());
    }
    return items;
}

inline Map Items(const Bytes& image)
{
    return Items(Dearchive(image));
}

}  // namespace VxCommon
