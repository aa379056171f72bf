#pragma once
// Path operations into buffers of bounded size. They work on bytes: a NUL inside a name is a byte like any other, so
// the length is what counts; the terminating NUL is added for callers who need one. Safe on any thread.

#include <cstddef>
#include <string_view>

#include <Nucleo/Status.h>

namespace Nucleo
{

/// Joins `directory` and `name` with one "/" into `buffer` and sets `*length` to the bytes written before the NUL.
/// ERROR_CAPACITY when the result and its NUL do not fit into `capacity` bytes; `*length` is 0 then.
Status Path_Combine(char* buffer, std::size_t capacity, std::string_view directory, std::string_view name,
                    std::size_t* length);

/// Copies the text after the last "." of `name`. ERROR_NOT_FOUND when there is no ".", ERROR_CAPACITY when the
/// extension and its NUL do not fit.
Status Path_Extension(char* buffer, std::size_t capacity, std::string_view name, std::size_t* length);

/// Copies `name` without its last "." and what follows; a name without "." is copied whole. ERROR_CAPACITY when the
/// result and its NUL do not fit.
Status Path_StripExtension(char* buffer, std::size_t capacity, std::string_view name, std::size_t* length);

}  // namespace Nucleo
