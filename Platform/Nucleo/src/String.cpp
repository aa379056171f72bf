#include <exception>

#include <Nucleo/String.h>

namespace Nucleo
{

Status String::Make(String** string, std::string_view text, Allocator* allocator) noexcept
{
    Allocator& source = allocator != nullptr ? *allocator : DefaultAllocator();
    Handle<String> made;
    Status status = Construct(made.Receive(), &source, source);
    if (status == OK) {
        status = made->Append(text);
    }
    *string = status == OK ? made.Detach() : nullptr;
    return status;
}

Status String::Append(std::string_view text) noexcept
{
    try {
        text_.append(text);
        return OK;
    } catch (const std::exception&) {  // bad_alloc, or length_error beyond what a string can hold
        return ERROR_MEMORY;
    }
}

Status String::Resize(std::size_t size) noexcept
{
    try {
        text_.resize(size);
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

const Type& String::StaticType() noexcept
{
    static const Type type{"String", &Object::StaticType(), sizeof(String)};
    return type;
}

}  // namespace Nucleo
