#include <algorithm>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxApi/Params.h>

namespace Vx::Params
{

Group::Group(std::string title, std::string extendedType)
    : title_(std::move(title)), extendedType_(std::move(extendedType))
{}

nlohmann::json Group::Schema() const
{
    nlohmann::json schema = Structure::Schema();
    schema["title"] = title_;
    schema["extendedType"] = extendedType_;
    return schema;
}

nlohmann::json NodeToJson(const Group& group)
{
    return group.ToJson();
}

namespace Detail
{

void Reject(const std::string& name, const char* what)
{
    const std::string rest = " was set to be " + std::string(what) + ".";
    Logging::Tagged(Logging::Level::Warning, "Params validation", "%1$s" + rest, name);
    VX_THROW(Nucleo::ERROR_PARAMETER, "%s" + rest, name);
}

void RejectReadOnly(const std::string& name)
{
    VX_THROW(Nucleo::ERROR_PARAMETER, "%s is read-only.", name);
}

std::size_t Length(const std::string& text) noexcept
{
    // Characters of UTF-8: every byte but those that go on with one.
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace Detail
}  // namespace Vx::Params
