#include <VxCommon/VcStatistics/VcDistribution.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <span>

#include <Nucleo/Serializer.h>
#include <Nucleo/ValueTypes.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;

namespace
{

constexpr double Largest = std::numeric_limits<double>::max();

// An item on a stream: the bytes of the name, then the numbers in the order of the fields.
constexpr std::size_t SerializedSize = 72;

Status WriteItems(Nucleo::Serializer& serializer, const void* items, std::size_t count)
{
    for (const VcDistribution& item : std::span(static_cast<const VcDistribution*>(items), count)) {
        Status status = serializer.WriteBytes(item.name, sizeof item.name);
        for (const double value : {item.last, item.min, item.max, item.range, item.sum, item.sumSquares}) {
            status = status == OK ? serializer.WriteValue(value) : status;
        }
        status = status == OK ? serializer.WriteValue(item.count) : status;
        if (status != OK) {
            return status;
        }
    }
    return OK;
}

Status ReadItems(Nucleo::Deserializer& deserializer, void* items, std::size_t count)
{
    for (VcDistribution& item : std::span(static_cast<VcDistribution*>(items), count)) {
        Status status = deserializer.ReadBytes(item.name, sizeof item.name);
        item.name[sizeof item.name - 1] = '\0';  // Whoever wrote it may not have ended it.
        for (double* value : {&item.last, &item.min, &item.max, &item.range, &item.sum, &item.sumSquares}) {
            status = status == OK ? deserializer.ReadValue(value) : status;
        }
        status = status == OK ? deserializer.ReadValue(&item.count) : status;
        if (status != OK) {
            return status;
        }
    }
    return OK;
}

}  // namespace

const Nucleo::Type& VcDistribution::StaticType() noexcept
{
    static const Nucleo::Type type{"VcDistribution", nullptr, sizeof(VcDistribution)};
    return type;
}

Status VcDistribution_AddSample(VcDistribution* distribution, double sample)
{
    // Branches for the extremes, which are hardly ever taken, and the two sums apart: where compilers compute fields
    // together, each call waits longer for what the one before it stored.
    distribution->count += 1;
    distribution->sum += sample;
    if (sample < distribution->min) {
        distribution->min = sample;
    }
    if (distribution->max < sample) {
        distribution->max = sample;
    }
    distribution->last = sample;
    distribution->range = distribution->max - distribution->min;
    distribution->sumSquares += sample * sample;
    return OK;
}

Status VcDistribution_Statistics(const VcDistribution* distribution, VcDistributionStatistics* statistics)
{
    if (statistics == nullptr) {
        return 0;
    }
    VcDistribution_ResetStatistics(statistics);
    if (distribution->count == 0) {
        return OK;
    }
    statistics->count = distribution->count;
    statistics->min = distribution->min;
    statistics->max = distribution->max;
    statistics->range = distribution->range;
    const auto n = static_cast<double>(distribution->count);
    const double sum = distribution->sum;
    statistics->mean = sum / n;
    // Fused operations would make the difference for one sample its rounding error instead of 0.
    statistics->variance = (n * distribution->sumSquares - sum * sum) / ((n - 1) * n);
    statistics->stdDev = statistics->variance > 0 ? std::sqrt(statistics->variance) : 0;
    return OK;
}

Status VcDistribution_Reset(VcDistribution* distribution)
{
    distribution->last = 0;
    distribution->min = Largest;
    distribution->max = -Largest;
    distribution->range = -Largest;
    return VcDistribution_Reset2(distribution);
}

Status VcDistribution_Reset2(VcDistribution* distribution)
{
    distribution->sum = 0;
    distribution->sumSquares = 0;
    distribution->count = 0;
    return OK;
}

Status VcDistribution_ResetStatistics(VcDistributionStatistics* statistics)
{
    *statistics = {0, -Largest, -Largest, -Largest, -Largest, -Largest, -Largest};
    return OK;
}

Status VcDistribution_SetName(VcDistribution* distribution, const char* text)
{
    char name[sizeof distribution->name] = {};
    std::strncpy(name, text, sizeof name - 1);
    std::memcpy(distribution->name, name, sizeof name);  // Whole: the bytes behind the text are serialized too.
    return OK;
}

Status xxVcDistribution_Register(Nucleo::Assembly* assembly)
{
    using Nucleo::Float64Type;
    const Nucleo::TypeField fields[] = {{"name", &Nucleo::CharType, offsetof(VcDistribution, name), 16},
                                        {"last", &Float64Type, offsetof(VcDistribution, last)},
                                        {"min", &Float64Type, offsetof(VcDistribution, min)},
                                        {"max", &Float64Type, offsetof(VcDistribution, max)},
                                        {"range", &Float64Type, offsetof(VcDistribution, range)},
                                        {"sum", &Float64Type, offsetof(VcDistribution, sum)},
                                        {"sumSquares", &Float64Type, offsetof(VcDistribution, sumSquares)},
                                        {"count", &Nucleo::UInt64Type, offsetof(VcDistribution, count)}};
    const Nucleo::ValueFormat formats[] = {
        {"kdat5", {{5, 0, 0, 0}}, "188-0", SerializedSize, &WriteItems, &ReadItems},
        {"kdat6", {{5, 7, 1, 0}}, "VcDistribution-0", SerializedSize, &WriteItems, &ReadItems}};
    const Status status = assembly->AddValue(VcDistribution::StaticType(), fields);
    return status == OK ? assembly->AddFormats(VcDistribution::StaticType(), formats) : status;
}
