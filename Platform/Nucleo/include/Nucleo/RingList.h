#pragma once
// A queue of values in a circle of fixed size: adding at the end, removing at the front and reading at an index take
// constant time, and no memory is taken after Init. Used by one thread at a time.

#include <cstddef>
#include <limits>
#include <type_traits>

#include <Nucleo/Allocator.h>

namespace Nucleo
{

/// T is trivially copyable: a number, a plain record or a pointer.
template <class T>
class RingList
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    RingList() = default;
    RingList(const RingList&) = delete;
    RingList& operator=(const RingList&) = delete;
    ~RingList() { Release(); }

    /// Takes the room for `capacity` values from `allocator`, which must outlive it. ERROR_STATE when the list has room
    /// already, ERROR_MEMORY when it cannot be had; the list is unchanged then.
    Status Init(std::size_t capacity, Allocator& allocator)
    {
        if (items_ != nullptr) {
            return ERROR_STATE;
        }
        if (capacity > std::numeric_limits<std::size_t>::max() / itemSize) {
            return ERROR_MEMORY;
        }
        void* memory = nullptr;
        if (const Status status = allocator.Allocate(capacity * itemSize, &memory); status != OK) {
            return status;
        }
        items_ = static_cast<T*>(memory);
        capacity_ = capacity;
        allocator_ = &allocator;
        return OK;
    }

    /// Drops the values and gives the room back; Init may follow. The allocator's status, OK when there was no room.
    Status Release()
    {
        Status status = OK;
        if (items_ != nullptr) {
            status = allocator_->Free(items_);
        }
        items_ = nullptr;
        first_ = count_ = capacity_ = 0;
        return status;
    }

    std::size_t Count() const noexcept { return count_; }

    /// The value at `index`, 0 being the first; `index` is below Count().
    T& At(std::size_t index) noexcept { return items_[Slot(index)]; }
    const T& At(std::size_t index) const noexcept { return items_[Slot(index)]; }

    /// Adds a value at the end; ERROR_CAPACITY when the circle is full.
    Status Append(const T& item) noexcept
    {
        if (count_ == capacity_) {
            return ERROR_CAPACITY;
        }
        items_[Slot(count_)] = item;
        ++count_;
        return OK;
    }

    /// Removes the first value; there is one.
    T TakeFirst() noexcept
    {
        const T item = items_[first_];
        first_ = first_ + 1 == capacity_ ? 0 : first_ + 1;
        --count_;
        return item;
    }

    void Clear() noexcept { first_ = count_ = 0; }

private:
    static constexpr std::size_t itemSize = sizeof(T);  // NOLINT(bugprone-sizeof-expression): a pointer is an item.

    std::size_t Slot(std::size_t index) const noexcept
    {
        const std::size_t slot = first_ + index;
        return slot < capacity_ ? slot : slot - capacity_;
    }

    T* items_ = nullptr;
    std::size_t first_ = 0;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
    Allocator* allocator_ = nullptr;
};

}  // namespace Nucleo
