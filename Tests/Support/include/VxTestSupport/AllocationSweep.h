#pragma once
// Each allocation of an operation made to fail in turn, and an allocator that no object can be made with.

#include <gtest/gtest.h>

#include <VxTestSupport/FailingAllocator.h>

namespace VxTestSupport
{

/// Calls `use` with allocators of which the first, the second, ... allocation fails, the last time with none that does.
/// Nothing may be allocated behind a call. Answers how many allocations failed.
template <class Use>
int SweepFailures(Use use)
{
    for (int failing = 0;; ++failing) {
        SCOPED_TRACE(failing);
        FailingAllocator allocator(failing);
        use(allocator);
        EXPECT_EQ(allocator.Live(), 0);
        if (!allocator.Failed()) {
            return failing;
        }
    }
}

class NoObjects final : public Nucleo::Allocator
{
public:
    Nucleo::Status Allocate(std::size_t, void**) override { return Nucleo::ERROR_STATE; }
    Nucleo::Status Free(void*) override { return Nucleo::ERROR_STATE; }
    Nucleo::AllocatorTraits Traits() const override { return {.holdsObjects = false}; }
};

}  // namespace VxTestSupport
