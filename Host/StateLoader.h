#pragma once

#include <VxCommon/Persistence/PersistManager.h>

#include "AutoSaveWatch.h"

namespace VxHost
{

/// Starts the manager and loads the record, both domains and the default job. Damaged files never keep the host from
/// starting: they are kept for diagnosis, the defaults take their place, and the log says so; what of that could not be
/// written yet is left to `watch`. Throws only when persistence cannot work at all: neither the old record can be read
/// nor a new one written.
void LoadState(VxCommon::PersistManager& manager, VxCommon::TesselSystem& system, AutoSaveWatch& watch);

}  // namespace VxHost
