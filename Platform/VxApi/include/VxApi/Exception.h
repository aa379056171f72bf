#pragma once
// The exception of the object classes, and how any exception becomes a status.

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Format.h>
#include <Nucleo/Status.h>
#include <VxApi/Location.h>

namespace Vx
{

/// Thrown by the object classes. Carries a status, the place that threw, an optional message for the user, and the back
/// trace of the throw. Immutable; copies are cheap enough to throw.
class Exception : public std::exception
{
public:
    /// The message is taken as it is, except that a NUL in it is shown as \x00; without one what() says the status in
    /// words.
    Exception(Location location, Nucleo::Status status, std::string message = {});

    Nucleo::Status Status() const noexcept { return status_; }

    /// Folder and base name of the source, such as "Persistence/PersistManager".
    const std::string& File() const noexcept { return file_; }
    int Line() const noexcept { return line_; }
    const std::string& Function() const noexcept { return function_; }

    /// The message that was given; empty when none was.
    const std::string& Message() const noexcept { return message_; }

    /// Reads well on its own: the message if there is one, else the status in words and its name.
    const char* what() const noexcept override { return what_.c_str(); }

    /// Writes the exception (status, place, message) and its back trace to the private log as an error of `location`.
    void Log(const Location& location) const noexcept;

private:
    Nucleo::Status status_;
    int line_;
    std::string file_;
    std::string function_;
    std::string message_;
    std::string what_;
    std::vector<void*> trace_;
};

/// The status that an exception carries itself; OK when it carries none (anything but Vx::Exception).
Nucleo::Status CarriedStatus(const std::exception& exception) noexcept;

/// Turns any exception into a status: that of a Vx::Exception, ERROR_MEMORY for std::bad_alloc, ERROR_PARAMETER for an
/// error of the JSON library, ERROR_STATE for everything else; OK for null.
Nucleo::Status StatusOf(const std::exception_ptr& exception) noexcept;
Nucleo::Status StatusOf(const std::exception& exception) noexcept;

/// Writes any exception to the private log as an error of `location`: a Vx::Exception with its back trace, another with
/// its text.
void LogException(const Location& location, const std::exception& exception) noexcept;

/// Throws Exception(location, status) unless `status` is OK.
void Check(const Location& location, Nucleo::Status status);

/// A text as messages show it: a NUL, which would end it, is "\x00".
std::string ShowNuls(const std::string& text);

namespace Detail
{

inline std::string Shown(const std::string& argument)
{
    return ShowNuls(argument);
}

template <class T>
const T& Shown(const T& argument)
{
    return argument;
}

}  // namespace Detail

/// An exception whose message is printed from a printf-style format. A NUL inside a std::string is shown as "\x00".
template <class... Args>
Exception MakeException(Location location, Nucleo::Status status, std::string_view format, const Args&... args)
{
    return Exception(location, status, Nucleo::Print(format, Nucleo::MakeFormatArgs(Detail::Shown(args)...)));
}

}  // namespace Vx

/// Throws Vx::Exception for `status` from here, with an optional printf-style message and its arguments.
#define VX_THROW(status, ...) VX_THROW_AT(VX_HERE, status __VA_OPT__(, ) __VA_ARGS__)
#define VX_THROW_AT(location, status, ...) throw ::Vx::Detail::ThrowArgs(location, status __VA_OPT__(, ) __VA_ARGS__)

/// Throws Vx::Exception from here when `expression` does not answer OK.
#define VX_CHECK(expression) ::Vx::Check(VX_HERE, (expression))

namespace Vx::Detail
{
inline Exception ThrowArgs(Location location, Nucleo::Status status)
{
    return Exception(location, status);
}

template <class... Args>
Exception ThrowArgs(Location location, Nucleo::Status status, std::string_view format, const Args&... args)
{
    return MakeException(location, status, format, args...);
}
}  // namespace Vx::Detail
