#include <algorithm>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistStore.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

// Walks the non-empty segments of a path without copying them.
class SegmentReader
{
public:
    explicit SegmentReader(std::string_view path) : rest_(path) {}

    // The next segment; empty at the end.
    std::string_view Next()
    {
        rest_.remove_prefix(std::min(rest_.find_first_not_of('/'), rest_.size()));
        const std::string_view segment = rest_.substr(0, rest_.find('/'));
        rest_.remove_prefix(segment.size());
        return segment;
    }

private:
    std::string_view rest_;
};

std::uint64_t Level(std::string_view base, std::string_view path)
{
    SegmentReader baseSegments(base);
    SegmentReader pathSegments(path);
    for (std::string_view expected = baseSegments.Next(); !expected.empty(); expected = baseSegments.Next()) {
        if (pathSegments.Next() != expected) {
            return 0;
        }
    }
    std::uint64_t level = 0;
    while (!pathSegments.Next().empty()) {
        ++level;
    }
    return level;
}

}  // namespace

std::vector<std::string> PersistStore::List(const std::string& path, bool recursive) const
{
    std::string_view prefix = path;
    while (prefix.ends_with('/')) {
        prefix.remove_suffix(1);
    }
    const bool all = recursive || prefix.empty();
    std::vector<std::string> keys;
    for (const auto& [key, contents] : items_) {
        const std::uint64_t level = Level(prefix, key);
        if (level == 1 || (level >= 2 && all)) {
            keys.push_back(key);
        }
    }
    return keys;
}

std::vector<std::uint8_t> PersistStore::Read(const std::string& path) const
{
    return Contents(path);
}

const std::vector<std::uint8_t>& PersistStore::Contents(const std::string& path) const
{
    const auto found = items_.find(path);
    if (found == items_.end()) {
        VX_THROW_AT(VX_HERE_AS("VxCommon::PersistStore::Read"), ERROR_NOT_FOUND,
                    "Persisted storage item '%s' not found.", path);
    }
    return found->second;
}

void PersistStore::Write(const std::string& path, const std::uint8_t* data, std::size_t size)
{
    Write(path, std::vector<std::uint8_t>(data, data + size));
}

void PersistStore::Write(const std::string& path, std::vector<std::uint8_t> contents)
{
    const auto found = items_.lower_bound(path);
    if (found == items_.end() || found->first != path) {
        items_.emplace_hint(found, path, std::move(contents));
        return;
    }
    Vx_Debug_Log(Info, "Persisted storage item '%s' already existed, overwriting...", path);
    found->second = std::move(contents);
}

void PersistStore::Delete(const std::string& path)
{
    items_.erase(path);
}

bool PersistStore::Exists(const std::string& path) const
{
    return items_.contains(path);
}

void PersistStore::Clear()
{
    items_.clear();
}

std::vector<std::string> PersistStore::ParsePath(const std::string& path)
{
    std::vector<std::string> segments;
    SegmentReader reader(path);
    for (std::string_view segment = reader.Next(); !segment.empty(); segment = reader.Next()) {
        segments.emplace_back(segment);
    }
    return segments;
}

std::pair<std::string, std::string> PersistStore::Split(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return {path, path};
    }
    return {path.substr(0, slash), path.substr(slash + 1)};
}

std::uint64_t PersistStore::SubPathLevel(const std::string& base, const std::string& path)
{
    return Level(base, path);
}

}  // namespace VxCommon
