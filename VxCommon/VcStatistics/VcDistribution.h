#pragma once
// A running summary of floating-point samples. A plain value: copy it as bytes, use it on one thread at a time. See
// Logger/VcLogMsg.h for the rules of the C-style layer.

#include <cstdint>

#include <Nucleo/Assembly.h>
#include <VxCommon/VcLib/Export.h>

/// Make it with {} and VcDistribution_Reset().
struct VcDistribution
{
    VXCOMMON_API static const Nucleo::Type& StaticType() noexcept;

    char name[16];  ///< Label: at most 15 bytes and a NUL.
    double last;    ///< The last sample.
    double min;
    double max;
    double range;  ///< max - min.
    double sum;
    double sumSquares;
    std::uint64_t count;
};
static_assert(sizeof(VcDistribution) == 72);

struct VcDistributionStatistics
{
    std::uint64_t count;
    double min;
    double max;
    double range;
    double mean;
    double stdDev;    ///< 0 where the variance is not positive.
    double variance;  ///< Of the sample (n - 1), in the unit squared. Not a number for one sample; may be below 0.
};
static_assert(sizeof(VcDistributionStatistics) == 56);

// All of these answer OK unless they say otherwise.
extern "C" {

/// Takes a sample. One that is not a number leaves the minimum and the maximum as they are and spoils the sums.
VXCOMMON_API Nucleo::Status VcDistribution_AddSample(VcDistribution* distribution, double sample);

/// What the samples amount to. Without samples: as VcDistribution_ResetStatistics() leaves it. A null `statistics` is
/// answered with 0 and nothing is done.
VXCOMMON_API Nucleo::Status VcDistribution_Statistics(const VcDistribution* distribution,
                                                      VcDistributionStatistics* statistics);

/// Forgets all samples: the minimum is the largest finite number, the maximum and the range its negative, everything
/// else 0. The name stays.
VXCOMMON_API Nucleo::Status VcDistribution_Reset(VcDistribution* distribution);

/// Starts the mean and the variance anew. Minimum, maximum, range and the last sample stay, so that the extremes are
/// not forgotten.
VXCOMMON_API Nucleo::Status VcDistribution_Reset2(VcDistribution* distribution);

/// The count is 0, everything else the negative of the largest finite number.
VXCOMMON_API Nucleo::Status VcDistribution_ResetStatistics(VcDistributionStatistics* statistics);

/// Takes the first 15 bytes of `text` as the name; what does not fit is cut off.
VXCOMMON_API Nucleo::Status VcDistribution_SetName(VcDistribution* distribution, const char* text);

/// Registers the value "VcDistribution" and how it is serialized (docs/files.md). Not one of the types that the library
/// announces by itself: for assemblies of those who serialize it. What the assembly answers.
VXCOMMON_API Nucleo::Status xxVcDistribution_Register(Nucleo::Assembly* assembly);

}  // extern "C"
