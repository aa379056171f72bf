#pragma once

#include <atomic>

#include <VxCommon/System/IUpdatableSystem.h>

/// Pauses while persistence initialises, loads or saves handlers. Any thread may call.
class Acquisition final : public VxCommon::IUpdatableSystem
{
public:
    void BeginUpdate(bool /*flag*/) override { ++updates_; }
    void EndUpdate() override { --updates_; }
    bool IsPaused() const { return updates_ != 0; }

private:
    std::atomic<int> updates_{0};
};
