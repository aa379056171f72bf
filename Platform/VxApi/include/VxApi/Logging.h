#pragma once
// The debug log: every log line of the library and the host goes through Vx_Debug_Log to the runtime's log handlers.
// Safe on any thread; never throws.

#include <cstddef>
#include <string>
#include <string_view>

#include <Nucleo/Format.h>
#include <Nucleo/Log.h>
#include <VxApi/Location.h>

namespace Vx::Logging
{

enum class Level : std::uint64_t
{
    Info = Nucleo::LogOption::Info,
    Warning = Nucleo::LogOption::Warning,
    Error = Nucleo::LogOption::Error,
};

/// Writes one record: `format` printed with `args`, as a line of `source`. `options`: see Nucleo::LogOption. The text
/// of a record without arguments is taken as it is, except that "%%" is not halved: a text is never used as a format.
void Write(std::uint64_t options, std::string_view source, std::string_view format, Nucleo::FormatArgs args) noexcept;

/// The private log, under the file tag of `location`.
template <class... Args>
void Debug(Level level, const Location& location, std::string_view format, const Args&... args) noexcept
{
    Write(static_cast<std::uint64_t>(level) | Nucleo::LogOption::Debug, location.file, format,
          Nucleo::MakeFormatArgs(args...));
}

/// The private log, under a source tag of the caller's choice.
template <class... Args>
void Tagged(Level level, std::string_view tag, std::string_view format, const Args&... args) noexcept
{
    Write(static_cast<std::uint64_t>(level) | Nucleo::LogOption::Debug, tag, format, Nucleo::MakeFormatArgs(args...));
}

/// The private and the public log, under a short category that users know, such as "Jobs".
template <class... Args>
void Public(Level level, std::string_view category, std::string_view format, const Args&... args) noexcept
{
    Write(static_cast<std::uint64_t>(level) | Nucleo::LogOption::Public, category, format,
          Nucleo::MakeFormatArgs(args...));
}

/// Copies `format` into `buffer` with every positional marker ("2$" in "%2$s") removed. False when the result and its
/// NUL do not fit into `capacity` bytes.
bool StripPositionalParameters(const char* format, char* buffer, std::size_t capacity) noexcept;

/// One display line: UTC date and time to the millisecond, severity (of `options`), source, text. Control bytes are
/// shown as \xNN, so that a text cannot forge a line of its own; a time beyond the year 9999 as "(?)". No line end.
/// A null `source` is left out with its colon; `text` may be null.
std::string FormatLogLine(std::uint64_t dateTime, std::uint64_t options, const char* source, const char* text);

/// The same NUL-ended into `capacity` bytes, without taking memory; what does not fit is cut off, never inside a
/// character. ERROR_PARAMETER for a capacity of 0 or a null text; the buffer then holds an empty text (when it has any
/// room).
Nucleo::Status FormatLogBuffer(std::uint64_t dateTime, std::uint64_t options, const char* source, const char* text,
                               char* buffer, std::size_t capacity) noexcept;

/// Copies a text NUL-ended into `capacity` bytes, which is not 0, with control bytes shown as \\xNN; what does not fit
/// is cut off, never inside a character.
void EscapeText(std::string_view text, char* buffer, std::size_t capacity) noexcept;

}  // namespace Vx::Logging

/// Writes a line to the private log from here: Vx_Debug_Log(Warning, "Saving in %lu us...", delay).
#define Vx_Debug_Log(level, ...) ::Vx::Logging::Debug(::Vx::Logging::Level::level, VX_HERE, __VA_ARGS__)
