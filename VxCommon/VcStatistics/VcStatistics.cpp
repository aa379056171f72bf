#include <VxCommon/VcStatistics/VcStatistics.h>

#include <algorithm>

#include <VxApi/Logging.h>

namespace VxCommon
{
namespace
{

// What a full window does not need is apart, so that adding a sample to one stays short.

[[gnu::noinline]] void Append(std::vector<std::uint64_t>& samples, std::uint64_t value) noexcept
{
    samples.push_back(value);  // The room is there.
}

[[gnu::noinline, gnu::cold]] void ReportUnderflow(std::size_t position) noexcept
{
    Vx::Logging::Debug(Vx::Logging::Level::Warning, VX_HERE_AS("VxCommon::VcStatistics::Add"),
                       "underflow detected in VcStatistics at index:%zd", position);
}

}  // namespace

VcStatistics::VcStatistics()
{
    samples_.reserve(windowSize_);
}

VcStatistics::VcStatistics(const VcStatistics& other) : VcStatistics()
{
    *this = other;  // Keeps the room for a whole window.
}

void VcStatistics::Add(std::uint64_t sample) noexcept
{
    const std::uint64_t value = std::min<std::uint64_t>(sample, 0xFFFFFFFF);
    if (samples_.size() < windowSize_) {
        Append(samples_, value);
        sum_ += value;
        CalculateAverage();
    } else {
        const std::uint64_t oldest = samples_[position_];
        if (sum_ < oldest) {
            ReportUnderflow(position_);
            sum_ = oldest;
        }
        samples_[position_] = value;
        sum_ = sum_ - oldest + value;
        average_ = sum_ / Window;  // By a constant, which is no division for the processor.
    }
    position_ = position_ + 1 < windowSize_ ? position_ + 1 : 0;
}

void VcStatistics::CalculateAverage() noexcept
{
    average_ = samples_.empty() ? 0 : sum_ / samples_.size();
}

void VcStatistics::Reset() noexcept
{
    samples_.clear();
    position_ = 0;
    sum_ = 0;
    average_ = 0;
}

}  // namespace VxCommon
