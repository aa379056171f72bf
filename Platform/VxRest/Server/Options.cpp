#include "Options.h"

#include <algorithm>

#include <VxApi/Exception.h>

#include "Authority.h"

namespace VxRest::Http
{

namespace
{

template <class T>
void CheckRange(const char* name, T value, T least, T most)
{
    if (value < least || value > most) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "the server option %s is %lu, expected is %lu to %lu", name, value, least,
                 most);
    }
}

void CheckDeadline(const char* name, std::chrono::milliseconds value)
{
    if (value.count() < 1 || value > std::chrono::hours(24)) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "the server option %s is %ld ms, expected is 1 ms to a day", name,
                 value.count());
    }
}

}  // namespace

void CheckOptions(HttpServerOptions& options)
{
    const std::string address = options.address == "localhost" ? "127.0.0.1" : NormalAddress(options.address);
    if (address.empty()) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "\"%s\" is no IP address to listen on", options.address);
    }
    options.address = address;
    if (options.token.empty() && !IsLoopback(address)) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "listening on %s, which others can reach, needs a token", address);
    }
    if (!std::all_of(options.token.begin(), options.token.end(), [](char c) { return c > ' ' && c <= '~'; })) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "the token holds bytes other than visible ASCII characters");
    }
    constexpr std::size_t million = 1'000'000;
    constexpr std::uint64_t gigabytes = std::uint64_t{1} << 32;
    CheckRange<std::size_t>("headerBytes", options.headerBytes, 128, million);
    CheckRange<std::size_t>("headerFields", options.headerFields, 1, 10'000);
    CheckRange<std::uint64_t>("bodyBytes", options.bodyBytes, 0, gigabytes);
    CheckRange<std::uint64_t>("allBodyBytes", options.allBodyBytes, options.bodyBytes, 16 * gigabytes);
    CheckRange<std::uint64_t>("bodyBytesPerSecond", options.bodyBytesPerSecond, 1, gigabytes);
    // Values of resources are written and destroyed recursively.
    CheckRange<std::size_t>("jsonDepth", options.jsonDepth, 1, 1000);
    CheckRange<std::size_t>("jsonValues", options.jsonValues, 1, 100 * million);
    CheckRange<std::size_t>("connections", options.connections, 1, million);
    CheckRange<std::size_t>("noticeStreams", options.noticeStreams, 0, million);
    CheckRange<std::size_t>("noticeHistory", options.noticeHistory, 0, million);
    CheckRange<std::size_t>("noticeQueue", options.noticeQueue, 1, million);
    CheckRange<std::size_t>("workQueue", options.workQueue, 1, million);
    CheckRange<std::size_t>("workers", options.workers, 1, 256);
    CheckDeadline("headerDeadline", options.headerDeadline);
    CheckDeadline("bodyDeadline", options.bodyDeadline);
    CheckDeadline("writeDeadline", options.writeDeadline);
    CheckDeadline("idleDeadline", options.idleDeadline);
    CheckDeadline("noticeHeartbeat", options.noticeHeartbeat);
}

}  // namespace VxRest::Http
