#pragma once
// Calls of the system on files, watched and made to fail. In a test program that includes this they take the place of
// the C library's, for the tested libraries as well.

#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace VxTestSupport
{

/// What was called, and what fails. Only while a test says so: other tests may run threads.
struct SystemCallTrace
{
    std::atomic<bool> on{false};
    std::vector<std::string> calls;
    std::string failing;              ///< The call that fails.
    int nth = 0;                      ///< Which one of them, from 1; none when it is 0.
    int error = 0;                    ///< What is in errno then.
    bool lasting = false;             ///< Those behind the nth fail as well.
    int seen = 0;                     ///< How often it was called.
    std::vector<std::string> synced;  ///< What the calls of fsync were about.
    std::function<void()> afterLook;  ///< Runs once, behind the next look at a file.
    std::function<int()> atSync;      ///< Runs once, instead of the next fsync, which fails with the answer in errno.

    /// Whether the call that was to fail has been made.
    bool Reached() const { return nth != 0 && seen >= nth; }

    /// Whether this call is to fail; errno is set then.
    bool Fails(const char* call);
};
extern SystemCallTrace trace;

/// What `operation` answers while its calls are traced, of which those named `failing` fail from the `nth` on, or only
/// that one.
template <class Operation>
auto Traced(Operation operation, std::string failing = {}, int nth = 0, int error = 0, bool lasting = false)
{
    trace.calls.clear();
    trace.synced.clear();
    trace.failing = std::move(failing);
    trace.nth = nth;
    trace.error = error;
    trace.lasting = lasting;
    trace.seen = 0;
    trace.on = true;
    auto answer = operation();
    trace.on = false;
    return answer;
}

}  // namespace VxTestSupport
