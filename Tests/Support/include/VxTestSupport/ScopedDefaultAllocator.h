#pragma once
// Puts an allocator in the place of the default one for a scope. Used by one test at a time; the allocator must outlive
// every object that was made with it.

#include <Nucleo/Allocator.h>

namespace VxTestSupport
{

class ScopedDefaultAllocator
{
public:
    explicit ScopedDefaultAllocator(Nucleo::Allocator& allocator)
        : previous_(Nucleo::ReplaceDefaultAllocator(&allocator))
    {}
    ~ScopedDefaultAllocator() { Nucleo::ReplaceDefaultAllocator(previous_); }
    ScopedDefaultAllocator(const ScopedDefaultAllocator&) = delete;
    ScopedDefaultAllocator& operator=(const ScopedDefaultAllocator&) = delete;

private:
    Nucleo::Allocator* previous_;
};

}  // namespace VxTestSupport
