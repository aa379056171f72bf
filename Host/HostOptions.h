#pragma once
// What vxhost is told on its command line.

#include <cstdint>
#include <filesystem>
#include <optional>

#include <VxApi/Logging.h>
#include <VxRest/HttpServer.h>

namespace VxHost
{

/// How vxhost ends.
enum class ExitCode : int
{
    Success = 0,
    Failure = 1,  ///< Anything else.
    Usage = 2,    ///< Unusable options, or an unusable token file.
    Data = 3,     ///< The data folder cannot be used, or another vxhost uses it.
    Network = 4,  ///< The address or port cannot be listened on.
    Unsaved = 5,  ///< State could not be saved at the end.
};

struct HostOptions
{
    std::filesystem::path dataFolder = "vxhost-data";
    std::uint32_t nodes = 0;  ///< Simulated nodes beside the local one.
    Vx::Logging::Level logLevel = Vx::Logging::Level::Warning;
    VxRest::HttpServerOptions server;
};

/// Reads the command line and the token file that it names. Gives the exit code with which to end at once: after --help
/// or --version, which print to stdout, and after a mistake, which is explained on stderr.
std::optional<ExitCode> ParseOptions(int count, const char* const* arguments, HostOptions& options);

}  // namespace VxHost
