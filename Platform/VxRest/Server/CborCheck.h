#pragma once
// Checks the structure of a CBOR body before it is parsed. Safe on any thread.

#include <cstddef>
#include <cstdint>
#include <span>

namespace VxRest::Http
{

/// Walks over one CBOR item (RFC 8949) without recursion and without taking memory. Throws Vx::Exception with
/// ERROR_PARAMETER when it is nested deeper than `depth`, claims a length beyond its end, breaks off, or holds a string
/// of indefinite length inside another one: the library's reader would follow such nesting with a call for each byte.
/// What it leaves to that reader: tags, simple values, and what follows the item.
void CheckCbor(std::span<const std::uint8_t> body, std::size_t depth);

}  // namespace VxRest::Http
