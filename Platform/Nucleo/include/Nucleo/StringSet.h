#pragma once
// A set of texts, told apart by their characters. Not locked: its owner guards it.

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>

#include <Nucleo/StdAllocator.h>

namespace Nucleo
{

class StringSet
{
public:
    /// Everything the set keeps is in memory of `allocator`, which must outlive it.
    explicit StringSet(Allocator& allocator);

    bool Contains(std::string_view text) const;

    /// Adds a copy of `text` unless it is there already. ERROR_MEMORY when there is no room; the set is unchanged then.
    Status Add(std::string_view text) noexcept;

    /// Removes all texts.
    void Clear() noexcept { texts_.clear(); }

    std::size_t Count() const noexcept { return texts_.size(); }

    /// Exchanges the contents of two sets with the same allocator.
    void Swap(StringSet& other) noexcept { texts_.swap(other.texts_); }

private:
    using Text = std::basic_string<char, std::char_traits<char>, StdAllocator<char>>;
    struct Hash
    {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    struct Equal
    {
        using is_transparent = void;
        bool operator()(std::string_view left, std::string_view right) const { return left == right; }
    };

    StdAllocator<char> allocator_;
    std::unordered_set<Text, Hash, Equal, StdAllocator<Text>> texts_;
};

}  // namespace Nucleo
