#pragma once
// What the operating system's error numbers mean to users of the storage.

#include <Nucleo/Status.h>

namespace TesselLib
{

/// The status of a failed system call that left `error` in errno. ERROR_IO for numbers without a meaning of their own.
Nucleo::Status StatusOfErrno(int error) noexcept;

}  // namespace TesselLib
