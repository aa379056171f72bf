#pragma once
// The runtime's status codes under their plain names inside VxCommon.

#include <Nucleo/Status.h>

namespace VxCommon
{

using Nucleo::Status;
using namespace Nucleo::Statuses;  // NOLINT(google-build-using-namespace): OK, ERROR_STATE, ...

}  // namespace VxCommon
