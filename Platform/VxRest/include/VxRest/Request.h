#pragma once
// What a resource gets to know of a request, and what it can say beside its result.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace VxRest
{

/// A request as a resource sees it.
class RequestInfo
{
public:
    using KeyMap = std::map<std::string, std::string, std::less<>>;

    RequestInfo() = default;
    RequestInfo(std::string path, KeyMap keys, nlohmann::json args = nlohmann::json::object(), bool schema = false)
        : path_(std::move(path)), keys_(std::move(keys)), args_(std::move(args)), schema_(schema)
    {}

    /// The path that was asked for, as it came (percent-encoded).
    const std::string& Path() const noexcept { return path_; }

    /// Values of the pattern's keys, percent-decoded, by key name without the ":".
    const KeyMap& Keys() const noexcept { return keys_; }

    /// The value of one key. Throws std::out_of_range when the request has no such key.
    const std::string& FindKey(std::string_view name) const;

    /// The request's arguments, an object: 7 is a number, true a boolean, anything else a string.
    const nlohmann::json& Args() const noexcept { return args_; }

    /// Whether the request asks for the document's schema.
    bool IsSchemaRequested() const noexcept { return schema_; }

private:
    std::string path_;
    KeyMap keys_;
    nlohmann::json args_ = nlohmann::json::object();
    bool schema_ = false;
};

/// What a resource adds to its document, or sends in its place.
class ResponseInfo
{
public:
    struct Embedded
    {
        std::string relation;
        std::string path;
        bool link = false;
        nlohmann::json document;
    };

    /// Adds another resource under `relation` ("item"): as a link to `path` when `link` is set, and with `document`
    /// inside unless that is null. Order is kept.
    void Embed(std::string relation, std::string path, bool link, nlohmann::json document);

    const std::vector<Embedded>& Embeddings() const noexcept { return embedded_; }

    struct TextBody
    {
        std::string mediaType;
        std::string text;
    };

    /// Answers GET and HEAD with `text`, byte for byte, in the place of the document and its links, whatever the
    /// resource returns. `mediaType` is the answer's Content-Type, such as "text/csv; charset=utf-8". A client whose
    /// Accept does not take that type (parameters aside) gets 406 instead. The last call counts. A document that is
    /// embedded in another is not affected.
    void SetText(std::string mediaType, std::string text);

    /// Hands out what SetText was given; nothing unless it was called.
    std::optional<TextBody> TakeText() noexcept { return std::exchange(text_, std::nullopt); }

private:
    std::vector<Embedded> embedded_;
    std::optional<TextBody> text_;
};

/// What a collection answers when a member was created.
struct CreateResult
{
    std::string id;    ///< The member's id in its collection.
    std::string path;  ///< The member's path.
};

}  // namespace VxRest
