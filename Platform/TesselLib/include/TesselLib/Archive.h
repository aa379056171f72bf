#pragma once
// The platform's named-streams archive: a set of named byte strings read from a stream in one go.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <Nucleo/Stream.h>

namespace TesselLib
{

/// Entries of a tar archive held in memory. Not changed after reading, so it may be read from any thread.
class Archive : public Nucleo::Object
{
public:
    static const Nucleo::Type& StaticType() noexcept;

    /// Total data of one archive; a stream that holds more is refused with ERROR_LIMIT.
    static constexpr std::uint64_t MaxSize = std::uint64_t{256} * 1024 * 1024;

    /// Replaces the content by the regular files of the tar archive in `stream`. ERROR_FORMAT when the stream is no
    /// archive or is damaged, ERROR_END when it is cut within a file's data, ERROR_LIMIT above MaxSize; the archive is
    /// as it was then. An archive that lacks its end blocks only is taken.
    virtual Nucleo::Status Read(Nucleo::Stream& stream) = 0;

    virtual std::size_t Count() const = 0;

    /// The name of entry `index`, in the archive's order; empty when there is no such entry.
    virtual std::string_view Name(std::size_t index) const = 0;

    /// The entry of that name, the last one where there are several, as unpacking would have it. `*data` and `*size`
    /// refer to the archive's own memory until it is read anew. ERROR_NOT_FOUND when missing; null and 0 then.
    virtual Nucleo::Status Find(std::string_view name, const std::uint8_t** data, std::size_t* size) const = 0;
};

/// Makes an empty archive. On failure `*archive` is null.
Nucleo::Status Archive_Construct(Archive** archive, Nucleo::Allocator* allocator = nullptr) noexcept;

}  // namespace TesselLib
