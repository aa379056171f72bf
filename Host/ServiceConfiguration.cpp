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

const char* NameOf(Vx::Logging::Level level)
{
    if (level == Vx::Logging::Level::Error) {
        return "error";
    }
    return level == Vx::Logging::Level::Warning ? "warning" : "info";
}

}  // namespace

void ApplyServiceConfiguration(HostOptions& options, const NamedOptions& named)
{
    const std::filesystem::path file = FileOf(options);
    StudioAppCfg cfg;
    const bool missing = IsMissing(file);
    if (!missing) {
        cfg.Load(file);
    }
    std::string taken;
    const auto note = [&taken](const std::string& text) { taken += (taken.empty() ? " " : ", ") + text; };
    if (!named.address) {
        char text[16];
        TesselLib::IpAddress_Format(cfg.IpAddress(), text, sizeof text);
        options.server.address = text;
        note("address " + options.server.address);
    }
    if (!named.port) {
        options.server.port = cfg.WebPort();
        note("port " + std::to_string(options.server.port));
    }
    if (!named.logLevel) {
        options.logLevel = cfg.DebugEnabled() ? cfg.DebugLevel() : Vx::Logging::Level::Error;
        note(std::string("log level ") + NameOf(options.logLevel));
    }
    options.configuration.used = "\"" + file.string() + "\"" +
                                 (missing ? ", which is missing and made with its defaults," : "") + " gives" +
                                 (taken.empty() ? " nothing: the command line gives all" : taken) + ".";
    for (const std::string& warning : cfg.Warnings()) {
        options.configuration.warnings.push_back("\"" + file.string() + "\": " + warning);
    }
}

void CreateServiceConfiguration(const HostOptions& options)
{
    if (IsMissing(FileOf(options))) {
        StudioAppCfg().Save(FileOf(options));
    }
}

}  // namespace VxHost
