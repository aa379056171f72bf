#pragma once
// Makes a chosen allocation from the general heap fail. For one source of a test program.

#include <atomic>
#include <string>
#include <vector>

#include <VxTestSupport/ReplacedHeap.h>
#include <VxTestSupport/Thrown.h>

namespace VxTestSupport
{

/// How many allocations of the whole process succeed until one fails; negative: all.
inline std::atomic<int> heapUntilFailure{-1};

/// How it fails.
inline void (*heapFailure)() = [] { throw std::bad_alloc(); };

/// Calls `use` with the first, the second, ... allocation failing, until no call comes to the one that would fail. What
/// each call threw: the status of a Vx::Exception, "other" for anything else, "" for nothing.
template <class Use>
std::vector<std::string> SweepHeap(const Use& use)
{
    std::vector<std::string> thrown;
    for (bool reached = true; reached;) {
        std::string what;
        heapUntilFailure = static_cast<int>(thrown.size());
        try {
            const Nucleo::Status status = StatusThrown(use);
            reached = heapUntilFailure.exchange(-1) < 0;
            what = status != Nucleo::OK ? std::to_string(status) : "";
        } catch (...) {
            heapUntilFailure = -1;
            what = "other";
        }
        thrown.push_back(what);
    }
    return thrown;
}

}  // namespace VxTestSupport

void VxTestSupport::OnAllocation()
{
    if (heapUntilFailure >= 0 && heapUntilFailure-- == 0) {
        heapFailure();
    }
}
