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

protected:
    Record() = default;
    ~Record() = default;
    Record(const Record&) = default;
    Record& operator=(const Record&) = default;

    /// Replaces the content by that of an image of `size` bytes. When the image cannot be read the content stays.
    void LoadImage(const unsigned char* data, unsigned long long size);

private:
    PersistStore store_;
};

}  // namespace VxCommon::Persist
