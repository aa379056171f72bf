#pragma once
// The in-memory image of one persistence domain: a flat, ordered collection of byte blobs.

#include <map>
#include <string_view>
#include <utility>

#include <VxCommon/Persistence/IPersistStore.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Paths are kept exactly as given, a leading "/" included, and come out in byte order. There are no directories: a
/// path's segments only say what lies below what. Copies are deep.
class VXCOMMON_API PersistStore final : public IPersistStore
{
public:
    /// Trailing "/" of `path` do not count, and an empty rest lists every item whatever `recursive` says. Segments are
    /// compared, not characters: "/a", "/a/" and "a" list the same. An item at `path` itself is not listed.
    std::vector<std::string> List(const std::string& path, bool recursive) const override;
    std::vector<std::uint8_t> Read(const std::string& path) const override;
    void Write(const std::string& path, const std::uint8_t* data, std::size_t size) override;
    void Delete(const std::string& path) override;
    bool Exists(const std::string& path) const override;
    void Clear() override;

    /// The item's contents without a copy; valid until the item changes. Throws as Read.
    const std::vector<std::uint8_t>& Contents(const std::string& path) const;

    /// Write for contents that the caller gives away.
    void Write(const std::string& path, std::vector<std::uint8_t> contents);

    /// The non-empty segments of `path`.
    static std::vector<std::string> ParsePath(const std::string& path);

    /// Cuts `path` at its last "/". A path without one comes back whole in both halves: callers look for a "/" first.
    static std::pair<std::string, std::string> Split(const std::string& path);

    /// How many segments `path` lies below `base`: 0 when it does not, or is `base` itself.
    static std::uint64_t SubPathLevel(const std::string& base, const std::string& path);

private:
    std::map<std::string, std::vector<std::uint8_t>> items_;
};

}  // namespace VxCommon
