#pragma once
// What the health aggregator keeps of a node and of an aggregate. Guarded by its lock.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <VxCommon/Health/VcIndicatorCache.h>

namespace VxCommon
{

/// A node whose reports are taken.
struct HealthNode
{
    std::uint32_t nodeId = 0;
    std::int32_t flags = 0;
    Nucleo::Handle<VcIndicatorCache> cache;  ///< The latest report.
    std::size_t skipCount = 0;               ///< Coming reports that are left out of the aggregates.

    /// What the node's last aggregated report added to each aggregate, by the aggregate's index; shorter than their
    /// number when the node has added nothing to the later ones. Sums are modulo 2^64.
    std::vector<std::uint64_t> aggregates;
};

/// Which indicators an aggregate counts.
struct HealthAggregateFilter
{
    std::uint32_t id;
    std::uint32_t instance;
};

/// A counter summed over all nodes.
struct HealthAggregateProbe
{
    std::uint32_t index = 0;
    std::vector<HealthAggregateFilter> filters;
    char name[64] = {};
    std::uint32_t id = 0;
    std::uint32_t instance = 0;
    std::int64_t value = 0;   ///< What is published.
    std::uint64_t total = 0;  ///< The sum of the nodes' parts, kept up to date so that a report need not sum them all.
};

}  // namespace VxCommon
