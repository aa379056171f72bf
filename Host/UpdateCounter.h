#pragma once

#include <atomic>

#include <VxApi/Exception.h>
#include <VxCommon/System/IUpdatableSystem.h>

namespace VxHost
{

/// The virtual controller has no hardware to hold still: its updates are only counted. Safe on any thread.
class UpdateCounter final : public VxCommon::IUpdatableSystem
{
public:
    void BeginUpdate(bool /*flag*/) override { ++depth_; }

    /// Throws ERROR_STATE, and stays closed, when no update is open.
    void EndUpdate() override
    {
        if (--depth_ < 0) {
            ++depth_;
            VX_THROW(Nucleo::ERROR_STATE, "No system update is open.");
        }
    }

    /// How many updates are open, one inside the other.
    int Depth() const noexcept { return depth_; }

private:
    std::atomic<int> depth_{0};
};

}  // namespace VxHost
