#include "HostProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>

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

/// What a file holds from its beginning, or a pipe from where it was read to.
std::string ReadAllFrom(int file)
{
    std::string text;
    char buffer[4096];
    for (::lseek(file, 0, SEEK_SET);;) {
        const ssize_t count = ::read(file, buffer, sizeof buffer);
        if (count <= 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

}  // namespace

HostProcess::HostProcess(const std::filesystem::path& dataFolder, const std::vector<std::string>& arguments)
{
    std::vector<std::string> all{"--data", dataFolder.string(), "--port", "0"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Spawn(all);
    readyLine_ = ReadLine();
    const std::string start = "vxhost: listening on http://127.0.0.1:";
    if (!readyLine_.starts_with(start)) {
        throw std::runtime_error("vxhost said \"" + readyLine_ + "\" instead of its address, and on stderr:\n" +
                                 Wait().errors);
    }
    port_ = static_cast<std::uint16_t>(std::stoul(readyLine_.substr(start.size())));
}

HostProcess::~HostProcess()
{
    if (process_ != -1) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    ::close(output_);
    ::close(errors_);
}

Ended HostProcess::Run(const std::vector<std::string>& arguments)
{
    HostProcess host;
    host.Spawn(arguments);
    return host.Wait();
}

void HostProcess::Spawn(const std::vector<std::string>& arguments)
{
    int pipes[2];
    Check(::pipe2(pipes, O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
    output_ = pipes[0];
    errors_ = ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    Check(errors_ >= 0 ? 0 : errno, "open");

    posix_spawn_file_actions_t actions;
    Check(::posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    ::posix_spawn_file_actions_adddup2(&actions, pipes[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, errors_, STDERR_FILENO);
    // So that it ends with a test that crashes.
    std::vector<const char*> words{"setpriv", "--pdeathsig", "KILL", VX_HOST_PROGRAM};
    for (const std::string& argument : arguments) {
        words.push_back(argument.c_str());
    }
    words.push_back(nullptr);
    const int error =
        ::posix_spawnp(&process_, words[0], &actions, nullptr, const_cast<char* const*>(words.data()), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipes[1]);
    if (error != 0) {
        process_ = -1;
    }
    Check(error, words[0]);
}

std::string HostProcess::ReadLine()
{
    std::string line;
    for (char c = 0;; line += c) {
        pollfd waiting{output_, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) == 0) {
            throw std::runtime_error("vxhost does not get ready; stderr:\n" + ReadAllFrom(errors_));
        }
        if (::read(output_, &c, 1) != 1 || c == '\n') {
            return line;
        }
    }
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

void HostProcess::Signal(int signal) const
{
    Check(::kill(process_, signal) == 0 ? 0 : errno, "kill");
}

Ended HostProcess::Wait()
{
    const Clock::time_point deadline = Clock::now() + patience;
    int status = 0;
    while (::waitpid(process_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            throw std::runtime_error("vxhost does not end; stderr:\n" + ReadAllFrom(errors_));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // Between two looks at the deadline.
    }
    process_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAllFrom(output_), ReadAllFrom(errors_)};
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

std::string RunCommand(const std::string& folder, const std::string& command)
{
    ::setenv("TEST_FOLDER", folder.c_str(), 1);
    ::setenv("TEST_COMMAND", command.c_str(), 1);
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(
        ::popen("cd \"$TEST_FOLDER\" && timeout 60 bash -c \"$TEST_COMMAND\" 2>&1", "r"), ::pclose);
    if (!pipe) {
        throw std::runtime_error("popen failed");
    }
    std::string output;
    std::array<char, 4096> buffer;
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) {
        output.append(buffer.data(), count);
    }
    return output;
}

}  // namespace VxHostTest
