#include <VxCommon/Metrics/MetricsJsonSerializer.h>

#include <VxApi/JsonSerializer.h>

namespace VxCommon
{

nlohmann::json MetricsJsonSerializer::Serialize(const Vx::Properties::Node& value)
{
    return Vx::Properties::JsonSerializer::Serialize(value);
}

nlohmann::json MetricsJsonSerializer::SerializeSchema(const Vx::Properties::Node& value)
{
    return Vx::Properties::JsonSerializer::SerializeSchema(value);
}

}  // namespace VxCommon
