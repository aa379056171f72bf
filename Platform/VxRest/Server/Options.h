#pragma once
// Checks a server's options.

#include <VxRest/HttpServer.h>

namespace VxRest::Http
{

/// Brings the address into its usual form ("localhost" becomes 127.0.0.1). Throws Vx::Exception with ERROR_PARAMETER
/// for options that are unusable or unsafe, naming what was wrong and what was expected.
void CheckOptions(HttpServerOptions& options);

}  // namespace VxRest::Http
