#pragma once
// A list of values of one type in consecutive memory, as an object: other code may ask an object whether it is a list,
// and a list for the type of its items. Used by one thread at a time.

#include <algorithm>
#include <cstddef>
#include <limits>
#include <span>
#include <type_traits>

#include <Nucleo/Object.h>
#include <Nucleo/ValueTypes.h>

namespace Nucleo
{

/// What a list of any type can be asked.
class AnyArrayList : public Object
{
public:
    /// The type of the items.
    virtual const Type& ItemType() const noexcept = 0;

    /// How many items there are.
    virtual std::size_t ItemCount() const noexcept = 0;

    /// The items one after the other, each as many bytes as its type says; null when there are none.
    virtual const void* ItemData() const noexcept = 0;

    static const Type& StaticType() noexcept;

protected:
    AnyArrayList() = default;
};

/// T is trivially copyable: a number, a plain record or a pointer. TypeOf<T>() must exist.
template <class T>
class ArrayList final : public AnyArrayList
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    /// An empty list with room for `capacity` items, in memory of `allocator` (null: the default one). On failure
    /// `*list` is null.
    static Status Make(ArrayList** list, std::size_t capacity, Allocator* allocator) noexcept
    {
        Handle<ArrayList> made;
        Status status = Construct(made.Receive(), allocator);
        if (status == OK && (status = made->Reserve(capacity)) == OK) {
            *list = made.Detach();
        } else {
            *list = nullptr;
        }
        return status;
    }

    ~ArrayList() override
    {
        if (items_ != nullptr) {
            ObjectAllocator().Free(items_);
        }
    }

    const Type& ItemType() const noexcept override { return TypeOf<T>(); }
    std::size_t ItemCount() const noexcept override { return count_; }
    const void* ItemData() const noexcept override { return items_; }

    std::size_t Count() const noexcept { return count_; }
    T& At(std::size_t index) noexcept { return items_[index]; }
    const T& At(std::size_t index) const noexcept { return items_[index]; }
    std::span<const T> Items() const noexcept { return {items_, count_}; }

    /// Makes room for `capacity` items in all. ERROR_MEMORY when it cannot be had; the list is unchanged then.
    Status Reserve(std::size_t capacity) noexcept
    {
        if (capacity <= capacity_) {
            return OK;
        }
        if (capacity > std::numeric_limits<std::size_t>::max() / itemSize) {
            return ERROR_MEMORY;
        }
        void* memory = nullptr;
        if (const Status status = ObjectAllocator().Allocate(capacity * itemSize, &memory); status != OK) {
            return status;
        }
        std::copy_n(items_, count_, static_cast<T*>(memory));
        if (items_ != nullptr) {
            ObjectAllocator().Free(items_);
        }
        items_ = static_cast<T*>(memory);
        capacity_ = capacity;
        return OK;
    }

    /// Adds an item at the end; the room doubles when it is used up.
    Status Append(const T& item) noexcept
    {
        if (count_ == capacity_) {
            const T copy = item;  // It may lie in this list.
            if (const Status status = Reserve(std::max<std::size_t>(8, capacity_ * 2)); status != OK) {
                return status;
            }
            items_[count_++] = copy;
            return OK;
        }
        items_[count_++] = item;
        return OK;
    }

    /// Makes the list `count` items long. New items hold anything until they are written. ERROR_MEMORY when the room
    /// cannot be had; the list is unchanged then.
    Status Resize(std::size_t count) noexcept
    {
        const Status status = Reserve(count);
        if (status == OK) {
            count_ = count;
        }
        return status;
    }

    /// Drops all items and keeps the room.
    void Clear() noexcept { count_ = 0; }

    static const Type& StaticType() noexcept
    {
        static const Type type{"ArrayList", &AnyArrayList::StaticType(), sizeof(ArrayList)};
        return type;
    }

private:
    static constexpr std::size_t itemSize = sizeof(T);  // NOLINT(bugprone-sizeof-expression): a pointer is an item.

    template <class U, class... Args>
    friend Status Construct(U** object, Allocator* allocator, Args&&... args) noexcept;
    ArrayList() = default;

    T* items_ = nullptr;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
};

/// The object as a list of T; null when it is none, or null.
template <class T>
const ArrayList<T>* AsArrayListOf(const Object* object) noexcept
{
    const Type* type = object != nullptr ? &object->ObjectType() : nullptr;
    while (type != nullptr && type != &AnyArrayList::StaticType()) {
        type = type->base;
    }
    const bool isList = type != nullptr && &static_cast<const AnyArrayList*>(object)->ItemType() == &TypeOf<T>();
    return isList ? static_cast<const ArrayList<T>*>(object) : nullptr;
}

}  // namespace Nucleo
