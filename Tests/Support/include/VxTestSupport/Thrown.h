#pragma once
// What calls throw, as texts to compare.

#include <optional>
#include <string>

#include <VxApi/Exception.h>

namespace VxTestSupport
{

/// The Vx::Exception that `call` throws; nothing when it throws none.
template <class Call>
std::optional<Vx::Exception> Caught(const Call& call)
{
    try {
        call();
    } catch (const Vx::Exception& exception) {
        return exception;
    }
    return std::nullopt;
}

template <class Call>
Nucleo::Status StatusThrown(const Call& call)
{
    const auto exception = Caught(call);
    return exception ? exception->Status() : Nucleo::OK;
}

/// "<status> <file> <function>"; "nothing" when it throws nothing.
template <class Call>
std::string PlaceThrown(const Call& call)
{
    const auto exception = Caught(call);
    return exception ? std::to_string(exception->Status()) + " " + exception->File() + " " + exception->Function()
                     : "nothing";
}

/// "<status> <message>"; "nothing" when it throws nothing.
template <class Call>
std::string MessageThrown(const Call& call)
{
    const auto exception = Caught(call);
    return exception ? std::to_string(exception->Status()) + " " + exception->Message() : "nothing";
}

}  // namespace VxTestSupport
