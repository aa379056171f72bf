// A small host on an installed VxCommon: options in, signals, exit code out.

#include <csignal>
#include <string_view>

#include "Log.h"
#include "SelfCheck.h"

/// Blocks the signals that end the host, in this thread and in all that it will start.
static sigset_t BlockEndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

static int Serve(const char* folder, const sigset_t& endSignals)
{
    Host host(folder);
    std::fprintf(stderr, "listening on http://127.0.0.1:%u\n", unsigned{host.Port()});
    int signal = 0;
    sigwait(&endSignals, &signal);
    host.Stop();
    return 0;
}

int main(int count, char** arguments)
{
    const bool check = count == 3 && std::string_view(arguments[1]) == "--check";
    if (count != 2 && !check) {
        std::fprintf(stderr, "usage: %s [--check] FOLDER\n", arguments[0]);
        return 2;
    }
    const sigset_t endSignals = BlockEndSignals();  // Before the first thread starts.
    try {
        const Log log;
        return check ? SelfCheck(arguments[2]) : Serve(arguments[1], endSignals);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: %s: %s\n", arguments[0], arguments[count - 1], exception.what());
        return 1;
    }
}
