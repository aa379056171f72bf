// Whatever a request body holds: it is refused, or becomes a value within the limits that can be written, read and
// written again without a change. The first byte of the input chooses the format.

#include <algorithm>
#include <span>
#include <string>

#include <Server/Codec.h>
#include <VxApi/Exception.h>

#include "FuzzSupport.h"

namespace
{

using namespace VxRest::Http;

constexpr CodecLimits Limits{16, 10'000};

std::size_t Depth(const nlohmann::json& value)
{
    std::size_t depth = 0;
    for (const nlohmann::json& element : value) {
        depth = std::max(depth, element.is_structured() ? Depth(element) : 0);
    }
    return depth + 1;
}

nlohmann::json Decode(Media media, std::string_view body)
{
    return DecodeBody(media, {reinterpret_cast<const std::uint8_t*>(body.data()), body.size()}, Limits);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    constexpr Media formats[] = {Media::Json, Media::Cbor, Media::MsgPack};
    const Media media = formats[data[0] % 3];
    nlohmann::json value;
    try {
        value = DecodeBody(media, {data + 1, size - 1}, Limits);
    } catch (const Vx::Exception& error) {
        Require(!error.Message().empty(), "a body was refused without a reason");
        return 0;
    }
    Require(!value.is_structured() || Depth(value) <= Limits.depth, "a value is nested too deeply");
    const EncodedBody written = EncodeBody(nlohmann::json(value), media);
    const EncodedBody again = EncodeBody(Decode(media, written.View()), media);
    Require(written.View() == again.View(), "a value changes on its way");
    EncodeBody(std::move(value), Media::Json);
    return 0;
}
