#pragma once
// Lets a standard container keep its memory in an Allocator.

#include <cstddef>
#include <limits>
#include <new>

#include <Nucleo/Allocator.h>

namespace Nucleo
{

/// As thread-safe as the Allocator, which must outlive the container. Throws std::bad_alloc when it has no room.
template <class T>
class StdAllocator
{
public:
    using value_type = T;

    explicit StdAllocator(Allocator& allocator) noexcept : allocator_(&allocator) {}
    template <class U>  // NOLINTNEXTLINE(google-explicit-constructor)
    StdAllocator(const StdAllocator<U>& other) noexcept : allocator_(&other.Source())
    {}

    T* allocate(std::size_t count)
    {
        void* memory = nullptr;
        if (count > std::numeric_limits<std::size_t>::max() / itemSize ||
            allocator_->Allocate(count * itemSize, &memory) != OK) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t) noexcept { allocator_->Free(memory); }

    Allocator& Source() const noexcept { return *allocator_; }

    template <class U>
    bool operator==(const StdAllocator<U>& other) const noexcept
    {
        return allocator_ == &other.Source();
    }

private:
    static constexpr std::size_t itemSize = sizeof(T);  // NOLINT(bugprone-sizeof-expression): a pointer is an item.

    Allocator* allocator_;
};

}  // namespace Nucleo
