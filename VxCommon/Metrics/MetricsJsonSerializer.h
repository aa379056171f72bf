#pragma once
// The JSON form of metrics.

#include <VxApi/Properties.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Any thread may call, on metrics that no other thread changes meanwhile.
class VXCOMMON_API MetricsJsonSerializer
{
public:
    /// The JSON form, and the schema, of a structure, a value or an array.
    static nlohmann::json Serialize(const Vx::Properties::Node& value);
    static nlohmann::json SerializeSchema(const Vx::Properties::Node& value);
};

}  // namespace VxCommon
