#pragma once

#include <string>
#include <vector>

#include <VxCommon/Persistence/PersistManager.h>

#include "AutoSaveWatch.h"
#include "DomainInfo.h"

namespace VxHost
{

/// What LoadState found beside the manager's FileTroubles, which users should go on being told of.
struct StartReport
{
    std::vector<std::string> wholeCopies;  ///< Diagnosis copies that were set aside unread and can be read now.
    std::string failedJob;                 ///< The default job, when it could not be loaded.
    std::string failedJobReason;
};

/// Starts the manager and loads the record, both domains and the default job. No file keeps the host from starting:
/// those that cannot be used are kept for diagnosis where that is possible (see PersistManager::FileTroubles) and the
/// defaults take their place; the public log says so. What could not be written yet is left to `watch`.
/// `info`: what the manager's handlers note of the domains. The caller holds no lock: a read that may pass is waited
/// for.
StartReport LoadState(VxCommon::PersistManager& manager, DomainInfo& info, AutoSaveWatch& watch);

}  // namespace VxHost
