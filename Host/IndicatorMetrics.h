#pragma once

#include <span>
#include <vector>

#include <VxCommon/Health/VcIndicatorSet.h>

#include "OpenMetrics.h"

namespace VxHost
{

/// What a set holds, so that its lock need not be held while it is written. The caller holds the lock.
std::vector<VcHealthIndicator> CopyIndicators(const VcIndicatorSet& set);

/// Writes the family vx_health_indicator: a gauge for each indicator, no two of which have the same id and instance.
void WriteIndicators(OpenMetrics& page, std::span<const VcHealthIndicator> indicators);

}  // namespace VxHost
