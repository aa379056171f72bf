#pragma once
// What nodes report about their health: messages that hold lists of records. The system delivers them, see System.h.

#include <cstddef>
#include <cstdint>
#include <span>

#include <Nucleo/ArrayList.h>

namespace TesselLib
{

/// A named counter of a node. A node's report is a list of these.
struct HealthStatistic
{
    static const Nucleo::Type& StaticType() noexcept;

    char name[64];  ///< At most 63 bytes and a NUL; in what comes from outside the NUL may be missing.
    std::uint32_t id;
    std::uint32_t instance;
    std::int64_t value;
};
static_assert(sizeof(HealthStatistic) == 80 && offsetof(HealthStatistic, id) == 64 &&
              offsetof(HealthStatistic, instance) == 68 && offsetof(HealthStatistic, value) == 72);

/// A change at one of a node's inputs.
struct InputEvent
{
    static const Nucleo::Type& StaticType() noexcept;

    std::uint64_t dateTime;  ///< When it was seen, as Nucleo::DateTime_Now().
    std::uint32_t input;     ///< Number of the input.
    std::uint32_t level;     ///< What the input has since.
};
static_assert(sizeof(InputEvent) == 16 && offsetof(InputEvent, input) == 8 && offsetof(InputEvent, level) == 12);

/// One message of a node. Constant after construction, so any thread may read it; who keeps it adds a reference.
class HealthMessage final : public Nucleo::Object
{
public:
    /// Items that a message holds at most.
    static constexpr std::size_t MaxItems = 65'536;

    /// A message of node `source` that shares `content`, which must not change afterwards. On failure `*message` is
    /// null: ERROR_LIMIT above MaxItems, ERROR_PARAMETER when the items are neither HealthStatistic nor InputEvent,
    /// ERROR_MEMORY. `allocator`: null for the default one.
    static Nucleo::Status Make(HealthMessage** message, std::uint32_t source, Nucleo::AnyArrayList& content,
                               Nucleo::Allocator* allocator) noexcept;

    /// Reads a message as it comes from outside. All numbers are little-endian: source (32 bits), kind (32 bits:
    /// 1 statistics, 2 input events), count (32 bits), then `count` records without gaps, field by field as the records
    /// above. Nothing is taken for granted: ERROR_FORMAT for an unknown kind and for bytes that are not exactly as many
    /// as the count says, ERROR_LIMIT above MaxItems, ERROR_MEMORY. Memory is taken after all of that is checked. Names
    /// are copied as they are. On failure `*message` is null.
    static Nucleo::Status Decode(HealthMessage** message, std::span<const std::uint8_t> bytes,
                                 Nucleo::Allocator* allocator) noexcept;

    /// The id of the node that sent it; it may be no node of the system.
    std::uint32_t SourceNode() const noexcept { return source_; }

    /// A list of HealthStatistic or of InputEvent records, told apart by its ItemType. Lives as long as the message.
    Nucleo::AnyArrayList& Content() const noexcept { return content_; }

    ~HealthMessage() override;
    static const Nucleo::Type& StaticType() noexcept;

private:
    template <class T, class... Args>
    friend Nucleo::Status Nucleo::Construct(T** object, Nucleo::Allocator* allocator, Args&&... args) noexcept;
    HealthMessage(std::uint32_t source, Nucleo::AnyArrayList& content) noexcept;

    const std::uint32_t source_;
    Nucleo::AnyArrayList& content_;
};

/// Called on the platform's health thread, one call at a time, without a lock held. It returns soon and does not throw;
/// it adds a reference to a message that it keeps. It must not release the system for the last time.
using HealthHandlerFx = void (*)(void* receiver, HealthMessage& message);

}  // namespace TesselLib
