#pragma once
// What a heap over a region of its own tells the address sanitizer, which sees such a region as one piece of memory:
// which bytes of it nobody may touch, so that the use of a freed block and writing past the end of one are found.
// Without the sanitizer these do nothing.

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define NUCLEO_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NUCLEO_ASAN
#endif
#endif
#ifdef NUCLEO_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace Nucleo
{

#ifdef NUCLEO_ASAN
inline void Forbid(const void* memory, std::size_t size) noexcept
{
    __asan_poison_memory_region(memory, size);
}
inline void Permit(const void* memory, std::size_t size) noexcept
{
    __asan_unpoison_memory_region(memory, size);
}
inline bool IsForbidden(const void* memory) noexcept
{
    return __asan_address_is_poisoned(memory) != 0;
}
#else
constexpr void Forbid(const void*, std::size_t) noexcept {}
constexpr void Permit(const void*, std::size_t) noexcept {}
constexpr bool IsForbidden(const void*) noexcept
{
    return false;
}
#endif

}  // namespace Nucleo
