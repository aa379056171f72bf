#include <exception>

#include <Nucleo/StringSet.h>

namespace Nucleo
{

StringSet::StringSet(Allocator& allocator)
    : allocator_(allocator), texts_(0, Hash(), Equal(), StdAllocator<Text>(allocator))
{}

bool StringSet::Contains(std::string_view text) const
{
    return texts_.contains(text);
}

Status StringSet::Add(std::string_view text) noexcept
{
    try {
        if (!texts_.contains(text)) {
            texts_.emplace(text, allocator_);
        }
        return OK;
    } catch (const std::exception&) {  // bad_alloc, or length_error beyond what a string can hold
        return ERROR_MEMORY;
    }
}

}  // namespace Nucleo
