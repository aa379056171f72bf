#include <new>
#include <optional>

#include <Nucleo/String.h>
#include <Nucleo/XmlDocument.h>
#include <VxApi/Exception.h>
#include <VxCommon/AppInfoCfg/AppInfoCfg.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

constexpr const char* rootName = "AppInfo";
constexpr const char* productionVersionName = "ProductionVersion";
constexpr const char* releaseTypeName = "ReleaseType";

/// The steps of one function. Each is reported under a line number of its own, which does not change with this source.
struct Steps
{
    const char* function;

    /// Carries a step out: something that answers a status or throws std::bad_alloc.
    template <class Step>
    void operator()(int line, Step step) const
    {
        Status status = ERROR_MEMORY;
        try {
            status = step();
        } catch (const std::bad_alloc&) {
            // The status says it.
        }
        Vx::Check(Vx::Location{"AppInfoCfg/AppInfoCfg", line, function}, status);
    }
};

}  // namespace

std::vector<unsigned char> AppInfoCfg::Write() const
{
    const Steps step{"VxCommon::AppInfoCfg::Write"};
    std::optional<Nucleo::XmlDocument> document;
    Nucleo::XmlNode root;
    Nucleo::Handle<Nucleo::String> text;
    step(24, [&] { return document.emplace(), OK; });
    step(25, [&] { return (root = document->CreateRoot(rootName)) ? OK : ERROR_MEMORY; });
    step(27, [&] { return document->SetChildText(root, productionVersionName, productionVersion_); });
    step(28, [&] { return document->SetChildText(root, releaseTypeName, releaseType_); });
    step(30, [&] { return Nucleo::String::Make(text.Receive(), {}, nullptr); });
    step(31, [&] { return text->Append(document->ToText()); });
    std::vector<unsigned char> bytes;
    step(31, [&] { return bytes.assign(text->View().begin(), text->View().end()), OK; });
    return bytes;
}

void AppInfoCfg::Read(const void* data, std::size_t size)
{
    const Steps step{"VxCommon::AppInfoCfg::Read"};
    Nucleo::Handle<Nucleo::String> text;
    std::optional<Nucleo::XmlDocument> document;
    char field[TextCapacity];
    const auto read = [&](const char* name, std::string& target) {
        const Status status = document->ChildText(document->Root(), name, field, sizeof field);
        if (status == OK) {
            target = field;
        }
        return status;
    };
    step(44, [&] { return Nucleo::String::Make(text.Receive(), {}, nullptr); });
    step(45, [&] { return text->Append({static_cast<const char*>(data), size}); });
    step(46, [&] { return document.emplace(), OK; });
    step(47, [&] { return document->Parse(text->View()); });
    step(51, [&] { return read(productionVersionName, productionVersion_); });
    step(53, [&] { return read(releaseTypeName, releaseType_); });
}

void AppInfoCfg::Read(const std::vector<unsigned char>& data)
{
    Read(data.data(), data.size());
}

}  // namespace VxCommon
