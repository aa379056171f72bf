#include <Nucleo/Status.h>

namespace Nucleo
{
namespace
{

struct StatusWords
{
    Status status;
    std::string_view name;
    std::string_view text;
};

constexpr StatusWords words[] = {
    {OK, "OK", "no error"},
    {ERROR_STATE, "ERROR_STATE", "not possible in the present state"},
    {ERROR_NOT_FOUND, "ERROR_NOT_FOUND", "there is nothing of that name"},
    {ERROR_PARAMETER, "ERROR_PARAMETER", "an argument is not valid"},
    {ERROR_MEMORY, "ERROR_MEMORY", "out of memory"},
    {ERROR_CAPACITY, "ERROR_CAPACITY", "too long for the room that is set aside for it"},
    {ERROR_NAME, "ERROR_NAME",
     "not a valid file name: 1 to 255 bytes of UTF-8 without '/' and NUL were expected, and not '.' or '..'"},
    {ERROR_IO, "ERROR_IO", "the storage device failed"},
    {ERROR_DISK_FULL, "ERROR_DISK_FULL", "no space is left on the storage device"},
    {ERROR_READ_ONLY, "ERROR_READ_ONLY", "the storage is read-only"},
    {ERROR_TOO_MANY_FILES, "ERROR_TOO_MANY_FILES", "too many files are open"},
    {ERROR_END, "ERROR_END", "the data ended too early"},
    {ERROR_FORMAT, "ERROR_FORMAT", "the data is damaged or of another format"},
    {ERROR_ALREADY_EXISTS, "ERROR_ALREADY_EXISTS", "there is one of that name already"},
    {ERROR_ACCESS, "ERROR_ACCESS", "permission was denied"},
    {ERROR_LIMIT, "ERROR_LIMIT", "larger than the limit"},
    {ERROR_CONTENT, "ERROR_CONTENT", "the data holds nothing that can be used"},
    {ERROR_UNSUPPORTED, "ERROR_UNSUPPORTED", "the operation is not supported"},
    {ERROR_BUSY, "ERROR_BUSY", "in use by someone else"},
};

const StatusWords* Find(Status status) noexcept
{
    for (const StatusWords& entry : words) {
        if (entry.status == status) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

std::string_view StatusName(Status status) noexcept
{
    const StatusWords* entry = Find(status);
    return entry != nullptr ? entry->name : "ERROR_UNKNOWN";
}

std::string_view StatusText(Status status) noexcept
{
    const StatusWords* entry = Find(status);
    return entry != nullptr ? entry->text : "an unknown error";
}

}  // namespace Nucleo
