#pragma once

#include <memory>

#include <VxApi/Params.h>

namespace VxHost
{

/// A parameter structure that is kept as one setting.
struct SettingGroup : Vx::Params::Group
{
    using Group::Group;

    /// Throws ERROR_PARAMETER when values that are fine on their own do not fit together.
    virtual void CheckTogether() const {}
};

/// Makes a group with its defaults.
using SettingFactory = std::unique_ptr<SettingGroup> (*)();

template <class T>
std::unique_ptr<SettingGroup> MakeSettingGroup()
{
    return std::make_unique<T>();
}

}  // namespace VxHost
