#pragma once
// The owner of a file descriptor, and calls that a signal may interrupt.

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace TesselLib
{

/// Closes a file descriptor at the end of its life.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.Detach()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);  // Whoever needs the data on the medium has synced it: nothing is left to fail here.
        }
    }

    int Get() const noexcept { return descriptor_; }
    int Detach() noexcept { return std::exchange(descriptor_, -1); }
    explicit operator bool() const noexcept { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

/// Calls again what a signal interrupted; answers what the call answered.
template <class Call>
auto Retry(Call call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) {
            return result;
        }
    }
}

}  // namespace TesselLib
