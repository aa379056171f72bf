#include "HostOptions.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>

#include <VxApi/Exception.h>

#include "ServiceConfiguration.h"
#include "Version.h"

namespace VxHost
{
namespace
{

using Application = VxCommon::IPlatformAttributes::ApplicationType;

constexpr std::uint32_t maxNodes = 256;
constexpr std::size_t maxTokenSize = 4096;

/// The file's text without line ends and blanks around it.
std::string ReadToken(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(maxTokenSize + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file.is_open() || file.bad()) {
        throw CLI::ValidationError("--token-file",
                                   "cannot read \"" + path + "\": " + std::generic_category().message(errno));
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > maxTokenSize) {
        throw CLI::ValidationError("--token-file",
                                   "\"" + path + "\" is larger than " + std::to_string(maxTokenSize) + " bytes");
    }
    constexpr const char* blanks = " \t\r\n";
    text.erase(text.find_last_not_of(blanks) + 1);
    text.erase(0, text.find_first_not_of(blanks));
    if (text.empty()) {
        throw CLI::ValidationError("--token-file", "\"" + path + "\" holds no token");
    }
    return text;
}

/// Takes decimal whole numbers from `lowest` to `highest`, and leaves them without leading zeros. The parser would take
/// those for octal numbers, and make the largest number of a minus sign and of what is beyond 64 bits.
CLI::Validator WholeNumber(std::uint64_t lowest, std::uint64_t highest = std::numeric_limits<std::uint64_t>::max())
{
    return {[=](std::string& text) -> std::string {
                std::uint64_t value = 0;
                const char* const end = text.data() + text.size();
                const auto [last, error] = std::from_chars(text.data(), end, value);
                if (error != std::errc() || last != end || value < lowest || value > highest) {
                    return "must be a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest) +
                           ", but is \"" + text + "\"";
                }
                text = std::to_string(value);
                return "";
            },
            ""};
}

/// Takes the keys of `values`.
template <class T>
CLI::Validator OneOf(const std::map<std::string, T>& values)
{
    std::string expected;
    for (const auto& [key, value] : values) {
        expected += (expected.empty() ? "" : ", ") + key;
    }
    return {[expected, values](const std::string& text) {
                return values.contains(text) ? "" : "must be one of " + expected + ", but is \"" + text + "\"";
            },
            ""};
}

/// An option that is a time in milliseconds.
void AddTime(CLI::App& app, const char* name, std::chrono::milliseconds& value, const char* description)
{
    app.add_option_function<std::int64_t>(
           name, [&value](std::int64_t count) { value = std::chrono::milliseconds(count); }, description)
        ->transform(WholeNumber(1, 86'400'000))
        ->type_name("MS")
        ->default_str(std::to_string(value.count()))
        ->group("Limits of the server");
}

template <class T>
void AddLimit(CLI::App& app, const char* name, T& value, const char* description)
{
    app.add_option(name, value, description)
        ->type_name("N")
        ->transform(WholeNumber(0))
        ->capture_default_str()
        ->group("Limits of the server");
}

void AddServerLimits(CLI::App& app, VxRest::HttpServerOptions& server)
{
    AddLimit(app, "--max-header-bytes", server.headerBytes, "Largest header of a request");
    AddLimit(app, "--max-header-fields", server.headerFields, "Most fields in a header");
    AddLimit(app, "--max-body-bytes", server.bodyBytes, "Largest body of a request");
    AddLimit(app, "--max-all-body-bytes", server.allBodyBytes, "Most body bytes of all requests at a time");
    AddLimit(app, "--max-json-depth", server.jsonDepth, "Deepest nesting of a document");
    AddLimit(app, "--max-json-values", server.jsonValues, "Most values in a document");
    AddLimit(app, "--max-connections", server.connections, "Most open connections");
    AddLimit(app, "--max-notice-streams", server.noticeStreams, "Most open streams of notices");
    AddLimit(app, "--notice-history", server.noticeHistory, "Notices kept for clients that come back");
    AddLimit(app, "--notice-queue", server.noticeQueue, "Notices waiting for a slow client before it is cut off");
    AddLimit(app, "--work-queue", server.workQueue, "Requests waiting for a worker");
    AddLimit(app, "--workers", server.workers, "Threads for requests");
    AddTime(app, "--header-timeout", server.headerDeadline, "Time for a request's header");
    AddTime(app, "--body-timeout", server.bodyDeadline, "Time for a request's body, beside its size at --body-rate");
    AddLimit(app, "--body-rate", server.bodyBytesPerSecond, "Bytes a second that a body may take at least");
    AddTime(app, "--write-timeout", server.writeDeadline, "Time for sending an answer");
    AddTime(app, "--idle-timeout", server.idleDeadline, "Time that a connection may be idle");
    AddTime(app, "--heartbeat", server.noticeHeartbeat, "Time between signs of life on notice streams");
}

void AddStorageLimits(CLI::App& app, StorageLimits& storage)
{
    const auto addPercent = [&app](const char* name, std::uint32_t& value, const char* description) {
        app.add_option(name, value, description)
            ->type_name("PERCENT")
            ->transform(WholeNumber(0, 100))
            ->capture_default_str()
            ->group("Problems");
    };
    addPercent("--storage-warning", storage.warning, "A storage fuller than this is a potential problem");
    addPercent("--storage-limit", storage.blocking, "A storage fuller than this is a blocking problem");
    app.add_option("--storage-size", storage.size,
                   "Bytes that the data folder may take: jobs beyond it are refused; 0 for all of its file system")
        ->type_name("N")
        ->transform(WholeNumber(0))
        ->capture_default_str()
        ->group("Problems");
}

void CheckTogether(const StorageLimits& storage)
{
    if (storage.warning > storage.blocking) {
        throw CLI::ValidationError("--storage-warning", "must not be above --storage-limit, which is " +
                                                            std::to_string(storage.blocking) + ", but is " +
                                                            std::to_string(storage.warning));
    }
}

/// What was wrong with the command line, for its user.
std::string Explain(const CLI::App& app, const CLI::ParseError& mistake)
{
    std::string said = mistake.what();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&mistake) != nullptr && said.ends_with(" missing")) {
        // It begins with the option's name and a colon.
        const std::string name = said.substr(0, said.find(':'));
        return name + ": needs a value: " + app.get_option(name)->get_description();
    }
    return said;
}

}  // namespace

std::optional<ExitCode> ParseOptions(int count, const char* const* arguments, HostOptions& options)
{
    CLI::App app("vxhost is a virtual controller: it keeps settings and jobs in a folder and serves them over REST.",
                 "vxhost");
    app.footer(
        "It ends after SIGINT, SIGTERM and SIGHUP, the last one unless it was ignored at the start. Exit codes:\n"
        "0 success, 2 unusable options, 3 the data folder cannot be used, 4 the address or port cannot be used,\n"
        "5 state could not be saved at the end, 1 anything else.");
    app.set_version_flag("--version", std::string("vxhost ") + Version, "Print the version and end");

    std::string dataFolder = options.dataFolder.string();
    app.add_option("--data", dataFolder, "Folder that holds the state; made when it is missing")
        ->type_name("DIR")
        ->capture_default_str()
        ->check([](const std::string& text) { return text.empty() ? "must name a folder, but is empty" : ""; });
    const std::map<std::string, Application> applications{{"accelerator", Application::AccelixFirmware},
                                                          {"sensor", Application::PixoraFirmware},
                                                          {"service", Application::PixoraService}};
    std::string application = "sensor";
    app.add_option("--app", application,
                   "What to run as: accelerator, sensor, or service, which takes port, address and log level from "
                   "StudioAppCfg.xml in the data folder where they are not given here")
        ->type_name("APP")
        ->capture_default_str()
        ->check(OneOf(applications));
    const CLI::Option* address =
        app.add_option("--address", options.server.address, "IP address to listen on; any but loopback needs a token")
            ->type_name("A")
            ->capture_default_str();
    const CLI::Option* port = app.add_option("--port", options.server.port, "Port to listen on; 0 for one that is free")
                                  ->type_name("N")
                                  ->transform(WholeNumber(0, std::numeric_limits<std::uint16_t>::max()))
                                  ->capture_default_str();
    app.add_option("--nodes", options.nodes, "Simulated nodes beside the local one, 256 at most")
        ->type_name("N")
        ->transform(WholeNumber(0, maxNodes))
        ->capture_default_str();
    std::string tokenFile;
    const CLI::Option* token =
        app.add_option("--token-file", tokenFile, "File with the bearer token that requests must carry")
            ->type_name("F");
    const std::map<std::string, Vx::Logging::Level> levels{{"error", Vx::Logging::Level::Error},
                                                           {"warning", Vx::Logging::Level::Warning},
                                                           {"info", Vx::Logging::Level::Info}};
    std::string level = "warning";
    const CLI::Option* logLevel =
        app.add_option("--log-level", level, "What is logged to stderr: error, warning or info")
            ->type_name("L")
            ->capture_default_str()
            ->check(OneOf(levels));
    app.add_flag("--filter-public-log", options.filterPublicLog,
                 "Show each text once only in the public log, until that is cleared");
    AddStorageLimits(app, options.storage);
    AddServerLimits(app, options.server);

    try {
        app.parse(count, arguments);
        CheckTogether(options.storage);
        options.dataFolder = dataFolder;
        options.logLevel = levels.at(level);
        options.application = applications.at(application);
        if (options.application == Application::PixoraService) {
            ApplyServiceConfiguration(
                options, {static_cast<bool>(*address), static_cast<bool>(*port), static_cast<bool>(*logLevel)});
        }
        if (*token) {
            options.server.token = ReadToken(tokenFile);
        }
        return std::nullopt;
    } catch (const CLI::Success& request) {  // --help or --version.
        app.exit(request);
        return ExitCode::Success;
    } catch (const CLI::ParseError& mistake) {
        std::fprintf(stderr, "vxhost: %s\nvxhost --help lists the options.\n", Explain(app, mistake).c_str());
        return ExitCode::Usage;
    } catch (const Vx::Exception& mistake) {
        std::fprintf(stderr, "vxhost: %s\n", mistake.what());
        return ExitCode::Usage;
    }
}

}  // namespace VxHost
