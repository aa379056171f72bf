#pragma once
// Replaces the general heap of a test program, so that it sees what is taken from it. For one source of the program.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace VxTestSupport
{

/// Defined by the program: called before every allocation, on the thread that makes it. May throw std::bad_alloc.
void OnAllocation();

}  // namespace VxTestSupport

void* operator new(std::size_t size)
{
    VxTestSupport::OnAllocation();
    if (void* memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
