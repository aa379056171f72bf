#pragma once
// Watches whether the nodes of the system report their health.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Nucleo/Lock.h>
#include <VxApi/Event.h>
#include <VxApi/Properties.h>
#include <VxCommon/Health/Health.h>

#include "HealthReporter.h"

namespace VxHost
{

/// How a node's reports come in. The values travel to clients.
enum class NodeState : std::int32_t
{
    Online = 0,
    Stale = 1,  ///< Three reports or more are missing.
};

/// Made and destroyed by one thread, which holds no lock that stands below the health's; all else is safe on any
/// thread. Times are those of the runtime's timer.
class NodeWatch
{
public:
    /// A node whose last report is older is stale; without a report the age of the watch counts.
    static constexpr std::chrono::microseconds StaleAge = HealthReporter::Period * 7 / 2;

    /// What is known of a node.
    struct Node
    {
        std::uint32_t id = 0;
        bool reported = false;  ///< Whether it has reported since the watch began.
        std::uint64_t age = 0;  ///< Milliseconds since its last report, or since the watch began.
        NodeState state = NodeState::Online;
    };

    /// Watches these nodes of `health`, which must outlive the watch.
    NodeWatch(VxCommon::Health& health, const std::vector<std::uint32_t>& nodeIds);
    ~NodeWatch();
    NodeWatch(const NodeWatch&) = delete;
    NodeWatch& operator=(const NodeWatch&) = delete;

    /// All nodes, by id.
    std::vector<Node> Nodes() const;

    /// The node of that id; nothing when it is not watched.
    std::optional<Node> Find(std::uint32_t nodeId) const;

    /// Logs which nodes have become stale, or are back, since the last check. True when any has. Whoever shows the
    /// states calls it once a second and tells of it. A check that comes late judges nothing: what held it up will have
    /// held up the reports as well.
    bool Check();

private:
    struct Entry
    {
        std::uint64_t lastTime = 0;  // Microseconds.
        bool reported = false;
        NodeState checked = NodeState::Online;
    };

    static Node Describe(std::uint32_t nodeId, const Entry& entry, std::uint64_t now);
    void OnReport(std::uint32_t nodeId);

    VxCommon::Health& health_;
    mutable Nucleo::Mutex mutex_;  // A leaf: nothing is called under it.
    std::map<std::uint32_t, Entry> entries_ VX_GUARDED_BY(mutex_);
    std::uint64_t lastCheck_ VX_GUARDED_BY(mutex_) = 0;  // Microseconds.
    Vx::Subscription reports_;
};

}  // namespace VxHost

template <>
struct Vx::Properties::EnumTraits<VxHost::NodeState>
{
    static std::vector<std::pair<VxHost::NodeState, std::string>> Values()
    {
        return {{VxHost::NodeState::Online, "Online"}, {VxHost::NodeState::Stale, "Stale"}};
    }
};
