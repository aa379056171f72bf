#pragma once

#include <string>
#include <vector>

#include <VxCommon/Persistence/PersistManager.h>

#include "AutoSaveWatch.h"
#include "DomainInfo.h"

namespace VxHost
{

/// Starts the manager and loads the record, both domains and the default job. Damaged files never keep the host from
/// starting: they are kept for diagnosis, the defaults take their place, and the log says so; what of that could not be
/// written yet is left to `watch`. Throws only when persistence cannot work at all: neither the old record can be read
/// nor a new one written.
/// `info`: what the manager's handlers note of the domains. Gives the names of the damaged files.
std::vector<std::string> LoadState(VxCommon::PersistManager& manager, VxCommon::TesselSystem& system,
                                   const DomainInfo& info, AutoSaveWatch& watch);

}  // namespace VxHost
