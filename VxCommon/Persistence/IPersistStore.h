#pragma once
// The interface of an in-memory store: byte blobs under slash-separated paths. Paths begin with "/", such as
// "/settings.json": a stored image keeps no leading "/" and gives every path one when it is read back. An image keeps
// no item whose path ends in "/", holds a NUL, has no segment, or has more than 511 bytes after its leading "/".
//
// Stores do not lock: a store is used by one thread at a time.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VxCommon
{

/// Stores are destroyed as what they are, never through this interface.
class IPersistStore
{
public:
    /// The paths of the items below `path`, in byte order: those directly below it, or with `recursive` those at any
    /// depth.
    virtual std::vector<std::string> List(const std::string& path, bool recursive) const = 0;

    /// A copy of the item's contents. Throws Vx::Exception with ERROR_NOT_FOUND when there is none; nothing else fails.
    virtual std::vector<std::uint8_t> Read(const std::string& path) const = 0;

    /// Creates or replaces the item by a copy of `size` bytes; `data` may be null when `size` is 0.
    virtual void Write(const std::string& path, const std::uint8_t* data, std::size_t size) = 0;

    /// Removes the item; a missing one is fine.
    virtual void Delete(const std::string& path) = 0;

    virtual bool Exists(const std::string& path) const = 0;

    /// Removes all items.
    virtual void Clear() = 0;

protected:
    IPersistStore() = default;
    IPersistStore(const IPersistStore&) = default;
    IPersistStore& operator=(const IPersistStore&) = default;
    ~IPersistStore() = default;
};

}  // namespace VxCommon
