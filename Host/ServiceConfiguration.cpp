#include "ServiceConfiguration.h"

#include <system_error>

#include <VxCommon/StudioAppCfg/StudioAppCfg.h>

namespace VxHost
{
namespace
{

using VxCommon::StudioAppCfg;

std::filesystem::path FileOf(const HostOptions& options)
{
    return options.dataFolder / StudioAppCfg::FileName;
}

/// Without following the file's own meaning: what cannot be looked at is for Load to complain of.
bool IsMissing(const std::filesystem::path& file)
{
    std::error_code error;
    return std::filesystem::symlink_status(file, error).type() == std::filesystem::file_type::not_found;
}

}  // namespace

void ApplyServiceConfiguration(HostOptions& options, const NamedOptions& named)
{
    StudioAppCfg cfg;
    if (!IsMissing(FileOf(options))) {
        cfg.Load(FileOf(options));
    }
    if (!named.address) {
        char text[16];
        TesselLib::IpAddress_Format(cfg.IpAddress(), text, sizeof text);
        options.server.address = text;
    }
    if (!named.port) {
        options.server.port = cfg.WebPort();
    }
    if (!named.logLevel) {
        options.logLevel = cfg.DebugEnabled() ? cfg.DebugLevel() : Vx::Logging::Level::Error;
    }
}

void CreateServiceConfiguration(const HostOptions& options)
{
    if (IsMissing(FileOf(options))) {
        StudioAppCfg().Save(FileOf(options));
    }
}

}  // namespace VxHost
