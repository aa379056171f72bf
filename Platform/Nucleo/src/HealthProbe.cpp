#include <algorithm>
#include <cstring>

#include <Nucleo/HealthProbe.h>
#include <Nucleo/Lock.h>

namespace Nucleo
{
namespace
{

struct LiveProbes
{
    Mutex mutex;
    std::vector<const HealthProbe*> probes VX_GUARDED_BY(mutex);
};

// Never destroyed: probes may go while the process ends.
LiveProbes& Live()
{
    static auto* live = new LiveProbes;
    return *live;
}

}  // namespace

Status HealthProbe::Make(HealthProbe** probe, const char* name, std::uint32_t id, std::uint32_t instance,
                         std::int64_t initial, std::int64_t offset, std::int64_t multiplier,
                         Allocator* allocator) noexcept
{
    *probe = nullptr;
    if (name == nullptr || std::strlen(name) >= sizeof name_) {
        return ERROR_PARAMETER;
    }
    return Construct(probe, allocator, name, id, instance, initial, offset, multiplier);
}

HealthProbe::HealthProbe(const char* name, std::uint32_t id, std::uint32_t instance, std::int64_t initial,
                         std::int64_t offset, std::int64_t multiplier)
    : name_{}, id_(id), instance_(instance), offset_(offset), multiplier_(multiplier), value_(initial)
{
    std::strncpy(name_, name, sizeof name_ - 1);
    LiveProbes& live = Live();
    const MutexGuard guard(live.mutex);
    live.probes.push_back(this);
}

HealthProbe::~HealthProbe()
{
    LiveProbes& live = Live();
    const MutexGuard guard(live.mutex);
    live.probes.erase(std::find(live.probes.begin(), live.probes.end(), this));
}

std::int64_t HealthProbe::Value() const noexcept
{
    const auto value = static_cast<std::uint64_t>(value_.load(std::memory_order_relaxed));
    return static_cast<std::int64_t>(value * static_cast<std::uint64_t>(multiplier_) +
                                     static_cast<std::uint64_t>(offset_));
}

Status HealthProbe::Reset(std::int64_t value) noexcept
{
    SetValue(value);
    return OK;
}

std::vector<HealthProbe::Reading> HealthProbe::ListLive()
{
    LiveProbes& live = Live();
    const MutexGuard guard(live.mutex);
    std::vector<Reading> readings;
    readings.reserve(live.probes.size());
    for (const HealthProbe* probe : live.probes) {
        readings.push_back({probe->Name(), probe->Id(), probe->Instance(), probe->Value()});
    }
    return readings;
}

const Type& HealthProbe::StaticType() noexcept
{
    static const Type type{"HealthProbe", &Object::StaticType(), sizeof(HealthProbe)};
    return type;
}

}  // namespace Nucleo
