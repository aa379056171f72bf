#include <Nucleo/XmlDocument.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <pugixml.hpp>
#include <utility>

// The XML library below builds trees quickly and judges little: it takes any bytes as text, any entity as it stands,
// and anything around the root. So a text is checked here first, byte by byte and without memory of its own; what is
// left to the library is to match the names of start and end tags.

namespace Nucleo
{

struct XmlDocument::Content
{
    pugi::xml_document document;

    static pugi::xml_node Of(XmlNode node) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(node.node_)); }
    static XmlNode From(pugi::xml_node node) { return XmlNode(node.internal_object()); }
    static XmlNode Add(pugi::xml_node parent, std::string_view name);
};

namespace
{

constexpr std::string_view Replacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view WhiteSpace = " \t\r\n";

// White space between elements stays part of the text, so that a text of blanks survives writing and parsing.
constexpr unsigned ParseOptions = pugi::parse_default | pugi::parse_ws_pcdata;

/// Whether XML may carry the character, escaped or not.
constexpr bool IsXmlCharacter(std::uint32_t c)
{
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

/// Length of the character that `text` starts with; 0 when it is not valid UTF-8 or not a character of XML.
std::size_t CharacterLength(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) {
        return IsXmlCharacter(lead) ? 1 : 0;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    std::uint32_t c = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
        c = (c << 6) | (byte(i) & 0x3Fu);
    }
    const bool overlong = (length == 3 && c < 0x800) || (length == 4 && c < 0x10000);
    return overlong || !IsXmlCharacter(c) ? 0 : length;
}

std::string Cleaned(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = CharacterLength(text);
        result += length != 0 ? text.substr(0, length) : Replacement;
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

constexpr bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' ||
           static_cast<unsigned char>(c) >= 0x80;
}

constexpr bool IsNameCharacter(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

bool IsName(std::string_view name)
{
    return !name.empty() && IsNameStart(name.front()) && std::all_of(name.begin(), name.end(), IsNameCharacter) &&
           Cleaned(name) == name;
}

/// Checks everything about a document but that end tags are named like their start tags.
class Checker
{
public:
    explicit Checker(std::string_view text) : rest_(text) {}

    Status Check()
    {
        for (std::size_t i = 0; i < rest_.size();) {
            const std::size_t length = CharacterLength(rest_.substr(i));
            if (length == 0) {
                return ERROR_FORMAT;
            }
            i += length;
        }
        Skip(ByteOrderMark);
        if (rest_.starts_with("<?xml") && !IsNameCharacter(rest_.size() > 5 ? rest_[5] : ' ') && !SkipPast("?>")) {
            return ERROR_FORMAT;
        }
        Status status = OK;
        while (status == OK && !rest_.empty()) {
            status = Piece();
        }
        if (status == OK && (depth_ != 0 || !rootSeen_)) {
            status = ERROR_FORMAT;
        }
        return status;
    }

private:
    static Status FormatUnless(bool good) { return good ? OK : ERROR_FORMAT; }

    bool Skip(std::string_view token)
    {
        const bool found = rest_.starts_with(token);
        rest_.remove_prefix(found ? token.size() : 0);
        return found;
    }

    bool SkipPast(std::string_view token)
    {
        const std::size_t at = rest_.find(token);
        rest_.remove_prefix(at == std::string_view::npos ? rest_.size() : at + token.size());
        return at != std::string_view::npos;
    }

    bool SkipWhiteSpace()
    {
        const std::size_t before = rest_.size();
        rest_.remove_prefix(std::min(rest_.find_first_not_of(WhiteSpace), rest_.size()));
        return rest_.size() != before;
    }

    std::string_view TakeName()
    {
        std::size_t length = 0;
        while (length < rest_.size() && (length == 0 ? IsNameStart(rest_[0]) : IsNameCharacter(rest_[length]))) {
            ++length;
        }
        const std::string_view name = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return name;
    }

    /// The next tag, comment, instruction, section or run of text.
    Status Piece()
    {
        if (rest_.front() != '<') {
            const std::string_view run = rest_.substr(0, rest_.find('<'));
            rest_.remove_prefix(run.size());
            const bool blank = run.find_first_not_of(WhiteSpace) == std::string_view::npos;
            return FormatUnless(blank ||
                                (depth_ > 0 && run.find("]]>") == std::string_view::npos && ReferencesAreValid(run)));
        }
        if (Skip("<?")) {
            const std::string_view target = TakeName();
            const bool reserved = target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
                                  (target[2] | 0x20) == 'l';
            return FormatUnless(!target.empty() && !reserved && SkipPast("?>"));
        }
        if (Skip("<!--")) {
            return FormatUnless(SkipPast("--") && Skip(">"));
        }
        if (Skip("<![CDATA[")) {
            return FormatUnless(depth_ > 0 && SkipPast("]]>"));
        }
        if (Skip("</")) {
            const bool named = !TakeName().empty();
            SkipWhiteSpace();
            return FormatUnless(named && Skip(">") && depth_-- > 0);
        }
        Skip("<");
        return StartTag();
    }

    Status StartTag()
    {
        if (TakeName().empty() || (depth_ == 0 && rootSeen_)) {
            return ERROR_FORMAT;
        }
        if (depth_ == XmlDocument::MaxDepth) {
            return ERROR_LIMIT;
        }
        rootSeen_ = true;
        std::array<std::string_view, XmlDocument::MaxAttributes> names;
        std::size_t count = 0;
        for (;;) {
            const bool separated = SkipWhiteSpace();
            if (Skip("/>")) {
                return OK;
            }
            if (Skip(">")) {
                ++depth_;
                return OK;
            }
            const std::string_view name = TakeName();
            const auto end = names.begin() + count;
            if (!separated || name.empty() || std::find(names.begin(), end, name) != end || !AttributeValue()) {
                return ERROR_FORMAT;
            }
            if (count == names.size()) {
                return ERROR_LIMIT;
            }
            names[count++] = name;
        }
    }

    bool AttributeValue()
    {
        SkipWhiteSpace();
        if (!Skip("=")) {
            return false;
        }
        SkipWhiteSpace();
        if (!rest_.starts_with('"') && !rest_.starts_with('\'')) {
            return false;
        }
        const std::size_t close = rest_.find(rest_.front(), 1);
        if (close == std::string_view::npos) {
            return false;
        }
        const std::string_view value = rest_.substr(1, close - 1);
        rest_.remove_prefix(close + 1);
        return value.find('<') == std::string_view::npos && ReferencesAreValid(value);
    }

    static bool ReferencesAreValid(std::string_view text)
    {
        for (std::size_t at; (at = text.find('&')) != std::string_view::npos;) {
            text.remove_prefix(at + 1);
            const std::size_t end = text.find(';');
            if (end == std::string_view::npos || !IsReference(text.substr(0, end))) {
                return false;
            }
            text.remove_prefix(end + 1);
        }
        return true;
    }

    /// What stands between "&" and ";": one of the five names, or the number of a character that XML may carry.
    static bool IsReference(std::string_view name)
    {
        if (!name.starts_with('#')) {
            return name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
        }
        const int base = name.starts_with("#x") ? 16 : 10;
        const std::string_view digits = name.substr(base == 16 ? 2 : 1);
        std::uint32_t c = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), c, base);
        return error == std::errc() && end == digits.data() + digits.size() && IsXmlCharacter(c);
    }

    std::string_view rest_;
    std::size_t depth_ = 0;
    bool rootSeen_ = false;
};

/// Levels of elements down to `node`, itself included.
std::size_t Depth(pugi::xml_node node)
{
    std::size_t depth = 0;
    for (; node.type() == pugi::node_element; node = node.parent()) {
        ++depth;
    }
    return depth;
}

/// Collects the library's output. A carriage return goes out as a reference, because parsing turns a plain one into a
/// line feed.
struct TextWriter : pugi::xml_writer
{
    void write(const void* data, std::size_t size) override
    {
        std::string_view rest(static_cast<const char*>(data), size);
        for (std::size_t at; (at = rest.find('\r')) != std::string_view::npos; rest.remove_prefix(at + 1)) {
            text.append(rest.substr(0, at)).append("&#13;");
        }
        text.append(rest);
    }

    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
};

}  // namespace

XmlNode XmlDocument::Content::Add(pugi::xml_node parent, std::string_view name)
{
    return IsName(name) ? From(parent.append_child(std::string(name).c_str())) : XmlNode();
}

XmlDocument::XmlDocument() : content_(std::make_unique<Content>()) {}

XmlDocument::~XmlDocument() = default;

Status XmlDocument::Parse(std::string_view text) noexcept
{
    content_->document.reset();
    if (text.size() > MaxSize) {
        return ERROR_LIMIT;
    }
    if (const Status status = Checker(text).Check(); status != OK) {
        return status;
    }
    const pugi::xml_parse_result result =
        content_->document.load_buffer(text.data(), text.size(), ParseOptions, pugi::encoding_utf8);
    if (!result) {
        content_->document.reset();
        return result.status == pugi::status_out_of_memory ? ERROR_MEMORY : ERROR_FORMAT;
    }
    return OK;
}

std::string XmlDocument::ToText() const
{
    if (!Root()) {
        return {};
    }
    TextWriter writer;
    content_->document.save(writer, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    return std::move(writer.text);
}

XmlNode XmlDocument::CreateRoot(std::string_view name)
{
    content_->document.reset();
    return Content::Add(content_->document, name);
}

XmlNode XmlDocument::Root() const
{
    return Content::From(content_->document.document_element());
}

std::string XmlDocument::Name(XmlNode node) const
{
    return Content::Of(node).name();
}

XmlNode XmlDocument::Child(XmlNode parent, std::string_view name) const
{
    for (const pugi::xml_node child : Content::Of(parent)) {
        if (child.type() == pugi::node_element && child.name() == name) {
            return Content::From(child);
        }
    }
    return {};
}

std::vector<XmlNode> XmlDocument::Children(XmlNode parent) const
{
    std::vector<XmlNode> children;
    for (const pugi::xml_node child : Content::Of(parent)) {
        if (child.type() == pugi::node_element) {
            children.push_back(Content::From(child));
        }
    }
    return children;
}

XmlNode XmlDocument::AddChild(XmlNode parent, std::string_view name)
{
    return Depth(Content::Of(parent)) == MaxDepth ? XmlNode() : Content::Add(Content::Of(parent), name);
}

std::string XmlDocument::Text(XmlNode node) const
{
    std::string text;
    for (const pugi::xml_node piece : Content::Of(node)) {
        if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) {
            text += piece.value();
        }
    }
    return text;
}

Status XmlDocument::SetText(XmlNode node, std::string_view text)
{
    pugi::xml_node element = Content::Of(node);
    if (!element) {
        return ERROR_PARAMETER;
    }
    const std::string cleaned = Cleaned(text);
    element.remove_children();
    return cleaned.empty() || element.append_child(pugi::node_pcdata).set_value(cleaned.c_str()) ? OK : ERROR_MEMORY;
}

Status XmlDocument::ChildText(XmlNode parent, std::string_view name, char* text, std::size_t capacity) const noexcept
{
    if (capacity != 0) {
        *text = '\0';
    }
    const XmlNode child = Child(parent, name);
    if (!child) {
        return ERROR_NOT_FOUND;
    }
    std::size_t length = 0;
    for (const pugi::xml_node piece : Content::Of(child)) {
        if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) {
            length += std::strlen(piece.value());
        }
    }
    if (length >= capacity) {
        return ERROR_CAPACITY;
    }
    for (const pugi::xml_node piece : Content::Of(child)) {
        if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) {
            text = std::copy_n(piece.value(), std::strlen(piece.value()), text);
        }
    }
    *text = '\0';
    return OK;
}

Status XmlDocument::SetChildText(XmlNode parent, std::string_view name, std::string_view text) noexcept
{
    try {
        if (!parent || !IsName(name)) {
            return ERROR_PARAMETER;
        }
        XmlNode child = Child(parent, name);
        if (!child) {
            child = AddChild(parent, name);
        }
        if (!child) {
            return Depth(Content::Of(parent)) == MaxDepth ? ERROR_LIMIT : ERROR_MEMORY;
        }
        return SetText(child, text);
    } catch (const std::bad_alloc&) {
        return ERROR_MEMORY;
    }
}

std::optional<std::string> XmlDocument::Attribute(XmlNode node, std::string_view name) const
{
    for (const pugi::xml_attribute attribute : Content::Of(node).attributes()) {
        if (attribute.name() == name) {
            return attribute.value();
        }
    }
    return std::nullopt;
}

Status XmlDocument::SetAttribute(XmlNode node, std::string_view name, std::string_view value)
{
    pugi::xml_node element = Content::Of(node);
    if (!element || !IsName(name)) {
        return ERROR_PARAMETER;
    }
    const std::string key(name);
    const std::string cleaned = Cleaned(value);
    pugi::xml_attribute attribute = element.attribute(key.c_str());
    if (!attribute) {
        const auto attributes = element.attributes();
        if (std::distance(attributes.begin(), attributes.end()) >= static_cast<std::ptrdiff_t>(MaxAttributes)) {
            return ERROR_LIMIT;
        }
        attribute = element.append_attribute(key.c_str());
    }
    return attribute.set_value(cleaned.c_str()) ? OK : ERROR_MEMORY;
}

}  // namespace Nucleo
