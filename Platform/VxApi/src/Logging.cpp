#include <cstring>
#include <ctime>

#include <Nucleo/Clock.h>
#include <VxApi/Logging.h>

namespace Vx::Logging
{
namespace
{

std::string_view SeverityName(std::uint64_t options)
{
    switch (options & Nucleo::LogOption::SeverityMask) {
        case Nucleo::LogOption::Warning:
            return "Warning";
        case Nucleo::LogOption::Error:
            return "Error";
        default:
            return "Info";
    }
}

void AppendEscaped(std::string& out, const char* text)
{
    for (const char* at = text; *at != '\0'; ++at) {
        const auto byte = static_cast<unsigned char>(*at);
        if (byte >= 0x20 && byte != 0x7f) {
            out += *at;
        } else {
            constexpr char digits[] = "0123456789abcdef";
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 15];
        }
    }
}

}  // namespace

void Write(std::uint64_t options, std::string_view source, std::string_view format, Nucleo::FormatArgs args) noexcept
{
    try {
        const std::string name(source);
        const std::string text = args.slots.empty() ? std::string(format) : Nucleo::Print(format, args);
        Nucleo::Log_Write({options, Nucleo::UpTime_Now(), Nucleo::DateTime_Now(), name.c_str(), text.c_str()});
    } catch (const std::exception&) {
        // Out of memory: a line is lost, which is better than a failing caller.
    }
}

bool StripPositionalParameters(const char* format, char* buffer, std::size_t capacity) noexcept
{
    std::size_t length = 0;
    for (const char* at = format; *at != '\0';) {
        const bool percent = *at == '%';
        if (length + 1 >= capacity) {
            return false;
        }
        buffer[length++] = *at++;
        if (!percent) {
            continue;
        }
        if (*at == '%') {  // "%%" is not the start of a specifier.
            if (length + 1 >= capacity) {
                return false;
            }
            buffer[length++] = *at++;
            continue;
        }
        const char* digits = at;
        while (*digits >= '0' && *digits <= '9') {
            ++digits;
        }
        if (digits != at && *digits == '$') {
            at = digits + 1;
        }
    }
    if (capacity == 0) {
        return false;
    }
    buffer[length] = '\0';
    return true;
}

std::string FormatLogBuffer(const Nucleo::LogArgs& record)
{
    const auto seconds = static_cast<std::time_t>(record.dateTime / 1'000'000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char time[40];
    const std::size_t length = std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &parts);
    std::string line(time, length);
    line += Nucleo::Print(".%03u %-7s ", Nucleo::MakeFormatArgs(record.dateTime / 1'000 % 1'000,
                                                                std::string(SeverityName(record.options))));
    AppendEscaped(line, record.source != nullptr ? record.source : "");
    line += ": ";
    AppendEscaped(line, record.message != nullptr ? record.message : "");
    return line;
}

}  // namespace Vx::Logging
