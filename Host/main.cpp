// vxhost: options in, signals, exit code out.

#include <pthread.h>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <VxApi/Logging.h>

#include "ConsoleLog.h"
#include "Host.h"
#include "HostOptions.h"
#include "ProcessLog.h"
#include "Version.h"

namespace
{

using Vx::Logging::Level;
using VxHost::ExitCode;

constexpr const char* LogCategory = "Host";

/// Whether the program was started with this signal ignored, as nohup does with SIGHUP.
bool IsIgnored(int signal)
{
    struct sigaction action;
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Blocks the signals that end the host, in this thread and all that it will start: they wait until somebody asks for
/// them, so one that comes during the start or during the stop interrupts nothing.
sigset_t BlockEndSignals()
{
    std::signal(SIGPIPE, SIG_IGN);  // A reader of the log that goes away is no reason to end.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!IsIgnored(SIGHUP)) {
        sigaddset(&signals, SIGHUP);  // The terminal was closed.
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

std::string UrlOf(const std::string& address, unsigned port)
{
    const bool isVersion6 = address.find(':') != std::string::npos;
    return "http://" + (isVersion6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

void LogConfiguration(const VxHost::ConfigurationNotes& configuration)
{
    if (!configuration.used.empty()) {
        Vx::Logging::Public(Level::Info, LogCategory, "%s", configuration.used);
    }
    for (const std::string& warning : configuration.warnings) {
        Vx::Logging::Public(Level::Warning, LogCategory, "%s", warning);
    }
}

ExitCode Run(const VxHost::HostOptions& options, const sigset_t& endSignals)
{
    const VxHost::ProcessLog log(options.filterPublicLog);
    const VxHost::ConsoleLog console(options.logLevel);
    Vx::Logging::Public(Level::Info, LogCategory, "vxhost %s starts on the data folder \"%s\".", VxHost::Version,
                        options.dataFolder.string());
    LogConfiguration(options.configuration);
    VxHost::Host host(options);
    const std::string url = UrlOf(options.server.address, host.Port());
    Vx::Logging::Public(Level::Info, LogCategory, "vxhost listens on %s.", url);
    std::printf("vxhost: listening on %s\n", url.c_str());
    std::fflush(stdout);

    int signal = 0;
    sigwait(&endSignals, &signal);
    Vx::Logging::Public(Level::Info, LogCategory, "vxhost stops after SIG%s.", sigabbrev_np(signal));

    const std::vector<std::string> unsaved = host.Stop();
    for (const std::string& message : unsaved) {
        std::fprintf(stderr, "vxhost: %s\n", message.c_str());
    }
    return unsaved.empty() ? ExitCode::Success : ExitCode::Unsaved;
}

}  // namespace

int main(int count, char** arguments)
{
    ExitCode code = ExitCode::Failure;
    try {
        VxHost::HostOptions options;
        if (const auto ended = VxHost::ParseOptions(count, arguments, options)) {
            return static_cast<int>(*ended);
        }
        const sigset_t endSignals = BlockEndSignals();
        code = Run(options, endSignals);
    } catch (const VxHost::StartFailure& failure) {
        std::fprintf(stderr, "vxhost: %s\n", failure.what());
        code = failure.Code();
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "vxhost: %s\n", exception.what());
    }
    return static_cast<int>(code);
}
