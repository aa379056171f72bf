#pragma once
// The documents of the jobs resources.

#include <cstdint>
#include <string>

#include <VxApi/Params.h>

namespace VxCommon::Internal
{

/// "/jobs".
struct JobsProperties : Vx::Params::Group
{
    Vx::Params::Value<std::string> defaultJob{*this, "defaultJob", {.readOnly = true}};
    Vx::Params::Value<std::string> loadedJob{*this, "loadedJob", {.readOnly = true}};
    Vx::Params::Value<bool> loadedJobDirty{*this, "loadedJobDirty", {.readOnly = true}};
};

/// "/jobs/files/:jobFile".
struct JobFileProperties : Vx::Params::Group
{
    Vx::Params::Value<std::string> jobName{*this, "jobName", {.readOnly = true}};
    Vx::Params::Value<std::uint64_t> size{*this, "size", {.readOnly = true}};
};

/// "/jobs/files/:jobFile/data".
struct JobFileDataProperties : Vx::Params::Group
{
    Vx::Params::Value<Vx::Params::Bytes> content{*this, "content"};
};

}  // namespace VxCommon::Internal
