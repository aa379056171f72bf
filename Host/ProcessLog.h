#pragma once

struct VcLogger;

namespace VxHost
{

/// The logger of the process, for its own life: every line that is logged meanwhile is in the private log, and in the
/// public one when users may see it. Made before everything that logs or shows the logs and destroyed after it.
class ProcessLog
{
public:
    /// `filterPublic`: whether the public log shows each text once only, until it is cleared. Throws Vx::Exception with
    /// ERROR_ALREADY_EXISTS when the process has a logger.
    explicit ProcessLog(bool filterPublic = false);
    ~ProcessLog();
    ProcessLog(const ProcessLog&) = delete;
    ProcessLog& operator=(const ProcessLog&) = delete;

private:
    VcLogger* logger_ = nullptr;
};

}  // namespace VxHost
