#pragma once
// How vision code comes by its health probes: an application installs the callback that makes them, so that it can keep
// them alive and share them by name. Safe on any thread.

#include <cstdint>

#include <Nucleo/HealthProbe.h>

namespace VxVision
{

/// Makes a probe, or hands out one that exists, with a reference for the caller in `*probe`. Called on the thread that
/// wants the probe, several calls at once, without a lock held. `*probe` is null before. Must not throw.
using VvConstructProbeFx = Nucleo::Status (*)(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id,
                                              std::uint32_t instance, std::int64_t initial);

/// Installs the callback; ERROR_ALREADY_EXISTS while one is installed, which stays. Null removes it, answers OK, and
/// waits until no thread is inside it; from inside the callback it does not wait. So it is never removed while a lock
/// is held that the callback takes.
Nucleo::Status VvProbe_SetConstructor(VvConstructProbeFx callback);

/// Makes a probe by the installed callback and answers what that answers; the reference in `*probe` is the caller's.
/// ERROR_STATE without a callback, ERROR_PARAMETER for a null name; `*probe` is null then.
Nucleo::Status VvProbe_Construct(Nucleo::HealthProbe** probe, const char* name, std::uint32_t id,
                                 std::uint32_t instance, std::int64_t initial);

}  // namespace VxVision
