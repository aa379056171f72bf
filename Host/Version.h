#pragma once

namespace VxHost
{

/// The version of this program, such as "1.0.0".
extern const char* const Version;

}  // namespace VxHost
