#include <cstring>

#include <Nucleo/Path.h>

namespace Nucleo
{
namespace
{

Status Copy(char* buffer, std::size_t capacity, std::string_view text, std::size_t* length)
{
    *length = 0;
    if (text.size() >= capacity) {
        return ERROR_CAPACITY;
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    *length = text.size();
    return OK;
}

}  // namespace

Status Path_Combine(char* buffer, std::size_t capacity, std::string_view directory, std::string_view name,
                    std::size_t* length)
{
    *length = 0;
    const bool separated = directory.ends_with('/');
    const std::size_t size = directory.size() + (separated ? 0 : 1) + name.size();
    if (size >= capacity) {
        return ERROR_CAPACITY;
    }
    char* end = buffer;
    std::memcpy(end, directory.data(), directory.size());
    end += directory.size();
    if (!separated) {
        *end++ = '/';
    }
    if (!name.empty()) {
        std::memcpy(end, name.data(), name.size());
        end += name.size();
    }
    *end = '\0';
    *length = size;
    return OK;
}

Status Path_Extension(char* buffer, std::size_t capacity, std::string_view name, std::size_t* length)
{
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos) {
        *length = 0;
        return ERROR_NOT_FOUND;
    }
    return Copy(buffer, capacity, name.substr(dot + 1), length);
}

Status Path_StripExtension(char* buffer, std::size_t capacity, std::string_view name, std::size_t* length)
{
    return Copy(buffer, capacity, name.substr(0, name.rfind('.')), length);
}

}  // namespace Nucleo
