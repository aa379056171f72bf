#pragma once

#include <cstdint>

namespace VxRest
{

/// What happened to the resource that a change notice names. The values travel to clients.
enum class EventType : std::int32_t
{
    Created = 1,
    Updated = 2,
    Deleted = 3,
};

}  // namespace VxRest
