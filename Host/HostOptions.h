#pragma once
// What vxhost is told on its command line.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <VxApi/Logging.h>
#include <VxCommon/PlatformAttributes/IPlatformAttributes.h>
#include <VxRest/HttpServer.h>

namespace VxHost
{

/// How vxhost ends.
enum class ExitCode : int
{
    Success = 0,
    Failure = 1,  ///< Anything else.
    Usage = 2,    ///< Unusable options, or an unusable file that they name or that configures the service.
    Data = 3,     ///< The data folder cannot be used, or another vxhost uses it.
    Network = 4,  ///< The address or port cannot be listened on.
    Unsaved = 5,  ///< State could not be saved at the end.
};

/// What the storage may take, and from when on a full one is a problem.
struct StorageLimits
{
    std::uint32_t warning = 90;   ///< Above this many percent it may become one.
    std::uint32_t blocking = 98;  ///< Above this many percent it is one.
    std::uint64_t size = 0;       ///< Bytes that the data folder may take; 0: what its file system has.
};

/// What there is to say of a configuration file once there is a log.
struct ConfigurationNotes
{
    std::string used;                   ///< Which file, and what came from it; empty when none was looked at.
    std::vector<std::string> warnings;  ///< A sentence each.
};

struct HostOptions
{
    std::filesystem::path dataFolder = "vxhost-data";
    VxCommon::IPlatformAttributes::ApplicationType application =
        VxCommon::IPlatformAttributes::ApplicationType::PixoraFirmware;
    std::uint32_t nodes = 0;  ///< Simulated nodes beside the local one.
    Vx::Logging::Level logLevel = Vx::Logging::Level::Warning;
    bool filterPublicLog = false;  ///< Whether the public log shows each text once only.
    ConfigurationNotes configuration;
    StorageLimits storage;
    VxRest::HttpServerOptions server;
};

/// Reads the command line, the token file that it names, and for the service its configuration file. Gives the exit
/// code with which to end at once: after --help or --version, which print to stdout, and after a mistake, which is
/// explained on stderr.
std::optional<ExitCode> ParseOptions(int count, const char* const* arguments, HostOptions& options);

}  // namespace VxHost
