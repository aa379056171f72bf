#include <cstdio>
#include <cstring>
#include <string_view>

#include <TesselLib/System.h>

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

std::string_view NameOf(std::int32_t type)
{
    switch (static_cast<ControllerType>(type)) {
        case ControllerType::Unknown:
            return "unknown";
        case ControllerType::Virtual:
            return "virtual";
        case ControllerType::SensorA:
            return "sensor-a";
        case ControllerType::SensorB:
            return "sensor-b";
        case ControllerType::SensorC:
            return "sensor-c";
        case ControllerType::AccelixA:
            return "accelix-a";
        case ControllerType::AccelixB:
            return "accelix-b";
        case ControllerType::SensorD:
            return "sensor-d";
        case ControllerType::SensorE:
            return "sensor-e";
    }
    return {};
}

}  // namespace

Nucleo::Status ControllerType_Format(std::int32_t type, char* text, std::size_t capacity)
{
    char unnamed[sizeof("type-4294967295")];
    std::string_view name = NameOf(type);
    if (name.empty()) {
        const int length = std::snprintf(unnamed, sizeof unnamed, "type-%u", static_cast<std::uint32_t>(type));
        name = {unnamed, static_cast<std::size_t>(length)};
    }
    if (capacity <= name.size()) {
        return ERROR_CAPACITY;
    }
    std::memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
    return OK;
}

}  // namespace TesselLib
