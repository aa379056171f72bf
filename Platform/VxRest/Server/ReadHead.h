#pragma once
// From the HTTP library's parser to a RequestHead.

#include <boost/beast/http/message.hpp>

#include "RequestHead.h"

namespace VxRest::Http
{

/// Reads what the server looks at. Throws Refusal (400) for a field that must not be there twice and for framing that
/// two readers could understand differently: Content-Length with Transfer-Encoding, a transfer coding other than plain
/// "chunked", chunks in HTTP/1.0. `keepAlive` is what the parser found.
RequestHead ReadHead(const boost::beast::http::request_header<>& header, bool keepAlive);

}  // namespace VxRest::Http
