#pragma once
// Health probes: named, numbered values that a node reports about itself.
// A probe's value may be set and read from any thread, and so may the list of live probes.

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include <Nucleo/Object.h>

namespace Nucleo
{

class HealthProbe final : public Object
{
public:
    /// A probe in memory of `allocator` (null: the default one). It shows `value * multiplier + offset` (wrapping) and
    /// starts with `initial`. It is listed among the live probes until its last reference goes. On failure `*probe` is
    /// null: ERROR_PARAMETER for a null name or one of more than 63 bytes, ERROR_MEMORY.
    static Status Make(HealthProbe** probe, const char* name, std::uint32_t id, std::uint32_t instance,
                       std::int64_t initial, std::int64_t offset, std::int64_t multiplier,
                       Allocator* allocator) noexcept;

    ~HealthProbe() override;

    const char* Name() const noexcept { return name_; }
    std::uint32_t Id() const noexcept { return id_; }
    std::uint32_t Instance() const noexcept { return instance_; }

    /// What the probe shows.
    std::int64_t Value() const noexcept;

    void SetValue(std::int64_t value) noexcept { value_.store(value, std::memory_order_relaxed); }
    void Add(std::int64_t amount) noexcept { value_.fetch_add(amount, std::memory_order_relaxed); }

    /// Starts again from `value`.
    Status Reset(std::int64_t value) noexcept;

    /// What the live probes of the process show, in the order in which they were made.
    struct Reading
    {
        std::string name;
        std::uint32_t id;
        std::uint32_t instance;
        std::int64_t value;
    };
    static std::vector<Reading> ListLive();

    static const Type& StaticType() noexcept;

private:
    template <class T, class... Args>
    friend Status Construct(T** object, Allocator* allocator, Args&&... args) noexcept;
    HealthProbe(const char* name, std::uint32_t id, std::uint32_t instance, std::int64_t initial, std::int64_t offset,
                std::int64_t multiplier);

    char name_[64];
    const std::uint32_t id_;
    const std::uint32_t instance_;
    const std::int64_t offset_;
    const std::int64_t multiplier_;
    std::atomic<std::int64_t> value_;
};

}  // namespace Nucleo
