#pragma once
// The virtual controller: everything wired, started and stopped in order.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "HostOptions.h"

namespace VxHost
{

/// The host could not start.
class StartFailure : public std::runtime_error
{
public:
    StartFailure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
    ExitCode Code() const noexcept { return code_; }

private:
    ExitCode code_;
};

/// Made, stopped and destroyed by one thread, while there is a ProcessLog.
class Host
{
public:
    /// Loads the state, then serves. Throws StartFailure.
    explicit Host(const HostOptions& options);

    /// Stops.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// The port that is listened on.
    std::uint16_t Port() const;

    /// Ends serving, then saves what is not saved yet. Gives one message for each part of the state that could not be
    /// saved. Later calls do nothing.
    std::vector<std::string> Stop();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace VxHost
