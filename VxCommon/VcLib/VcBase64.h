#pragma once
// Base64 with the standard alphabet and "=" padding, for text objects and byte lists; decoding is lenient. May be
// called from any thread. See Logger/VcLogMsg.h for the rules of the C-style layer.

#include <cstddef>
#include <cstdint>

#include <Nucleo/ArrayList.h>
#include <Nucleo/String.h>
#include <VxCommon/VcLib/Export.h>

extern "C" {

/// A new text, the caller's, of `count` bytes: four characters for each three bytes begun. `bytes` may be null when
/// there are none. A null allocator is the default one. Fails only when there is no memory.
VXCOMMON_API Nucleo::Status VcBase64_Encode(const std::uint8_t* bytes, std::size_t count, Nucleo::String** text,
                                            Nucleo::Allocator* allocator);

/// A new list, the caller's, of the bytes that `text` stands for up to its NUL or its first "=". A character outside
/// the alphabet, white space included, counts as an "A" and fails nothing; bits beyond the last whole byte are dropped.
/// Fails only when there is no memory.
VXCOMMON_API Nucleo::Status VcBase64_Decode(const char* text, Nucleo::ArrayList<std::uint8_t>** list,
                                            Nucleo::Allocator* allocator);

}  // extern "C"
