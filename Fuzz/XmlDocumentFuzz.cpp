// Any bytes: parsing answers with a status, what was accepted survives writing and parsing, and so do the same bytes as
// a text and as an attribute's value.

#include <algorithm>

#include <Nucleo/XmlDocument.h>

#include "FuzzSupport.h"

namespace
{

/// Whether both elements have the same names, texts and children.
bool Same(const Nucleo::XmlDocument& a, Nucleo::XmlNode x, const Nucleo::XmlDocument& b, Nucleo::XmlNode y)
{
    const auto children = a.Children(x);
    const auto others = b.Children(y);
    // Indentation adds white space to an element that holds other elements only.
    return a.Name(x) == b.Name(y) && (!children.empty() || a.Text(x) == b.Text(y)) &&
           std::equal(children.begin(), children.end(), others.begin(), others.end(),
                      [&](Nucleo::XmlNode child, Nucleo::XmlNode other) { return Same(a, child, b, other); });
}

/// A written document is read back the same, unless writing made it larger than what is read.
void RequireRoundTrip(const Nucleo::XmlDocument& document)
{
    const std::string text = document.ToText();
    Nucleo::XmlDocument copy;
    const Nucleo::Status status = copy.Parse(text);
    if (text.size() > Nucleo::XmlDocument::MaxSize) {
        Require(status == Nucleo::ERROR_LIMIT);
        return;
    }
    Require(status == Nucleo::OK && Same(document, document.Root(), copy, copy.Root()));
    Require(document.Attribute(document.Root(), "v") == copy.Attribute(copy.Root(), "v"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    Nucleo::XmlDocument document;
    if (document.Parse(input) == Nucleo::OK) {
        Require(static_cast<bool>(document.Root()));
        RequireRoundTrip(document);
    } else {
        Require(!document.Root());
    }
    const Nucleo::XmlNode root = document.CreateRoot("r");
    Require(document.SetText(root, input) == Nucleo::OK && document.SetAttribute(root, "v", input) == Nucleo::OK);
    RequireRoundTrip(document);
    document.CreateRoot(input);
    return 0;
}
