#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include <TesselLib/Health.h>

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

enum Kind : std::uint32_t
{
    Kind_Statistics = 1,
    Kind_InputEvents = 2,
};

constexpr std::size_t HeadSize = 12;

/// Reads numbers one after the other. The caller knows that the bytes are there.
class Reader
{
public:
    explicit Reader(const std::uint8_t* at) noexcept : at_(at) {}

    template <class T>
    T Take() noexcept
    {
        std::array<std::uint8_t, sizeof(T)> bytes;
        Take(bytes.data(), bytes.size());
        if constexpr (std::endian::native == std::endian::big) {
            std::reverse(bytes.begin(), bytes.end());
        }
        return std::bit_cast<T>(bytes);
    }

    void Take(void* target, std::size_t size) noexcept
    {
        std::memcpy(target, at_, size);
        at_ += size;
    }

private:
    const std::uint8_t* at_;
};

void Read(Reader& reader, HealthStatistic& item) noexcept
{
    reader.Take(item.name, sizeof item.name);
    item.id = reader.Take<std::uint32_t>();
    item.instance = reader.Take<std::uint32_t>();
    item.value = reader.Take<std::int64_t>();
}

void Read(Reader& reader, InputEvent& item) noexcept
{
    item.dateTime = reader.Take<std::uint64_t>();
    item.input = reader.Take<std::uint32_t>();
    item.level = reader.Take<std::uint32_t>();
}

// The records have no padding, so they are as large in a message as in memory.
template <class Record>
Nucleo::Status DecodeRecords(HealthMessage** message, std::uint32_t source, std::uint32_t count,
                             std::span<const std::uint8_t> bytes, Nucleo::Allocator* allocator) noexcept
{
    if (count > HealthMessage::MaxItems) {
        return ERROR_LIMIT;
    }
    if (bytes.size() != count * sizeof(Record)) {
        return ERROR_FORMAT;
    }
    Nucleo::Handle<Nucleo::ArrayList<Record>> list;
    Nucleo::Status status = Nucleo::ArrayList<Record>::Make(list.Receive(), count, allocator);
    if (status == OK) {
        status = list->Resize(count);
    }
    if (status != OK) {
        return status;
    }
    Reader reader(bytes.data());
    for (std::size_t i = 0; i < count; ++i) {
        Read(reader, list->At(i));
    }
    return HealthMessage::Make(message, source, *list, allocator);
}

}  // namespace

Nucleo::Status HealthMessage::Make(HealthMessage** message, std::uint32_t source, Nucleo::AnyArrayList& content,
                                   Nucleo::Allocator* allocator) noexcept
{
    *message = nullptr;
    const Nucleo::Type* type = &content.ItemType();
    if (type != &HealthStatistic::StaticType() && type != &InputEvent::StaticType()) {
        return ERROR_PARAMETER;
    }
    return content.ItemCount() > MaxItems ? ERROR_LIMIT : Nucleo::Construct(message, allocator, source, content);
}

Nucleo::Status HealthMessage::Decode(HealthMessage** message, std::span<const std::uint8_t> bytes,
                                     Nucleo::Allocator* allocator) noexcept
{
    *message = nullptr;
    if (bytes.size() < HeadSize) {
        return ERROR_FORMAT;
    }
    Reader reader(bytes.data());
    const auto source = reader.Take<std::uint32_t>();
    const auto kind = reader.Take<std::uint32_t>();
    const auto count = reader.Take<std::uint32_t>();
    const auto records = bytes.subspan(HeadSize);
    switch (kind) {
        case Kind_Statistics:
            return DecodeRecords<HealthStatistic>(message, source, count, records, allocator);
        case Kind_InputEvents:
            return DecodeRecords<InputEvent>(message, source, count, records, allocator);
        default:
            return ERROR_FORMAT;
    }
}

HealthMessage::HealthMessage(std::uint32_t source, Nucleo::AnyArrayList& content) noexcept
    : source_(source), content_(content)
{
    content_.Share();
}

HealthMessage::~HealthMessage()
{
    Nucleo::Destroy(&content_);
}

const Nucleo::Type& HealthMessage::StaticType() noexcept
{
    static const Nucleo::Type type{"HealthMessage", &Nucleo::Object::StaticType(), sizeof(HealthMessage)};
    return type;
}

const Nucleo::Type& HealthStatistic::StaticType() noexcept
{
    static const Nucleo::Type type{"HealthStatistic", nullptr, sizeof(HealthStatistic)};
    return type;
}

const Nucleo::Type& InputEvent::StaticType() noexcept
{
    static const Nucleo::Type type{"InputEvent", nullptr, sizeof(InputEvent)};
    return type;
}

}  // namespace TesselLib
