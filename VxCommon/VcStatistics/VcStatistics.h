#pragma once
// A moving average over the last samples of a counter or a timer. Used by one thread at a time.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Averages the last 50 samples in whole numbers, and fewer until that many have come. All memory is taken when the
/// object is made, so that no operation fails but construction and copying for want of it (std::bad_alloc). Moving
/// copies: the source keeps its samples.
class VXCOMMON_API VcStatistics
{
public:
    VcStatistics();
    VcStatistics(const VcStatistics& other);
    VcStatistics& operator=(const VcStatistics& other) = default;
    ~VcStatistics() = default;

    /// Takes a sample of at most 32 bits, a larger one as 0xFFFFFFFF; drops the oldest one when the window is full.
    void Add(std::uint64_t sample) noexcept;

    /// The average as it was last computed, rounded down; 0 before the first sample.
    std::uint64_t SimpleMovingAverage() const noexcept { return average_; }

    /// Both compute the average anew. It is current after each Add() in any case. 0 when there are no samples.
    void CalculateAverage() noexcept;
    void UpdateStatistics() noexcept { CalculateAverage(); }

    /// Drops all samples.
    void Reset() noexcept;

private:
    static constexpr std::size_t Window = 50;

    std::size_t position_ = 0;         // Where the next sample goes once the window is full.
    std::size_t windowSize_ = Window;  // Samples averaged; Add() relies on the number.
    std::vector<std::uint64_t> samples_;
    std::uint64_t sum_ = 0;
    std::uint64_t average_ = 0;
};

}  // namespace VxCommon
