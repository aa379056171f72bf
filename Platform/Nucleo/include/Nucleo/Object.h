#pragma once
// The root of the object model: reference-counted objects that know their type and the allocator they live in.
// Counting is atomic; everything else is as safe as the derived class says.

#include <atomic>
#include <cstdint>
#include <exception>
#include <new>
#include <type_traits>
#include <utility>

#include <Nucleo/Allocator.h>
#include <Nucleo/Status.h>

namespace Nucleo
{

class Object;

/// Describes a class of objects. One constant instance a class, alive for the whole process.
struct Type
{
    const char* name;  ///< Class name, such as "MemoryStream".
    const Type* base;  ///< The base class; null for Object itself.
    std::size_t size;  ///< Bytes of one object.
    /// Frees what the object owns when its last reference goes; null when the C++ destructor does all. A status other
    /// than OK keeps the object alive and is returned to whoever released it.
    Status (*vRelease)(Object* object) = nullptr;
};

/// Root class. Objects are made with Construct() and end with the last Release(); they are never deleted directly.
class Object
{
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    const Type& ObjectType() const noexcept { return *type_; }
    Allocator& ObjectAllocator() const noexcept { return *allocator_; }
    std::int32_t References() const noexcept { return references_.load(std::memory_order_relaxed); }

    /// Whether the caller's reference is the only one; what other owners did is then complete.
    bool IsUnique() const noexcept { return references_.load(std::memory_order_acquire) == 1; }

    /// Adds a reference.
    void Share() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }

    /// Drops a reference. With the last one the type's vRelease runs, then the destructor, then the memory is freed.
    /// When vRelease fails its status is returned and the reference stays.
    Status Release() noexcept;

    static const Type& StaticType() noexcept;

protected:
    Object() = default;
    virtual ~Object() = default;

private:
    template <class T, class... Args>
    friend Status Construct(T** object, Allocator* allocator, Args&&... args) noexcept;
    template <class T, class Source>
    friend Status ConstructWithRoom(T** object, Source& source, std::size_t room) noexcept;

    const Type* type_ = nullptr;
    Allocator* allocator_ = nullptr;
    std::atomic<std::int32_t> references_{1};
};

/// Makes a T, which derives from Object and declares `static const Type& StaticType()`, in memory of `allocator` (null:
/// the default one) and hands its one reference to `*object`. On failure `*object` is null: ERROR_PARAMETER when the
/// allocator cannot hold objects, ERROR_MEMORY or the allocator's own status when it has no room, ERROR_STATE when the
/// constructor throws something else than std::bad_alloc.
template <class T, class... Args>
Status Construct(T** object, Allocator* allocator, Args&&... args) noexcept
{
    *object = nullptr;
    Allocator& source = allocator != nullptr ? *allocator : DefaultAllocator();
    if (!source.Traits().holdsObjects) {
        return ERROR_PARAMETER;
    }
    void* memory = nullptr;
    if (const Status status = source.Allocate(sizeof(T), &memory); status != OK) {
        return status;
    }
    try {
        T* made = ::new (memory) T(std::forward<Args>(args)...);
        Object& root = *made;
        root.type_ = &T::StaticType();
        root.allocator_ = &source;
        *object = made;
        return OK;
    } catch (const std::bad_alloc&) {
        source.Free(memory);
        return ERROR_MEMORY;
    } catch (...) {
        source.Free(memory);
        return ERROR_STATE;
    }
}

/// Construct() for a T that is made from nothing and cannot throw, with `room` bytes more behind the object, in the
/// same block of memory, for the object's own use. With a final class of allocators as Source its functions are called
/// without a look at its table.
template <class T, class Source>
Status ConstructWithRoom(T** object, Source& source, std::size_t room) noexcept
{
    static_assert(std::is_nothrow_default_constructible_v<T>);
    *object = nullptr;
    if (!source.Traits().holdsObjects) {
        return ERROR_PARAMETER;
    }
    void* memory = nullptr;
    if (const Status status = source.Allocate(sizeof(T) + room, &memory); status != OK) {
        return status;
    }
    T* made = ::new (memory) T;
    Object& root = *made;
    root.type_ = &T::StaticType();
    root.allocator_ = &source;
    *object = made;
    return OK;
}

/// Releases an object; null is fine and answers OK.
inline Status Destroy(Object* object) noexcept
{
    return object != nullptr ? object->Release() : OK;
}

/// Owns one reference to an object and releases it at the end of its life. A failing release is ignored here: who has
/// to know calls Destroy() on what Detach() hands out.
template <class T>
class Handle
{
public:
    Handle() = default;
    explicit Handle(T* adopted) noexcept : object_(adopted) {}
    Handle(Handle&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Handle() { Destroy(object_); }

    T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    /// For functions with an out argument: releases what is held and lets the function fill it in.
    T** Receive() noexcept
    {
        Destroy(std::exchange(object_, nullptr));
        return &object_;
    }

    /// Gives the reference to the caller.
    T* Detach() noexcept { return std::exchange(object_, nullptr); }

private:
    T* object_ = nullptr;
};

}  // namespace Nucleo
