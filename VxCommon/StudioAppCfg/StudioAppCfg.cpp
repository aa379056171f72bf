#include <algorithm>
#include <charconv>
#include <limits>
#include <new>
#include <utility>

#include <Nucleo/XmlDocument.h>
#include <TesselLib/LocalFile.h>
#include <VxApi/Exception.h>
#include <VxCommon/StudioAppCfg/StudioAppCfg.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

constexpr const char* rootName = "StudioAppCfg";
constexpr std::size_t maxWarnings = 10;

using Level = IStudioAppCfgManager::DebugLevels;
constexpr std::pair<Level, std::string_view> levels[] = {
    {Level::Error, "error"}, {Level::Warning, "warning"}, {Level::Info, "info"}};

struct Bounds
{
    std::uint32_t lowest;
    std::uint32_t highest;
};
constexpr Bounds anyPort{0, std::numeric_limits<std::uint16_t>::max()};
constexpr Bounds usedPort{1, std::numeric_limits<std::uint16_t>::max()};
constexpr Bounds interval{100, 60000};

/// The text as far as a message has room for it.
std::string Shown(std::string_view text)
{
    constexpr std::size_t longest = 60;
    return text.size() <= longest ? std::string(text) : std::string(text, 0, longest) + "...";
}

[[noreturn]] void Refuse(const char* name, const std::string& expected, std::string_view value)
{
    VX_THROW(ERROR_PARAMETER, "%s must be %s, but is \"%s\".", name, expected, Shown(value));
}

[[noreturn]] void RefuseNumber(const char* name, const Bounds& bounds, std::string_view value)
{
    Refuse(name, "a whole number from " + std::to_string(bounds.lowest) + " to " + std::to_string(bounds.highest),
           value);
}

void CheckNumber(const char* name, const Bounds& bounds, std::uint32_t value)
{
    if (value < bounds.lowest || value > bounds.highest) {
        RefuseNumber(name, bounds, std::to_string(value));
    }
}

std::uint32_t ToNumber(const char* name, const Bounds& bounds, std::string_view text)
{
    std::uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || last != end || value < bounds.lowest || value > bounds.highest) {
        RefuseNumber(name, bounds, text);
    }
    return value;
}

std::uint16_t ToPort(const char* name, const Bounds& bounds, std::string_view text)
{
    return static_cast<std::uint16_t>(ToNumber(name, bounds, text));
}

bool ToBool(const char* name, std::string_view text)
{
    if (text != "true" && text != "false") {
        Refuse(name, "true or false", text);
    }
    return text == "true";
}

std::string FromBool(bool value)
{
    return value ? "true" : "false";
}

TesselLib::IpAddress ToAddress(const char* name, std::string_view text)
{
    TesselLib::IpAddress address;
    if (TesselLib::IpAddress_Parse(&address, text) != OK) {
        Refuse(name, "an address such as 192.168.1.10", text);
    }
    return address;
}

std::string FromAddress(const TesselLib::IpAddress& address)
{
    char text[46] = "";
    TesselLib::IpAddress_Format(address, text, sizeof text);
    return text;
}

Level ToLevel(const char* name, std::string_view text)
{
    const auto* found = std::find_if(std::begin(levels), std::end(levels), [&](auto& l) { return l.second == text; });
    if (found == std::end(levels)) {
        Refuse(name, "error, warning or info", text);
    }
    return found->first;
}

std::string FromLevel(Level level)
{
    const auto* found = std::find_if(std::begin(levels), std::end(levels), [&](auto& l) { return l.first == level; });
    return found != std::end(levels) ? std::string(found->second) : std::to_string(static_cast<std::uint64_t>(level));
}

/// How a setting stands in the document.
struct Element
{
    const char* name;
    void (*read)(StudioAppCfg& cfg, const char* name, std::string_view text);
    std::string (*write)(const StudioAppCfg& cfg);
};

using Cfg = StudioAppCfg;
using Name = const char*;
using Text = std::string_view;

constexpr Element elements[] = {
    {"ControlPort", [](Cfg& cfg, Name name, Text text) { cfg.SetControlPort(ToPort(name, anyPort, text)); },
     [](const Cfg& cfg) { return std::to_string(cfg.ControlPort()); }},
    {"WebPort", [](Cfg& cfg, Name name, Text text) { cfg.SetWebPort(ToPort(name, anyPort, text)); },
     [](const Cfg& cfg) { return std::to_string(cfg.WebPort()); }},
    {"IpAddress", [](Cfg& cfg, Name name, Text text) { cfg.SetIpAddress(ToAddress(name, text)); },
     [](const Cfg& cfg) { return FromAddress(cfg.IpAddress()); }},
    {"DiscoveryEnabled", [](Cfg& cfg, Name name, Text text) { cfg.SetDiscoveryEnabled(ToBool(name, text)); },
     [](const Cfg& cfg) { return FromBool(cfg.DiscoveryEnabled()); }},
    {"DiscoveryPort", [](Cfg& cfg, Name name, Text text) { cfg.SetDiscoveryPort(ToPort(name, usedPort, text)); },
     [](const Cfg& cfg) { return std::to_string(cfg.DiscoveryPort()); }},
    {"DiscoveryInterval",
     [](Cfg& cfg, Name name, Text text) { cfg.SetDiscoveryInterval(ToNumber(name, interval, text)); },
     [](const Cfg& cfg) { return std::to_string(cfg.DiscoveryInterval()); }},
    {"DebugEnabled", [](Cfg& cfg, Name name, Text text) { cfg.SetDebugEnabled(ToBool(name, text)); },
     [](const Cfg& cfg) { return FromBool(cfg.DebugEnabled()); }},
    {"DebugLevel", [](Cfg& cfg, Name name, Text text) { cfg.SetDebugLevel(ToLevel(name, text)); },
     [](const Cfg& cfg) { return FromLevel(cfg.DebugLevel()); }},
};

bool DiffersInCaseAlone(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

/// Says that nothing is taken from an element of this name.
std::string UnknownElement(std::string_view name)
{
    const auto* meant = std::find_if(std::begin(elements), std::end(elements),
                                     [&](auto& e) { return DiffersInCaseAlone(e.name, name); });
    return "The element " + Shown(name) + " is not known and is passed over" +
           (meant != std::end(elements) ? std::string("; did you mean ") + meant->name + "?" : ".");
}

/// Whether the text is UTF-16: it begins with the mark of that, or with a character of two bytes.
bool IsUtf16(std::string_view text)
{
    using namespace std::string_view_literals;
    return text.starts_with("\xFF\xFE"sv) || text.starts_with("\xFE\xFF"sv) || text.starts_with("<\0"sv) ||
           text.starts_with("\0<"sv);
}

/// A link that leads nowhere would count as a missing file, and be replaced by one.
void CheckLink(const std::filesystem::path& file)
{
    std::error_code error;
    if (std::filesystem::is_symlink(std::filesystem::symlink_status(file, error)) &&
        std::filesystem::status(file, error).type() == std::filesystem::file_type::not_found) {
        VX_THROW(ERROR_NOT_FOUND, "\"%s\" is a link to \"%s\", which does not exist.", file.string(),
                 std::filesystem::read_symlink(file, error).string());
    }
}

/// Gives a lack of memory its status.
template <class Action>
auto WithMemory(Action action)
{
    try {
        return action();
    } catch (const std::bad_alloc&) {
        VX_THROW(ERROR_MEMORY);
    }
}

void CheckTogether(const StudioAppCfg& cfg)
{
    if (cfg.ControlPort() != 0 && cfg.ControlPort() == cfg.WebPort()) {
        VX_THROW(ERROR_PARAMETER, "ControlPort and WebPort must be different, or ControlPort 0, but both are \"%u\".",
                 cfg.WebPort());
    }
}

/// People who edit the file leave blanks around a value.
std::string_view Trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(blanks) + 1));
    return text;
}

}  // namespace

void StudioAppCfg::SetIpAddress(const TesselLib::IpAddress& address)
{
    if (address.version != TesselLib::IpVersion::V4) {
        Refuse("IpAddress", "an address of version 4", FromAddress(address));
    }
    ipAddress_ = address;
}

void StudioAppCfg::SetDiscoveryPort(std::uint16_t port)
{
    CheckNumber("DiscoveryPort", usedPort, port);
    discoveryPort_ = port;
}

void StudioAppCfg::SetDiscoveryInterval(std::uint32_t milliseconds)
{
    CheckNumber("DiscoveryInterval", interval, milliseconds);
    discoveryInterval_ = milliseconds;
}

void StudioAppCfg::SetDebugLevel(DebugLevels level)
{
    debugLevel_ = ToLevel("DebugLevel", FromLevel(level));
}

std::vector<unsigned char> StudioAppCfg::Write() const
{
    return WithMemory([this] { return ToBytes(); });
}

std::vector<unsigned char> StudioAppCfg::ToBytes() const
{
    CheckTogether(*this);
    Nucleo::XmlDocument document;
    Nucleo::XmlNode root;
    if (document_.empty()) {
        root = document.CreateRoot(rootName);
        VX_CHECK(root ? OK : ERROR_MEMORY);
    } else {
        VX_CHECK(document.Parse(document_));
        root = document.Root();
    }
    for (const Element& element : elements) {
        VX_CHECK(document.SetChildText(root, element.name, element.write(*this)));
    }
    const std::string text = document.ToText();
    if (text.size() > Nucleo::XmlDocument::MaxSize) {
        VX_THROW(ERROR_LIMIT, "The configuration has %llu bytes, more than %llu.", text.size(),
                 Nucleo::XmlDocument::MaxSize);
    }
    return {text.begin(), text.end()};
}

void StudioAppCfg::Read(const void* data, std::size_t size)
{
    WithMemory([&] { *this = FromText({static_cast<const char*>(data), size}); });
}

StudioAppCfg StudioAppCfg::FromText(std::string_view text)
{
    Nucleo::XmlDocument document;
    if (IsUtf16(text)) {
        VX_THROW(ERROR_FORMAT, "The configuration must be a text in UTF-8, but is one in UTF-16.");
    }
    if (const Status status = document.Parse(text); status != OK) {
        VX_THROW(status, "The configuration is no XML document that can be read: %s.",
                 std::string(Nucleo::StatusText(status)));
    }
    if (const std::string name = document.Name(document.Root()); name != rootName) {
        VX_THROW(ERROR_FORMAT, "The configuration's root element must be %s, but is %s.", rootName, name);
    }
    StudioAppCfg read;
    std::vector<std::string> seen;
    for (const Nucleo::XmlNode child : document.Children(document.Root())) {
        const std::string name = document.Name(child);
        const auto* element =
            std::find_if(std::begin(elements), std::end(elements), [&](auto& known) { return known.name == name; });
        if (element == std::end(elements)) {
            if (read.warnings_.size() < maxWarnings) {
                read.warnings_.push_back(UnknownElement(name));
            }
            continue;
        }
        if (std::find(seen.begin(), seen.end(), name) != seen.end()) {
            VX_THROW(ERROR_PARAMETER, "%s must be there once, but is there again.", name);
        }
        seen.push_back(name);
        if (!document.Children(child).empty()) {
            VX_THROW(ERROR_PARAMETER, "%s must hold a value, but holds elements.", name);
        }
        const std::string value = document.Text(child);
        element->read(read, element->name, Trimmed(value));
    }
    CheckTogether(read);
    read.document_ = text;
    return read;
}

void StudioAppCfg::Load(const std::filesystem::path& file)
{
    CheckLink(file);
    std::vector<std::uint8_t> content;
    const Status status = TesselLib::LocalFile_Read(file, Nucleo::XmlDocument::MaxSize, &content);
    if (status == ERROR_NOT_FOUND) {
        const StudioAppCfg defaults;
        defaults.Save(file);
        *this = defaults;
        return;
    }
    if (status != OK) {
        VX_THROW(status, "\"%s\" cannot be read: %s.", file.string(), std::string(Nucleo::StatusText(status)));
    }
    try {
        Read(content.data(), content.size());
    } catch (const Vx::Exception& exception) {
        VX_THROW(exception.Status(), "\"%s\" cannot be used: %s", file.string(), exception.what());
    }
}

void StudioAppCfg::Save(const std::filesystem::path& file) const
{
    CheckLink(file);
    const std::vector<unsigned char> text = Write();
    if (const Status status = TesselLib::LocalFile_Replace(file, text.data(), text.size()); status != OK) {
        VX_THROW(status, "\"%s\" cannot be written: %s.", file.string(), std::string(Nucleo::StatusText(status)));
    }
}

}  // namespace VxCommon
