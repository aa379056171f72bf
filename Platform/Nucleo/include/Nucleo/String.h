#pragma once
// A text as an object: what C-style functions hand out. Used by one thread at a time.

#include <cstddef>
#include <string>
#include <string_view>

#include <Nucleo/Object.h>
#include <Nucleo/StdAllocator.h>

namespace Nucleo
{

class String final : public Object
{
public:
    /// A text that starts as `text`, in memory of `allocator` (null: the default one). On failure `*string` is null.
    static Status Make(String** string, std::string_view text, Allocator* allocator) noexcept;

    /// Adds `text` at the end. ERROR_MEMORY when there is no room; the text is unchanged then.
    Status Append(std::string_view text) noexcept;

    /// Makes the text `size` bytes long, new ones being NUL, to be written through Data(). ERROR_MEMORY when there is
    /// no room; the text is unchanged then.
    Status Resize(std::size_t size) noexcept;

    /// The text's bytes; valid until its size changes.
    char* Data() noexcept { return text_.data(); }

    void Clear() noexcept { text_.clear(); }

    /// NUL-ended; valid until the text changes.
    const char* CStr() const noexcept { return text_.c_str(); }
    std::string_view View() const noexcept { return text_; }

    static const Type& StaticType() noexcept;

private:
    template <class T, class... Args>
    friend Status Construct(T** object, Allocator* allocator, Args&&... args) noexcept;
    explicit String(Allocator& allocator) : text_(StdAllocator<char>(allocator)) {}

    std::basic_string<char, std::char_traits<char>, StdAllocator<char>> text_;
};

}  // namespace Nucleo
