#include <algorithm>
#include <exception>
#include <utility>

#include <Nucleo/Clock.h>
#include <Nucleo/Utf8.h>
#include <VxApi/Logging.h>

namespace Vx::Logging
{
namespace
{

std::string_view SeverityColumn(std::uint64_t options)
{
    switch (options & Nucleo::LogOption::SeverityMask) {
        case Nucleo::LogOption::Warning:
            return " Warning ";
        case Nucleo::LogOption::Error:
            return " Error   ";
        default:
            return " Info    ";
    }
}

/// A line that grows.
struct GrowingLine
{
    std::string text;

    void Add(std::string_view characters) { text += characters; }
    void AddWhole(std::string_view unit) { text += unit; }
};

/// A line that ends where its buffer is full.
class BoundedLine
{
public:
    BoundedLine(char* buffer, std::size_t capacity) : at_(buffer), room_(capacity - 1) { *at_ = '\0'; }

    /// Cut off between two characters when it does not fit.
    void Add(std::string_view characters)
    {
        const bool fits = characters.size() <= room_;
        AddWhole(characters.substr(0, Nucleo::WholeCharacters(characters, room_)));
        room_ = fits ? room_ : 0;
    }

    /// Left out when it does not fit.
    void AddWhole(std::string_view unit)
    {
        if (unit.size() > room_) {
            room_ = 0;
            return;
        }
        at_ += unit.copy(at_, unit.size());
        *at_ = '\0';
        room_ -= unit.size();
    }

private:
    char* at_;
    std::size_t room_;  // Without the NUL.
};

bool IsControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

template <class Line>
void AddEscaped(Line& line, std::string_view text)
{
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(std::find_if(text.begin(), text.end(), IsControl) - text.begin());
        line.Add(text.substr(0, plain));
        text.remove_prefix(plain);
        if (!text.empty()) {
            constexpr char digits[] = "0123456789abcdef";
            const auto byte = static_cast<unsigned char>(text.front());
            const char escape[] = {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
            line.AddWhole({escape, sizeof escape});
            text.remove_prefix(1);
        }
    }
}

template <class Line>
void AddLine(Line& line, std::uint64_t dateTime, std::uint64_t options, const char* source, const char* text)
{
    char time[32];
    const bool shown =
        Nucleo::DateTime_Format(dateTime, Nucleo::DateTimeStyle::DateAndTime, time, sizeof time) == Nucleo::OK;
    line.Add(shown ? time : "(?)");
    line.Add(SeverityColumn(options));
    if (source != nullptr) {
        AddEscaped(line, source);
        line.Add(": ");
    }
    AddEscaped(line, text != nullptr ? text : "");
}

/// A NUL-ended text: in its own room while it is short, in memory when it is long.
template <std::size_t Capacity>
class LineText
{
public:
    void Assign(std::string_view text)
    {
        if (text.size() < Capacity) {
            short_[text.copy(short_, text.size())] = '\0';
        } else {
            long_ = text;
        }
    }

    void Print(std::string_view format, Nucleo::FormatArgs args)
    {
        if (Nucleo::PrintTo(short_, Capacity, nullptr, format, args) != Nucleo::OK) {
            long_ = Nucleo::Print(format, args);
        }
    }

    const char* CStr() const { return long_.empty() ? short_ : long_.c_str(); }

private:
    char short_[Capacity];
    std::string long_;
};

}  // namespace

void Write(std::uint64_t options, std::string_view source, std::string_view format, Nucleo::FormatArgs args) noexcept
{
    try {
        LineText<128> name;
        name.Assign(source);
        LineText<512> text;
        if (args.slots.empty()) {
            text.Assign(format);
        } else {
            text.Print(format, args);
        }
        const Nucleo::ClockReading now = Nucleo::Clock_Read();
        Nucleo::Log_Write({options, Nucleo::UpTime_At(now.timer), now.dateTime, name.CStr(), text.CStr()});
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

std::string FormatLogLine(std::uint64_t dateTime, std::uint64_t options, const char* source, const char* text)
{
    GrowingLine line;
    AddLine(line, dateTime, options, source, text);
    return std::move(line.text);
}

Nucleo::Status FormatLogBuffer(std::uint64_t dateTime, std::uint64_t options, const char* source, const char* text,
                               char* buffer, std::size_t capacity) noexcept
{
    if (capacity == 0) {
        return Nucleo::ERROR_PARAMETER;
    }
    BoundedLine line(buffer, capacity);
    if (text == nullptr) {
        return Nucleo::ERROR_PARAMETER;
    }
    AddLine(line, dateTime, options, source, text);
    return Nucleo::OK;
}

void EscapeText(std::string_view text, char* buffer, std::size_t capacity) noexcept
{
    BoundedLine line(buffer, capacity);
    AddEscaped(line, text);
}

}  // namespace Vx::Logging
