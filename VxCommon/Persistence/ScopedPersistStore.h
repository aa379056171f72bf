#pragma once
// A view of a store that confines its user to one scope.

#include <VxCommon/Persistence/IPersistStore.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Puts "/" and the scope's name in front of every path, as it stands: "/settings.xml" in scope "Laser" is the item
/// "/Laser/settings.xml" of the store underneath, so paths should begin with "/". Copies refer to the same store.
class VXCOMMON_API ScopedPersistStore final : public IPersistStore
{
public:
    /// `store` must outlive the view and its copies.
    ScopedPersistStore(IPersistStore& store, const std::string& scope);

    /// As the store's own, with paths relative to the scope; an empty path lists the whole scope at every depth.
    std::vector<std::string> List(const std::string& path, bool recursive) const override;
    std::vector<std::uint8_t> Read(const std::string& path) const override;
    void Write(const std::string& path, const std::uint8_t* data, std::size_t size) override;
    void Delete(const std::string& path) override;
    bool Exists(const std::string& path) const override;

    /// Removes the items below the scope; an item whose path is the scope itself stays.
    void Clear() override;

private:
    IPersistStore* store_;
    std::string prefix_;
};

}  // namespace VxCommon
