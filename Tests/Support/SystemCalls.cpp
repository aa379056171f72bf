#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>

#include <VxTestSupport/SystemCalls.h>

namespace VxTestSupport
{

SystemCallTrace trace;

bool SystemCallTrace::Fails(const char* call)
{
    if (!on) {
        return false;
    }
    calls.emplace_back(call);
    if (failing != call || ++seen < nth || nth == 0 || (seen > nth && !lasting)) {
        return false;
    }
    errno = error;
    return true;
}

}  // namespace VxTestSupport

namespace
{

using VxTestSupport::trace;

/// The call's number `nr` with these arguments, unless it is to fail.
template <class... Arguments>
int CallSystem(const char* call, long nr, Arguments... arguments)
{
    return trace.Fails(call) ? -1 : static_cast<int>(::syscall(nr, arguments...));
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's own names are reserved ones
extern "C" {
int openat(int folder, const char* name, int flags, ...)
{
    std::va_list more;
    va_start(more, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    return CallSystem("openat", SYS_openat, folder, name, flags, mode);
}

int fsync(int descriptor)
{
    if (const auto instead = std::exchange(trace.atSync, nullptr)) {
        errno = instead();
        return -1;
    }
    if (trace.on) {
        trace.synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)));
    }
    return CallSystem("fsync", SYS_fsync, descriptor);
}

int fdatasync(int descriptor)
{
    return CallSystem("fdatasync", SYS_fdatasync, descriptor);
}

ssize_t write(int descriptor, const void* data, size_t size)
{
    // A write that "fails" with 0 is a short one.
    if (trace.Fails("write")) {
        if (errno != 0) {
            return -1;
        }
        size = size / 2 + 1;
    }
    return ::syscall(SYS_write, descriptor, data, size);
}

ssize_t read(int descriptor, void* data, size_t size)
{
    return trace.Fails("read") ? -1 : ::syscall(SYS_read, descriptor, data, size);
}

int fstat(int descriptor, struct stat* state) noexcept
{
    return CallSystem("fstat", SYS_fstat, descriptor, state);
}

int fstatat(int folder, const char* name, struct stat* state, int flags) noexcept
{
    const int result = CallSystem("fstatat", SYS_newfstatat, folder, name, state, flags);
    if (const auto then = std::exchange(trace.afterLook, nullptr)) {
        then();
    }
    return result;
}

int renameat(int from, const char* fromName, int to, const char* toName) noexcept
{
    return CallSystem("renameat", SYS_renameat, from, fromName, to, toName);
}

int renameat2(int from, const char* fromName, int to, const char* toName, unsigned int flags) noexcept
{
    return CallSystem("renameat2", SYS_renameat2, from, fromName, to, toName, flags);
}

int linkat(int from, const char* fromName, int to, const char* toName, int flags) noexcept
{
    return CallSystem("linkat", SYS_linkat, from, fromName, to, toName, flags);
}

int unlinkat(int folder, const char* name, int flags) noexcept
{
    return CallSystem("unlinkat", SYS_unlinkat, folder, name, flags);
}

dirent* readdir(DIR* folder)
{
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(::dlsym(RTLD_NEXT, "readdir"));
    return trace.Fails("readdir") ? nullptr : next(folder);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
