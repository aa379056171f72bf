#include "AppInfo.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include <Nucleo/Assembly.h>
#include <Nucleo/XmlDocument.h>
#include <TesselLib/LocalFile.h>
#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxCommon/AppInfoCfg/AppInfoCfg.h>

#include "Version.h"

namespace VxHost
{
namespace
{

using Vx::Logging::Level;

constexpr const char* fileName = "AppInfo.xml";
constexpr const char* releaseType = "Release";

Nucleo::Version ParseVersion(const std::string& text)
{
    Nucleo::Version version{};
    if (Nucleo::Version_Parse(text, &version) != Nucleo::OK) {
        VX_THROW(Nucleo::ERROR_FORMAT, "\"%s\" is no version", text);
    }
    return version;
}

bool IsNewer(const std::string& text, const std::string& than)
{
    const Nucleo::Version version = ParseVersion(text);
    const Nucleo::Version other = ParseVersion(than);
    return std::lexicographical_compare(std::begin(other.parts), std::end(other.parts), std::begin(version.parts),
                                        std::end(version.parts));
}

/// Whether the file can stay as it is.
bool Check(const std::filesystem::path& file)
{
    std::vector<std::uint8_t> bytes;
    const Nucleo::Status status = TesselLib::LocalFile_Read(file, Nucleo::XmlDocument::MaxSize, &bytes);
    if (status == Nucleo::ERROR_NOT_FOUND) {
        return false;
    }
    if (status != Nucleo::OK && status != Nucleo::ERROR_LIMIT) {
        Vx::Logging::Public(Level::Warning, "Start", "%s cannot be read now (%s) and is left as it is.", fileName,
                            std::string(Nucleo::StatusText(status)));
        return true;
    }
    try {
        VX_CHECK(status);
        VxCommon::AppInfoCfg found;
        found.Read(bytes);
        const std::string& version = found.ProductionVersion();
        if (IsNewer(version, Version)) {
            Vx::Logging::Public(Level::Warning, "Start",
                                "The data folder was used by version %s, which is newer than %s: what only that "
                                "version knows is passed over.",
                                version, Version);
            return true;  // So that the next start says it again.
        }
        if (version != Version) {
            Vx_Debug_Log(Info, "The data folder was used by version %s.", version);
        }
        return version == Version && found.ReleaseType() == releaseType;
    } catch (const std::exception& exception) {
        Vx::Logging::Public(Level::Warning, "Start",
                            "%s cannot be used (%s) and is replaced; which version has used the data folder is "
                            "not known.",
                            fileName, exception.what());
        return false;
    }
}

}  // namespace

void RecordAppInfo(const std::filesystem::path& dataFolder)
{
    const std::filesystem::path file = dataFolder / fileName;
    if (Check(file)) {
        return;
    }
    VxCommon::AppInfoCfg own;
    own.SetProductionVersion(Version);
    own.ReleaseType() = releaseType;
    const std::vector<unsigned char> bytes = own.Write();
    if (const Nucleo::Status status = TesselLib::LocalFile_Replace(file, bytes.data(), bytes.size());
        status != Nucleo::OK) {
        Vx::Logging::Public(Level::Warning, "Start", "%s cannot be written (%s).", fileName,
                            std::string(Nucleo::StatusText(status)));
    }
}

}  // namespace VxHost
