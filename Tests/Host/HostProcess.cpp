#include "HostProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

extern char** environ;

namespace VxHostTest
{
namespace
{

using Clock = std::chrono::steady_clock;

// Generous: sanitizers and busy machines make everything slow, and nothing here waits longer than it must.
constexpr std::chrono::seconds patience{60};

void Check(int error, const char* what)
{
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> words)
{
    int pipes[2];
    Check(::pipe2(pipes, O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
    output_ = pipes[0];
    errors_ = ::open("/tmp", O_TMPFILE | O_RDWR | O_APPEND | O_CLOEXEC, 0600);
    Check(errors_ >= 0 ? 0 : errno, "open");

    posix_spawn_file_actions_t actions;
    Check(::posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    ::posix_spawn_file_actions_adddup2(&actions, pipes[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, errors_, STDERR_FILENO);
    // So that it ends with a test that crashes, and is not deaf to SIGHUP when nohup started the tests.
    words.insert(words.begin(), {"env", "--default-signal=HUP", "setpriv", "--pdeathsig", "KILL"});
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int error = ::posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipes[1]);
    if (error != 0) {
        process_ = -1;
    }
    Check(error, arguments[0]);
}

ChildProcess::~ChildProcess()
{
    if (process_ != -1) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    ::close(output_);
    ::close(errors_);
}

std::string ChildProcess::ReadLine()
{
    std::string line;
    for (char c = 0;; line += c) {
        pollfd waiting{output_, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) == 0) {
            throw std::runtime_error("the program prints no line; stderr:\n" + Errors());
        }
        if (::read(output_, &c, 1) != 1 || c == '\n') {
            return line;
        }
    }
}

std::string ChildProcess::Errors() const
{
    return ReadFile("/proc/self/fd/" + std::to_string(errors_));
}

void ChildProcess::Signal(int signal) const
{
    Check(::kill(process_, signal) == 0 ? 0 : errno, "kill");
}

Ended ChildProcess::Wait()
{
    const Clock::time_point deadline = Clock::now() + patience;
    std::string output;
    int status = 0;
    for (bool ended = false; !ended;) {
        ended = ::waitpid(process_, &status, WNOHANG) != 0;
        if (Clock::now() > deadline) {
            throw std::runtime_error("the program does not end; stderr:\n" + Errors());
        }
        // It would wait for somebody to read what it prints.
        std::array<char, 4096> buffer;
        pollfd waiting{output_, POLLIN, 0};
        for (ssize_t count = 1; count > 0 && ::poll(&waiting, 1, ended ? 0 : 2) > 0;) {
            count = ::read(output_, buffer.data(), buffer.size());
            output.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
    }
    process_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output, Errors()};
}

HostProcess::HostProcess(const std::filesystem::path& dataFolder, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& starter)
    : ChildProcess([&] {
          std::vector<std::string> words = starter;
          words.insert(words.end(), {VX_HOST_PROGRAM, "--data", dataFolder.string(), "--port", "0"});
          words.insert(words.end(), arguments.begin(), arguments.end());
          return words;
      }())
{
    readyLine_ = ReadLine();
    const std::string start = "vxhost: listening on http://127.0.0.1:";
    if (!readyLine_.starts_with(start)) {
        throw std::runtime_error("vxhost said \"" + readyLine_ + "\" instead of its address, and on stderr:\n" +
                                 Wait().errors);
    }
    port_ = static_cast<std::uint16_t>(std::stoul(readyLine_.substr(start.size())));
}

Ended HostProcess::Run(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words{VX_HOST_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return ChildProcess(std::move(words)).Wait();
}

void HostProcess::WaitUntilSaved() const
{
    const Clock::time_point deadline = Clock::now() + patience;
    for (auto status = Get("/status").Json(); status.at("globalUnsaved") || status.at("workspaceUnsaved");
         status = Get("/status").Json()) {
        if (Clock::now() > deadline) {
            throw std::runtime_error("vxhost does not save");
        }
    }
}

Ended HostProcess::Stop()
{
    Signal(SIGTERM);
    return Wait();
}

void HostProcess::Kill()
{
    Signal(SIGKILL);
    Wait();
}

VxTestSupport::HttpReply HostProcess::Request(std::string_view method, std::string_view target, std::string_view body,
                                              const VxTestSupport::HttpHeaders& headers) const
{
    return VxTestSupport::HttpRequest(port_, method, target, body, headers);
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string RunCommand(const std::string& folder, const std::string& command)
{
    return ChildProcess({"env", "-C", folder, "timeout", "50", "bash", "-c", "exec 2>&1\n" + command}).Wait().output;
}

}  // namespace VxHostTest
