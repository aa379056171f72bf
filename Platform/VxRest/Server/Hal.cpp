#include "Hal.h"

namespace VxRest::Http
{

using nlohmann::json;

namespace
{

json AddLinks(json document, const std::string& path, const ResponseInfo& response)
{
    if (document.is_null()) {
        document = json::object();
    }
    if (!document.is_object()) {
        return document;
    }
    json& links = document["_links"];
    links["self"]["href"] = path;
    for (const ResponseInfo::Embedded& embedded : response.Embeddings()) {
        if (embedded.link) {
            json link = json::object();
            link["href"] = embedded.path;
            links[embedded.relation].push_back(std::move(link));
        }
        if (!embedded.document.is_null()) {
            document["_embedded"][embedded.relation].push_back(
                AddLinks(embedded.document, embedded.path, ResponseInfo()));
        }
    }
    return document;
}

}  // namespace

EncodedBody EncodeDocument(json document, const std::string& path, const ResponseInfo& response, Media media)
{
    if (media == Media::Json && document.is_object() && response.Embeddings().empty() && !document.contains("_links")) {
        // Most documents: the same as below, without building values that are written once and dropped.
        std::string links = "\"_links\":{\"self\":{\"href\":";
        AppendText(links, path);
        links += "}}";
        return EncodeObject(links, document);
    }
    return EncodeBody(AddLinks(std::move(document), path, response), media);
}

}  // namespace VxRest::Http
