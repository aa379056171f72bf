#include "NodeWatch.h"

#include <utility>

#include <Nucleo/Clock.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>

namespace VxHost
{

using Vx::Logging::Level;

NodeWatch::NodeWatch(VxCommon::Health& health, const std::vector<std::uint32_t>& nodeIds) : health_(health)
{
    const std::uint64_t now = Nucleo::UpTime_Now();
    {
        const Nucleo::MutexGuard guard(mutex_);
        for (const std::uint32_t id : nodeIds) {
            entries_[id].lastTime = now;
        }
        lastCheck_ = now;
    }
    reports_ = health.NodeCacheUpdatedEvent().Subscribe(
        [this](VxCommon::Health&, std::uint32_t nodeId, void*) { OnReport(nodeId); });
}

NodeWatch::~NodeWatch()
{
    // The event is raised under the lock: no other thread is inside the listener now.
    const Vx::Locker locker(health_.GetLock());
    reports_.Reset();
}

NodeWatch::Node NodeWatch::Describe(std::uint32_t nodeId, const Entry& entry, std::uint64_t now)
{
    const std::uint64_t age = now > entry.lastTime ? now - entry.lastTime : 0;
    const bool stale = age > static_cast<std::uint64_t>(StaleAge.count());
    return {nodeId, entry.reported, age / 1000, stale ? NodeState::Stale : NodeState::Online};
}

std::vector<NodeWatch::Node> NodeWatch::Nodes() const
{
    const std::uint64_t now = Nucleo::UpTime_Now();
    std::vector<Node> nodes;
    const Nucleo::MutexGuard guard(mutex_);
    for (const auto& [id, entry] : entries_) {
        nodes.push_back(Describe(id, entry, now));
    }
    return nodes;
}

std::optional<NodeWatch::Node> NodeWatch::Find(std::uint32_t nodeId) const
{
    const std::uint64_t now = Nucleo::UpTime_Now();
    const Nucleo::MutexGuard guard(mutex_);
    const auto found = entries_.find(nodeId);
    return found != entries_.end() ? std::optional(Describe(nodeId, found->second, now)) : std::nullopt;
}

bool NodeWatch::Check()
{
    const std::uint64_t now = Nucleo::UpTime_Now();
    std::vector<Node> changed;
    {
        const Nucleo::MutexGuard guard(mutex_);
        const std::uint64_t before = std::exchange(lastCheck_, now);
        if (now - before > static_cast<std::uint64_t>(2 * HealthReporter::Period.count())) {
            return false;
        }
        for (auto& [id, entry] : entries_) {
            const Node node = Describe(id, entry, now);
            if (node.state != entry.checked) {
                entry.checked = node.state;
                changed.push_back(node);
            }
        }
    }
    for (const Node& node : changed) {
        if (node.state == NodeState::Stale) {
            Vx::Logging::Public(Level::Warning, "Health", "Node %u is stale: it has not reported for %llu ms.", node.id,
                                node.age);
        } else {
            Vx::Logging::Public(Level::Info, "Health", "Node %u reports again.", node.id);
        }
    }
    return !changed.empty();
}

void NodeWatch::OnReport(std::uint32_t nodeId)
{
    const std::uint64_t now = Nucleo::UpTime_Now();
    const Nucleo::MutexGuard guard(mutex_);
    if (const auto found = entries_.find(nodeId); found != entries_.end()) {
        found->second.lastTime = now;
        found->second.reported = true;
    }
}

}  // namespace VxHost
