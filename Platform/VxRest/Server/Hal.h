#pragma once
// Links between documents (HAL). Safe on any thread.

#include <string>

#include <nlohmann/json.hpp>

#include <VxRest/Request.h>

#include "Codec.h"

namespace VxRest::Http
{

/// Writes a resource's document with its links: `_links.self` and what the resource embedded go into an object
/// document; null becomes an object first, other values stay as they are.
EncodedBody EncodeDocument(nlohmann::json document, const std::string& path, const ResponseInfo& response, Media media);

}  // namespace VxRest::Http
