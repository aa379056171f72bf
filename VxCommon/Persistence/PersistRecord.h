#pragma once
// What the in-memory records of the three domains have in common: one store, and its image.

#include <vector>

#include <VxCommon/Persistence/PersistStore.h>

namespace VxCommon::Persist
{

/// Base of Global, Workspace and Job. Copies are deep. Not locked.
class VXCOMMON_API Record
{
public:
    /// Removes every item.
    void Clear() { store_.Clear(); }

    /// The record's store itself. It stays the same object through every Load: only its content is replaced.
    IPersistStore& GetStore() { return store_; }

    /// The image of the whole store, see PersistUtils::ArchiveStore.
    std::vector<unsigned char> Save() const;

    /// The paths that Save leaves out because no image can keep them, in byte order.
    std::vector<std::string> UnkeptPaths() const;

    /// Replaces the content by that of an image of `size` bytes. An empty or damaged image gives an empty or partial
    /// content; only one that is cut inside an entry throws, and then the content stays.
    void Load(const unsigned char* data, unsigned long long size);

protected:
    Record() = default;
    ~Record() = default;
    Record(const Record&) = default;
    Record& operator=(const Record&) = default;

private:
    PersistStore store_;
};

}  // namespace VxCommon::Persist
