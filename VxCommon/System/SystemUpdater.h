#pragma once

#include <VxCommon/System/IUpdatableSystem.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Holds a system in update mode for a scope. An end that fails is logged, never thrown.
class VXCOMMON_API SystemUpdater
{
public:
    /// Calls system.BeginUpdate(flag); what that throws passes through.
    SystemUpdater(IUpdatableSystem& system, bool flag);
    ~SystemUpdater();
    SystemUpdater(const SystemUpdater&) = delete;
    SystemUpdater& operator=(const SystemUpdater&) = delete;

private:
    IUpdatableSystem& system_;
    bool flag_;
};

}  // namespace VxCommon
