#pragma once
// The media types that bodies travel in, and the choice among them. Safe on any thread.

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace VxRest::Http
{

enum class Media
{
    Json,
    Cbor,
    MsgPack,
    Octets
};
inline constexpr std::array<Media, 4> AllMedia = {Media::Json, Media::Cbor, Media::MsgPack, Media::Octets};

/// The media types that request bodies may have, as a field value.
inline constexpr std::string_view BodyMediaTypes =
    "application/json, application/cbor, application/msgpack, application/octet-stream";
inline constexpr std::string_view EventStreamType = "text/event-stream";

std::string_view MediaName(Media media);

/// The media type that a Content-Type value names. Nothing for those that are not taken, which includes JSON in another
/// character set than UTF-8.
std::optional<Media> ParseContentType(std::string_view value);

/// How much an Accept value (an empty one takes everything) wants `mediaType`, in thousandths: 0 means not at all.
/// Ranges that are malformed count as not there.
int AcceptQuality(std::string_view accept, std::string_view mediaType);

/// What the client of a request takes, by Accept value.
class Acceptance
{
public:
    explicit Acceptance(std::string_view accept);

    /// The best of JSON, CBOR and MessagePack (in this order when equally wanted); nothing when none is taken.
    std::optional<Media> BestStructured() const;

    /// True when bytes are wanted more than any of those.
    bool PrefersOctets() const;

    bool TakesOctets() const { return quality_[static_cast<std::size_t>(Media::Octets)] > 0; }

    /// Whether a text of this type is taken. Parameters, on both sides, make no difference.
    bool Takes(std::string_view mediaType) const;

private:
    std::string accept_;  ///< Empty: everything is taken.
    std::array<int, AllMedia.size()> quality_{};
};

}  // namespace VxRest::Http
