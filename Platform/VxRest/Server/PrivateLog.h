#pragma once
// The page "/private-log": the text that the process's private-log handler writes, for clients that may see everything.
// Knows no sockets. Safe on any thread.

#include <string_view>

#include "Dispatcher.h"

namespace VxRest::Http
{

/// The page's path, which the server answers itself.
inline constexpr std::string_view PrivateLogPath = "/private-log";

/// Decides from the header alone what becomes of a request for the page. `trusted`: the client comes from the loopback
/// address, or has shown the server's token. Throws Refusal: 403, 404 without a handler, 405, 406.
Dispatcher::Outcome ExaminePrivateLog(const RequestHead& head, bool trusted);

}  // namespace VxRest::Http
