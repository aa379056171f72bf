#include <algorithm>
#include <array>

#include <Nucleo/Path.h>
#include <Nucleo/Stream.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/NodeStorage.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{
namespace
{

constexpr std::string_view userDirectory = "/user";
constexpr std::string_view forbiddenCharacters = ":*?\"<>|";
constexpr std::size_t pathCapacity = 512;
constexpr std::size_t extensionCapacity = 16;
constexpr std::size_t strippedCapacity = 256;

std::size_t FindForbidden(const std::string& name)
{
    const std::size_t found = name.find_first_of(forbiddenCharacters);
    if (found != std::string::npos) {
        Vx::Logging::Tagged(Vx::Logging::Level::Warning, "PersistManager",
                            "The file name %1$s contains an invalid character: %2$s", name,
                            std::string(1, name[found]));
    }
    return found;
}

// Throws ERROR_PARAMETER at `location` when `name` holds a forbidden character.
void RequireValid(const Vx::Location& location, const std::string& name)
{
    if (const std::size_t found = FindForbidden(name); found != std::string::npos) {
        VX_THROW_AT(location, ERROR_PARAMETER, "The file name %s contains an invalid character: %s", name,
                    std::string(1, name[found]));
    }
}

// Throws ERROR_PARAMETER at `location` when no file of this name may be made.
void RequireWritable(const Vx::Location& location, const std::string& name)
{
    if (name.size() > NodeStorage::MaxFileNameLength) {
        constexpr const char* text = "File name exceeds max length (%1$u).";
        constexpr unsigned limit = NodeStorage::MaxFileNameLength;
        Vx::Logging::Tagged(Vx::Logging::Level::Error, "sensor", text, limit);
        VX_THROW_AT(location, ERROR_PARAMETER, text, limit);
    }
    RequireValid(location, name);
}

// A name's path on the storage.
class UserPath
{
public:
    UserPath(const Vx::Location& location, const std::string& name)
    {
        const Status status = Nucleo::Path_Combine(buffer_, sizeof buffer_, userDirectory, name, &length_);
        if (status != OK) {
            VX_THROW_AT(location, status, "The file name of %llu characters is too long for a path.", name.size());
        }
    }

    std::string_view View() const { return {buffer_, length_}; }

private:
    char buffer_[pathCapacity];
    std::size_t length_ = 0;
};

// Throws `status` at `location`, naming file and deed, unless it is OK.
void CheckFile(const Vx::Location& location, Status status, const char* deed, const std::string& name)
{
    if (status != OK) {
        VX_THROW_AT(location, status, "File '%s' cannot be %s: %s.", name, deed,
                    std::string(Nucleo::StatusText(status)));
    }
}

bool Extension(const std::string& name, std::string& extension)
{
    char buffer[extensionCapacity];
    std::size_t length = 0;
    if (Nucleo::Path_Extension(buffer, sizeof buffer, name, &length) != OK) {
        return false;
    }
    extension.assign(buffer, length);
    return true;
}

}  // namespace

TesselLib::Storage& NodeStorage::Storage() const
{
    return static_cast<TesselLib::Node*>(system_.LocalNode())->Storage();
}

std::vector<unsigned char> NodeStorage::ReadFile(const std::string& name) const
{
    RequireValid(VX_HERE, name);
    if (!IsThere(VX_HERE, name)) {
        VX_THROW(ERROR_NOT_FOUND, "File '%s' does not exist.", name);
    }
    const UserPath path(VX_HERE, name);
    if (!Storage().FileExists(path.View())) {
        return {};
    }
    Nucleo::Handle<Nucleo::MemoryStream> content;
    VX_CHECK(Nucleo::MemoryStream_Construct(content.Receive()));
    CheckFile(VX_HERE, Storage().Download(path.View(), *content), "read", name);
    return content->TakeContent();
}

void NodeStorage::WriteFile(const std::string& name, const unsigned char* data, unsigned long long size)
{
    RequireWritable(VX_HERE, name);
    const UserPath path(VX_HERE, name);
    CheckFile(VX_HERE, Storage().Upload(path.View(), data, size), "written", name);
}

void NodeStorage::CopyFile(const std::string& source, const std::string& target)
{
    if (!FileExists(source)) {
        VX_THROW(ERROR_NOT_FOUND, "File '%s' does not exist.", source);
    }
    if (IsThere(VX_HERE, target)) {
        VX_THROW(ERROR_ALREADY_EXISTS, "File '%s' exists already.", target);
    }
    const std::vector<unsigned char> content = ReadFile(source);
    WriteFile(target, content.data(), content.size());
}

bool NodeStorage::IsThere(const Vx::Location& location, const std::string& name) const
{
    if (!FileExists(name)) {
        return false;
    }
    const UserPath path(location, name);
    std::uint64_t size = 0;
    const Status status = Storage().FileSize(path.View(), &size);
    if (status != ERROR_NOT_FOUND) {
        CheckFile(location, status, "looked for", name);
    }
    return status == OK;
}

std::string NodeStorage::DiagnosisName(const Vx::Location& location, const std::string& name,
                                       unsigned long long maxCopies) const
{
    if (!FileExists(name)) {
        VX_THROW_AT(location, ERROR_NOT_FOUND, "File '%s' does not exist.", name);
    }
    std::string candidate;
    for (unsigned long long i = 1; i <= maxCopies; ++i) {
        candidate = name + ".d" + (i < 10 ? "0" : "") + std::to_string(i);
        if (!IsThere(location, candidate)) {
            break;
        }
    }
    return candidate;
}

std::string NodeStorage::CopyForDiagnosis(const std::string& name, unsigned long long maxCopies)
{
    std::string copy = DiagnosisName(VX_HERE, name, maxCopies);
    if (!copy.empty()) {
        const std::vector<unsigned char> content = ReadFile(name);
        WriteFile(copy, content.data(), content.size());
        Vx_Debug_Log(Info, "File '%s' saved for diagnosis.", copy);
    }
    return copy;
}

std::string NodeStorage::MoveForDiagnosis(const std::string& name, unsigned long long maxCopies)
{
    std::string copy = DiagnosisName(VX_HERE, name, maxCopies);
    if (!copy.empty()) {
        RequireWritable(VX_HERE, copy);
        const UserPath from(VX_HERE, name);
        const UserPath to(VX_HERE, copy);
        CheckFile(VX_HERE, Storage().Move(from.View(), to.View()), "kept for diagnosis", name);
        Vx_Debug_Log(Info, "File '%s' saved for diagnosis.", copy);
    }
    return copy;
}

void NodeStorage::DeleteFile(const std::string& name)
{
    RequireValid(VX_HERE, name);
    const UserPath path(VX_HERE, name);
    // The storage takes "/user/a" for the file "a": a bare name of that form would delete another file than its own.
    if (TesselLib::StorageName(name) != TesselLib::StorageName(path.View())) {
        CheckFile(VX_HERE, ERROR_NAME, "deleted", name);
    }
    CheckFile(VX_HERE, Storage().Delete(name), "deleted", name);
}

bool NodeStorage::FileExists(const std::string& name) const
{
    RequireValid(VX_HERE, name);
    const UserPath path(VX_HERE, name);
    return Storage().FileExists(path.View());
}

unsigned long long NodeStorage::FileSize(const std::string& name) const
{
    RequireValid(VX_HERE_AS("VxCommon::NodeStorage::FileExists"), name);
    const UserPath path(VX_HERE, name);
    if (!Storage().FileExists(path.View())) {
        VX_THROW(ERROR_NOT_FOUND, "File '%s' does not exist.", name);
    }
    std::uint64_t size = 0;
    CheckFile(VX_HERE, Storage().FileSize(path.View(), &size), "sized", name);
    return size;
}

std::vector<std::string> NodeStorage::ListFiles(const std::string& extension) const
{
    RequireValid(VX_HERE, extension);
    std::vector<std::string> names;
    VX_CHECK(Storage().List(userDirectory, &names));
    if (!extension.empty()) {
        std::erase_if(names, [&extension, found = std::string()](const std::string& name) mutable {
            return !Extension(name, found) || found != extension;
        });
    }
    return names;
}

bool NodeStorage::IsFileNameValid(const std::string& name)
{
    return FindForbidden(name) == std::string::npos;
}

bool NodeStorage::IsFileNameCharValid(char c)
{
    return forbiddenCharacters.find(c) == std::string_view::npos;
}

std::string NodeStorage::GetExtension(const std::string& name)
{
    std::string extension;
    Extension(name, extension);
    return extension;
}

std::string NodeStorage::StripExtension(const std::string& name)
{
    char buffer[strippedCapacity];
    std::size_t length = 0;
    VX_CHECK(Nucleo::Path_StripExtension(buffer, sizeof buffer, name, &length));
    return {buffer, length};
}

std::string NodeStorage::AppendExtension(const std::string& name, const std::string& extension)
{
    return name + "." + extension;
}

std::string NodeStorage::Trim(const std::string& text, const std::string& characters)
{
    std::array<bool, 256> trimmed{};
    for (const char c : characters) {
        trimmed[static_cast<unsigned char>(c)] = true;
    }
    const auto kept = [&trimmed](char c) { return !trimmed[static_cast<unsigned char>(c)]; };
    const auto first = std::find_if(text.begin(), text.end(), kept);
    const auto last = std::find_if(text.rbegin(), std::make_reverse_iterator(first), kept).base();
    return {first, last};
}

}  // namespace VxCommon
