#include "IndicatorMetrics.h"

#include <cstring>

namespace VxHost
{

std::vector<VcHealthIndicator> CopyIndicators(const VcIndicatorSet& set)
{
    const auto items = VcIndicatorSet_Indicators(&set)->Items();
    return {items.begin(), items.end()};
}

void WriteIndicators(OpenMetrics& page, std::span<const VcHealthIndicator> indicators)
{
    page.Begin(OpenMetrics::Kind::Gauge, "vx_health_indicator", "", "An indicator of the default health set.",
               {"name", "id", "instance"});
    for (const VcHealthIndicator& indicator : indicators) {
        const std::string_view name(indicator.name, ::strnlen(indicator.name, sizeof indicator.name));
        page.Add(indicator.value, {name, indicator.id, indicator.instance});
    }
}

}  // namespace VxHost
