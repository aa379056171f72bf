#pragma once
// Owner of one reference to an object of the base runtime, for the object classes.

#include <utility>

#include <Nucleo/Object.h>
#include <VxApi/Exception.h>

namespace Vx
{

/// Holds a reference-counted object by its handle. `T` is the handle type: a pointer to a class that derives from
/// Nucleo::Object, or void*, which then is a Nucleo::Object* in disguise. Copies share the object. As safe as a
/// shared_ptr: distinct Objects may be used on distinct threads.
template <class T>
class Object
{
public:
    Object() = default;

    /// Takes the caller's reference over.
    explicit Object(T adopted) noexcept : handle_(adopted) {}

    Object(const Object& other) noexcept : handle_(other.handle_)
    {
        if (Root() != nullptr) {
            Root()->Share();
        }
    }
    Object(Object&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}

    /// Shares the other's object, then releases the one held before. Throws Exception when that release fails; the new
    /// object is held all the same.
    Object& operator=(const Object& other)
    {
        if (this != &other) {
            Object copy(other);
            std::swap(handle_, copy.handle_);
            copy.Reset();
        }
        return *this;
    }
    Object& operator=(Object&& other)  // NOLINT(performance-noexcept-move-constructor): releasing may throw
    {
        if (this != &other) {
            Object taken(std::move(other));
            std::swap(handle_, taken.handle_);
            taken.Reset();
        }
        return *this;
    }

    /// Releases the object. A failing release can only be logged here.
    ~Object()
    {
        if (const Nucleo::Status status = Nucleo::Destroy(Root()); status != Nucleo::OK) {
            LogException(here, Exception(here, status));
        }
    }

    /// Releases the object now. Throws Exception with the status of a release that fails.
    void Reset()
    {
        Nucleo::Object* root = Root();
        handle_ = nullptr;
        Check(here, Nucleo::Destroy(root));
    }

    T Get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != nullptr; }

private:
    // Not VX_HERE: a template in a header is the same code in every source.
    static constexpr Location here{"VxApi/Object", __LINE__, "Vx::Object::Reset"};

    Nucleo::Object* Root() const noexcept { return static_cast<Nucleo::Object*>(handle_); }

    T handle_ = nullptr;
};

}  // namespace Vx
