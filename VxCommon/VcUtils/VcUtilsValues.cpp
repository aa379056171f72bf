#include <limits>
#include <string_view>

#include <Nucleo/Assembly.h>
#include <VxCommon/VcUtils/VcUtils.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;

namespace
{

constexpr double null = std::numeric_limits<double>::lowest();

bool ParsePacked(const char* text, std::uint32_t* packed)
{
    Nucleo::Version version{};
    if (Nucleo::Version_Parse(text, &version) != OK) {
        return false;
    }
    *packed = 0;
    for (const std::uint8_t part : version.parts) {
        *packed = *packed << 8U | part;
    }
    return true;
}

template <class T>
Status Output(double value, double scale, T* output, bool* invalid)
{
    constexpr T marker = std::numeric_limits<T>::min();
    bool fits = true;
    *output = marker;
    if (value != null) {
        const double scaled = value * scale;
        fits = VcUtils_CanRoundTo64Bit(scaled);
        if (fits) {
            const auto rounded = static_cast<std::int64_t>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
            fits = rounded >= marker && rounded <= std::numeric_limits<T>::max();
            *output = fits ? static_cast<T>(rounded) : marker;
        }
    }
    if (invalid != nullptr) {
        *invalid = !fits;
    }
    return OK;
}

}  // namespace

bool VcUtils_VersionsMatch(std::uint32_t a, std::uint32_t b)
{
    const bool acceptsAnyRelease = (a & 0xFFFFU) == 0;
    return acceptsAnyRelease ? a >> 16U == b >> 16U : a == b;
}

bool VcUtils_CheckVersions(const char* a, const char* b)
{
    std::uint32_t packedA = 0;
    std::uint32_t packedB = 0;
    if (!ParsePacked(a, &packedA) || !ParsePacked(b, &packedB)) {
        return false;
    }
    constexpr std::string_view any = "0.0.0.0";
    return a == any || b == any || VcUtils_VersionsMatch(packedA, packedB);
}

Status VcUtils_Output32s(double value, double scale, std::int32_t* output, bool* invalid)
{
    return Output(value, scale, output, invalid);
}

Status VcUtils_Output64s(double value, double scale, std::int64_t* output, bool* invalid)
{
    return Output(value, scale, output, invalid);
}

bool VcUtils_CanRoundTo64Bit(double value)
{
    constexpr double end = 9223372036854775808.0;  // 2^63
    return value >= -end && value < end;
}
