#pragma once
// vxhost, or another program, as a process of its own, for tests that start it, kill it and start it again. Every wait
// is bounded: what takes longer throws std::runtime_error.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <VxTestSupport/HttpClient.h>

namespace VxHostTest
{

/// What is left of a process that has ended.
struct Ended
{
    int code = -1;  ///< Exit code; -1 when a signal ended it.
    std::string output;
    std::string errors;
};

class ChildProcess
{
public:
    /// Starts the program that the first of `words` names with the others as its arguments. It ends with this process.
    explicit ChildProcess(std::vector<std::string> words);

    /// Kills what still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next line of its stdout, without the end of the line.
    std::string ReadLine();

    /// What it has written to stderr so far.
    std::string Errors() const;

    void Signal(int signal) const;
    Ended Wait();

private:
    pid_t process_ = -1;
    int output_ = -1;  // Our end of its stdout.
    int errors_ = -1;  // A file that takes its stderr.
};

class HostProcess : public ChildProcess
{
public:
    /// Starts vxhost on `dataFolder` and a free port and waits for its ready line. `starter`: what starts it, if
    /// anything does, such as "nohup".
    explicit HostProcess(const std::filesystem::path& dataFolder, const std::vector<std::string>& arguments = {},
                         const std::vector<std::string>& starter = {});

    /// Runs vxhost with exactly these arguments until it ends by itself.
    static Ended Run(const std::vector<std::string>& arguments);

    std::uint16_t Port() const { return port_; }

    /// What it said when it was ready, without the end of the line.
    const std::string& ReadyLine() const { return readyLine_; }

    /// Waits until the status says that all settings outside the job are on disk.
    void WaitUntilSaved() const;

    /// SIGTERM, and the end that follows.
    Ended Stop();

    /// SIGKILL: no chance to save anything.
    void Kill();

    VxTestSupport::HttpReply Get(std::string_view target) const { return Request("GET", target); }
    VxTestSupport::HttpReply Put(std::string_view target, std::string_view body) const
    {
        return Request("PUT", target, body);
    }
    VxTestSupport::HttpReply Post(std::string_view target, std::string_view body) const
    {
        return Request("POST", target, body);
    }

    /// One request on a connection of its own.
    VxTestSupport::HttpReply Request(std::string_view method, std::string_view target, std::string_view body = {},
                                     const VxTestSupport::HttpHeaders& headers = {}) const;

private:
    std::uint16_t port_ = 0;
    std::string readyLine_;
};

/// The whole content of a file; empty when there is none.
std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);

/// What a shell in `folder` prints, on stdout and stderr; it is ended after a minute.
std::string RunCommand(const std::string& folder, const std::string& command);

}  // namespace VxHostTest
