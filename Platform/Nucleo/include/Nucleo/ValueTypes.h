#pragma once
// The types of plain values, and the type that belongs to a C++ type. Constants, safe on any thread.

#include <cstdint>
#include <type_traits>

#include <Nucleo/Object.h>

namespace Nucleo
{

// The eight types of arguments. They are told apart by address.
extern const Type Int32Type;
extern const Type UInt32Type;
extern const Type Int64Type;
extern const Type UInt64Type;
extern const Type Float32Type;
extern const Type Float64Type;
extern const Type CharType;
extern const Type StringType;  ///< NUL-ended text.

/// A byte, such as lists of bytes hold.
extern const Type UInt8Type;

/// A pointer to an object.
extern const Type ObjectHandleType;

/// The type of T: a plain value's, ObjectHandleType for a pointer to an object, and otherwise T::StaticType().
template <class T>
const Type& TypeOf() noexcept
{
    if constexpr (std::is_same_v<T, std::int32_t>) {
        return Int32Type;
    } else if constexpr (std::is_same_v<T, std::uint32_t>) {
        return UInt32Type;
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        return Int64Type;
    } else if constexpr (std::is_same_v<T, std::uint64_t>) {
        return UInt64Type;
    } else if constexpr (std::is_same_v<T, std::uint8_t>) {
        return UInt8Type;
    } else if constexpr (std::is_same_v<T, float>) {
        return Float32Type;
    } else if constexpr (std::is_same_v<T, double>) {
        return Float64Type;
    } else if constexpr (std::is_same_v<T, char>) {
        return CharType;
    } else if constexpr (std::is_pointer_v<T>) {
        static_assert(std::is_base_of_v<Object, std::remove_pointer_t<T>>, "only pointers to objects have a type");
        return ObjectHandleType;
    } else {
        return T::StaticType();
    }
}

}  // namespace Nucleo
