#pragma once

#include <VxApi/JsonSerializer.h>
#include <VxRest/Request.h>

namespace VxHost
{

/// The document that shows `properties`, with their schema when the request asks for it.
inline nlohmann::json ToDocument(const Vx::Properties::Structure& properties, const VxRest::RequestInfo& request)
{
    nlohmann::json document = Vx::Properties::JsonSerializer::Serialize(properties);
    if (request.IsSchemaRequested()) {
        document["_schema"] = Vx::Properties::JsonSerializer::SerializeSchema(properties);
    }
    return document;
}

}  // namespace VxHost
