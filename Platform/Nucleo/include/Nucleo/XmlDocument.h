#pragma once
// XML documents in memory. A document is used by one thread at a time.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Status.h>

namespace Nucleo
{

/// An element of a document. A null one answers every question with "nothing" and takes no change.
class XmlNode
{
public:
    XmlNode() = default;
    explicit operator bool() const noexcept { return node_ != nullptr; }

private:
    friend class XmlDocument;
    explicit XmlNode(void* node) noexcept : node_(node) {}
    void* node_ = nullptr;
};

/// A parsed or newly built XML document. Its elements are named by XmlNode values, which stay valid until the document
/// is destroyed, read or started anew, or the element goes with the content that SetText replaces.
///
/// Texts and attribute values may be any bytes: those that XML cannot carry (control characters other than tab, line
/// feed and carriage return; invalid UTF-8) are replaced by U+FFFD when they are set. Everything else comes back
/// unchanged from a document that was written and parsed.
class XmlDocument
{
public:
    /// Larger input is refused with ERROR_LIMIT before anything is built.
    static constexpr std::size_t MaxSize = 64 * 1024;
    /// Levels of elements, the root being the first.
    static constexpr std::size_t MaxDepth = 64;
    /// Attributes of one element.
    static constexpr std::size_t MaxAttributes = 64;

    XmlDocument();
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    /// Replaces the document by what `text` says, which is taken as UTF-8 whatever its declaration names. ERROR_LIMIT
    /// when it exceeds one of the limits above; ERROR_FORMAT when it is not well-formed XML with exactly one root, or
    /// declares a document type (entities are not taken); ERROR_MEMORY when there is none. The document is empty then.
    Status Parse(std::string_view text) noexcept;

    /// Writes the document as UTF-8 with declaration and indentation; nothing for an empty document.
    std::string ToText() const;

    /// Starts the document anew with an empty root element of that name. Null, and the document empty, when `name` is
    /// not an XML name or no memory is left.
    XmlNode CreateRoot(std::string_view name);

    /// The root element; null in an empty document.
    XmlNode Root() const;

    std::string Name(XmlNode node) const;

    /// The first child element of that name; null when there is none.
    XmlNode Child(XmlNode parent, std::string_view name) const;

    /// All child elements, in order.
    std::vector<XmlNode> Children(XmlNode parent) const;

    /// Adds a child element at the end. Null when `name` is not an XML name, the element would be deeper than MaxDepth,
    /// or no memory is left.
    XmlNode AddChild(XmlNode parent, std::string_view name);

    /// The text directly inside the element, all pieces joined.
    std::string Text(XmlNode node) const;

    /// Replaces the element's content, children included, by `text`. ERROR_PARAMETER when `node` is null; ERROR_MEMORY
    /// when there is none, and the element is empty then.
    Status SetText(XmlNode node, std::string_view text);

    /// Copies the text of the first child element of that name NUL-ended into `capacity` bytes. ERROR_NOT_FOUND when
    /// there is no such child; ERROR_CAPACITY when its text and the NUL do not fit. The buffer then holds an empty text
    /// (when it has any room).
    Status ChildText(XmlNode parent, std::string_view name, char* text, std::size_t capacity) const noexcept;

    /// Replaces the content of the first child element of that name, which is added where missing, by `text`.
    /// ERROR_PARAMETER when `parent` is null or `name` is not an XML name, ERROR_LIMIT when the child would be deeper
    /// than MaxDepth, ERROR_MEMORY when there is none.
    Status SetChildText(XmlNode parent, std::string_view name, std::string_view text) noexcept;

    /// The value of an attribute; nothing when the element does not have it.
    std::optional<std::string> Attribute(XmlNode node, std::string_view name) const;

    /// Adds an attribute or replaces its value. ERROR_PARAMETER when `name` is not an XML name or `node` is null;
    /// ERROR_LIMIT beyond MaxAttributes; ERROR_MEMORY when there is none.
    Status SetAttribute(XmlNode node, std::string_view name, std::string_view value);

private:
    struct Content;
    std::unique_ptr<Content> content_;
};

}  // namespace Nucleo
