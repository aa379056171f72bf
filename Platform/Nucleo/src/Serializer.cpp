#include <Nucleo/Serializer.h>

namespace Nucleo
{
namespace
{

constexpr std::string_view Formats[] = {"kdat5", "kdat6"};

/// Written as a number, so that the order of its bytes is that of the stream.
constexpr std::uint32_t ByteOrderMark = 0x01020304;

/// The name of a known format that lives on; empty when there is none.
std::string_view KnownFormat(std::string_view name)
{
    const auto* known = std::find(std::begin(Formats), std::end(Formats), name);
    return known != std::end(Formats) ? *known : std::string_view();
}

bool IsAfter(const Version& a, const Version& b)
{
    return std::lexicographical_compare(std::begin(b.parts), std::end(b.parts), std::begin(a.parts), std::end(a.parts));
}

/// How that version of the format has the type: the way that came last. Null when it does not have it.
const ValueFormat* Select(const Assembly& types, const Type& type, std::string_view format, const Version& version)
{
    const TypeEntry* entry = types.Find(type.name);
    if (entry == nullptr || entry->type != &type) {
        return nullptr;
    }
    const ValueFormat* selected = nullptr;
    for (const ValueFormat& item : entry->formats) {
        if (item.format == format && !IsAfter(item.from, version) &&
            (selected == nullptr || !IsAfter(selected->from, item.from))) {
            selected = &item;
        }
    }
    return selected;
}

}  // namespace

Status Serializer::Open(std::string_view format, Version version, bool swapByteOrder)
{
    format_ = KnownFormat(format);
    if (format_.empty()) {
        return ERROR_FORMAT;
    }
    version_ = version;
    swap_ = swapByteOrder;
    used_ = 0;
    Status status = WriteText(format_);
    if (status == OK) {
        status = WriteBytes(version_.parts, sizeof version_.parts);
    }
    return status == OK ? WriteValue(ByteOrderMark) : status;
}

Status Serializer::WriteArray(const Type& type, const void* items, std::size_t count)
{
    const ValueFormat* format = Select(types_, type, format_, version_);
    if (format == nullptr) {
        return ERROR_UNSUPPORTED;
    }
    Status status = WriteText(format->typeName);
    if (status == OK) {
        status = WriteValue(std::uint64_t{count});
    }
    return status == OK ? format->write(*this, items, count) : status;
}

Status Serializer::Close()
{
    const Status status = used_ != 0 ? stream_.Write(buffer_.data(), used_) : OK;
    used_ = 0;
    return status;
}

Status Serializer::WriteBytes(const void* data, std::size_t size)
{
    const auto* from = static_cast<const std::uint8_t*>(data);
    while (size > buffer_.size() - used_) {
        const std::size_t part = buffer_.size() - used_;
        std::memcpy(buffer_.data() + used_, from, part);
        used_ = buffer_.size();
        from += part;
        size -= part;
        if (const Status status = Close(); status != OK) {
            return status;
        }
    }
    if (size != 0) {
        std::memcpy(buffer_.data() + used_, from, size);
        used_ += size;
    }
    return OK;
}

Status Serializer::WriteText(std::string_view text)
{
    const Status status = WriteValue(static_cast<std::uint8_t>(text.size()));
    return status == OK ? WriteBytes(text.data(), text.size()) : status;
}

Status Deserializer::Open()
{
    format_ = {};
    swap_ = false;
    std::array<char, Serializer::MaxText> buffer;
    std::string_view name;
    if (const Status status = ReadText(&buffer, &name); status != OK) {
        return status;
    }
    const std::string_view format = KnownFormat(name);
    if (format.empty()) {
        return ERROR_FORMAT;
    }
    if (const Status status = ReadBytes(version_.parts, sizeof version_.parts); status != OK) {
        return status;
    }
    std::array<std::uint8_t, sizeof ByteOrderMark> mark;
    if (const Status status = ReadBytes(mark.data(), mark.size()); status != OK) {
        return status;
    }
    auto ours = std::bit_cast<std::array<std::uint8_t, sizeof ByteOrderMark>>(ByteOrderMark);
    if (mark != ours) {
        std::reverse(ours.begin(), ours.end());
        if (mark != ours) {
            return ERROR_FORMAT;
        }
        swap_ = true;
    }
    format_ = format;
    return OK;
}

Status Deserializer::BeginArray(const Type& type, const ValueFormat** format, std::uint64_t* count, std::size_t* room)
{
    *format = Select(types_, type, format_, version_);
    if (*format == nullptr) {
        return ERROR_UNSUPPORTED;
    }
    std::array<char, Serializer::MaxText> buffer;
    std::string_view name;
    if (const Status status = ReadText(&buffer, &name); status != OK) {
        return status;
    }
    if (name != (*format)->typeName) {
        return ERROR_CONTENT;
    }
    if (const Status status = ReadValue(count); status != OK) {
        return status;
    }
    const std::uint64_t bytesLeft = stream_.BytesLeft();
    if (*count > bytesLeft / (*format)->itemSize) {
        return ERROR_END;
    }
    const bool known = bytesLeft != std::numeric_limits<std::uint64_t>::max();
    *room = known ? *count : std::min<std::uint64_t>(*count, UncheckedItems);
    expected_ = *count * (*format)->itemSize;
    return OK;
}

Status Deserializer::ReadBytes(void* data, std::size_t size)
{
    auto* to = static_cast<std::uint8_t*>(data);
    while (size > end_ - at_) {
        const std::size_t part = end_ - at_;
        std::memcpy(to, buffer_.data() + at_, part);
        to += part;
        size -= part;
        at_ = 0;
        // Ahead of the call only what is known to follow: behind the array the stream may go on with something else.
        const std::size_t needed = std::min(size, buffer_.size());
        const std::size_t most = std::clamp<std::uint64_t>(expected_, needed, buffer_.size());
        if (const Status status = stream_.Read(buffer_.data(), needed, most, &end_); status != OK) {
            end_ = 0;
            return status;
        }
        expected_ -= std::min<std::uint64_t>(expected_, end_);
    }
    std::memcpy(to, buffer_.data() + at_, size);
    at_ += size;
    return OK;
}

Status Deserializer::ReadText(std::array<char, Serializer::MaxText>* buffer, std::string_view* text)
{
    std::uint8_t length = 0;
    if (const Status status = ReadValue(&length); status != OK) {
        return status;
    }
    if (length == 0 || length > buffer->size()) {
        return ERROR_FORMAT;
    }
    *text = {buffer->data(), length};
    return ReadBytes(buffer->data(), length);
}

}  // namespace Nucleo
