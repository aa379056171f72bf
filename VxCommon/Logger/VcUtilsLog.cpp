#include <VxCommon/Logger/VcUtilsLog.h>

#include <exception>
#include <string>

#include <Nucleo/Clock.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;

namespace
{

constexpr std::size_t dateTimeLength = 19;  // To the second.

Status Append(Nucleo::String& line, std::uint64_t dateTime, std::string_view text)
{
    Status status = OK;
    char time[32];
    if (Nucleo::DateTime_Format(dateTime, Nucleo::DateTimeStyle::DateAndTime, time, sizeof time) == OK) {
        status = line.Append({time, dateTimeLength});
        if (status == OK) {
            status = line.Append(": ");
        }
    }
    if (status == OK) {
        status = line.Append(text);
    }
    return status == OK ? line.Append("\r\n") : status;
}

}  // namespace

Status VcUtils_Log(Nucleo::String** string, std::uint64_t dateTime, const char* text)
{
    return VcUtils_LogInternal(string, dateTime, 0, text, {});
}

Status VcUtils_Logvf(Nucleo::String** string, std::uint64_t dateTime, const char* format,
                     const Nucleo::FormatArgs& args)
{
    return VcUtils_LogInternal(string, dateTime, 1, format, args);
}

Status VcUtils_LogInternal(Nucleo::String** string, std::uint64_t dateTime, std::uint32_t isFormat,
                           const char* textOrFormat, const Nucleo::FormatArgs& args)
{
    *string = nullptr;
    Nucleo::Handle<Nucleo::String> line;
    Status status = Nucleo::String::Make(line.Receive(), {}, nullptr);
    if (status != OK) {
        return status;
    }
    try {
        const std::string text = isFormat != 0 ? Nucleo::Print(textOrFormat, args) : textOrFormat;
        status = Append(*line, dateTime, text.c_str());  // To the first NUL, which "%c" may have printed.
    } catch (const std::exception&) {
        status = ERROR_MEMORY;
    }
    if (status == OK) {
        *string = line.Detach();
    }
    return status;
}
