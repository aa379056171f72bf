#include "MediaType.h"

#include "Text.h"

namespace VxRest::Http
{

namespace
{

/// "0", "0.25", "1.000" in thousandths; -1 for anything else.
int ParseQuality(std::string_view text)
{
    if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1') || (text.size() > 1 && text[1] != '.')) {
        return -1;
    }
    int quality = (text[0] - '0') * 1000;
    int weight = 100;
    for (const char digit : text.substr(std::min<std::size_t>(2, text.size()))) {
        if (digit < '0' || digit > '9') {
            return -1;
        }
        quality += (digit - '0') * weight;
        weight /= 10;
    }
    return quality <= 1000 ? quality : -1;
}

/// How exactly `range` names `mediaType`: 3 the type itself, 2 "application/*", 1 "*/*", 0 not at all.
int Precision(std::string_view range, std::string_view mediaType)
{
    if (EqualNoCase(range, mediaType)) {
        return 3;
    }
    if (range == "*/*") {
        return 1;
    }
    const std::size_t slash = mediaType.find('/') + 1;
    const bool ofType = range.size() == slash + 1 && range.back() == '*' &&
                        EqualNoCase(range.substr(0, slash), mediaType.substr(0, slash));
    return ofType ? 2 : 0;
}

}  // namespace

std::string_view MediaName(Media media)
{
    switch (media) {
        case Media::Json:
            return "application/json";
        case Media::Cbor:
            return "application/cbor";
        case Media::MsgPack:
            return "application/msgpack";
        case Media::Octets:
            break;
    }
    return "application/octet-stream";
}

std::optional<Media> ParseContentType(std::string_view value)
{
    const std::string_view type = NextPart(value, ';');
    for (const Media media : AllMedia) {
        if (!EqualNoCase(type, MediaName(media))) {
            continue;
        }
        while (!value.empty()) {
            std::string_view parameter = NextPart(value, ';');
            const std::string_view name = NextPart(parameter, '=');
            if (media == Media::Json && EqualNoCase(name, "charset") && !EqualNoCase(parameter, "utf-8") &&
                !EqualNoCase(parameter, "\"utf-8\"")) {
                return std::nullopt;
            }
        }
        return media;
    }
    return std::nullopt;
}

int AcceptQuality(std::string_view accept, std::string_view mediaType)
{
    if (accept.empty()) {
        return 1000;
    }
    int best = 0;
    int bestPrecision = 0;
    while (!accept.empty()) {
        std::string_view range = NextPart(accept, ',');
        const int precision = Precision(NextPart(range, ';'), mediaType);
        int quality = 1000;
        while (!range.empty()) {
            std::string_view parameter = NextPart(range, ';');
            if (EqualNoCase(NextPart(parameter, '='), "q")) {
                quality = ParseQuality(parameter);
            }
        }
        if (quality >= 0 && precision > bestPrecision) {
            best = quality;
            bestPrecision = precision;
        }
    }
    return best;
}

Acceptance::Acceptance(std::string_view accept)
{
    if (accept.empty() || accept == "*/*") {
        quality_.fill(1);
        return;
    }
    accept_ = accept;
    for (const Media media : AllMedia) {
        quality_[static_cast<std::size_t>(media)] = AcceptQuality(accept, MediaName(media));
    }
}

std::optional<Media> Acceptance::BestStructured() const
{
    std::optional<Media> best;
    int bestQuality = 0;
    for (const Media media : {Media::Json, Media::Cbor, Media::MsgPack}) {
        if (const int quality = quality_[static_cast<std::size_t>(media)]; quality > bestQuality) {
            best = media;
            bestQuality = quality;
        }
    }
    return best;
}

bool Acceptance::PrefersOctets() const
{
    const std::optional<Media> structured = BestStructured();
    return TakesOctets() && (!structured || quality_[static_cast<std::size_t>(Media::Octets)] >
                                                quality_[static_cast<std::size_t>(*structured)]);
}

bool Acceptance::Takes(std::string_view mediaType) const
{
    return AcceptQuality(accept_, NextPart(mediaType, ';')) > 0;
}

}  // namespace VxRest::Http
