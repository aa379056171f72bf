#include <cmath>
#include <limits>
#include <tuple>

#include <gtest/gtest.h>

#include <Server/Codec.h>
#include <Server/Hal.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using namespace VxRest::Http;
using namespace std::string_literals;

std::vector<std::uint8_t> Bytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

json Decode(Media media, std::string_view body, CodecLimits limits = {4, 100})
{
    return DecodeBody(media, Bytes(body), limits);
}

/// The status that decoding ends in.
Nucleo::Status StatusOfDecode(Media media, std::string_view body, CodecLimits limits = {4, 100})
{
    return StatusThrown([&] { Decode(media, body, limits); });
}

TEST(Codec, ValuesComeBackFromEveryFormat)
{
    const json values[] = {
        {nullptr, true, -5, 1.5, -0.0, 100.0, 1e300, 5e-324, 0.1},
        {std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::int64_t>::min()},
        {"", "quote \" back \\ line \n tab \t nul \x01 ü €"},
        {json::array(), json::object(), {{"", 1}, {"ä\"", "x"}}, {{"a", {{"b", false}}}}},
        "text",
        7,
    };
    for (const json& value : values) {
        for (const Media media : {Media::Json, Media::Cbor, Media::MsgPack}) {
            const EncodedBody body = EncodeBody(json(value), media);
            const json back = Decode(media, body.View());
            EXPECT_EQ(back, value) << MediaName(media);
            EXPECT_EQ(back.dump(), value.dump()) << MediaName(media);  // 100.0 has not become 100
        }
    }
    EXPECT_EQ(EncodeBody({std::numeric_limits<double>::infinity(), std::nan("")}, Media::Json).View(), "[null,null]");
}

TEST(Codec, BytesAreBase64InJsonAndByteStringsElsewhere)
{
    const json document = {{"content", json::binary({0, 255, 16})}, {"list", {json::binary({1})}}};
    EXPECT_EQ(EncodeBody(json(document), Media::Json).View(), R"({"content":"AP8Q","list":["AQ=="]})");
    EXPECT_EQ(Decode(Media::Cbor, EncodeBody(json(document), Media::Cbor).View()), document);
    EXPECT_EQ(Decode(Media::MsgPack, EncodeBody(json(document), Media::MsgPack).View()), document);
}

TEST(Codec, InvalidUtf8IsReplaced)
{
    const std::string replacement = "\xEF\xBF\xBD";
    const json bad = {{"k\xFF", {"a\xC3", "\xE2\x82", "ok é"}}};
    const json good = {{"k" + replacement, {"a" + replacement, replacement, "ok é"}}};
    for (const Media media : {Media::Json, Media::Cbor, Media::MsgPack}) {
        EXPECT_EQ(Decode(media, EncodeBody(json(bad), media).View()), good) << MediaName(media);
    }
}

TEST(Codec, MalformedBodiesAreRefused)
{
    for (const char* body : {"", "{", "{\"a\":1} x", "[1,]", "nul", "1e999", "\"\xFF\"", "{'a':1}"}) {
        EXPECT_EQ(StatusOfDecode(Media::Json, body), Nucleo::ERROR_PARAMETER) << body;
    }
    const char* const cborBodies[] = {
        "",
        "\x82\x01",                              // breaks off
        "\x01\x01",                              // goes on
        "\xA1\x01\x02",                          // a key that is no string
        "\xC0\x01",                              // a tag
        "\xFF",                                  // a break that ends nothing
        "\x1F",                                  // a number of indefinite length
        "\x1C",                                  // a reserved length
        "\x9B\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF",  // 2^63 elements
        "\x9B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",  // a claim that the library takes for indefinite
        "\xBA\xFF\xFF\xFF\xFF",
        "\x5B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
        "\x7A\xFF\xFF\xFF\xFF",
        "\x5F\x61\x61\xFF",  // text inside bytes
    };
    for (const char* body : cborBodies) {
        EXPECT_EQ(StatusOfDecode(Media::Cbor, body), Nucleo::ERROR_PARAMETER) << json(Bytes(body));
    }
    for (const char* body : {"", "\x92\x01", "\xDD\xFF\xFF\xFF\xFF", "\xDF\xFF\xFF\xFF\xFF", "\xDB\xFF\xFF\xFF\xFF",
                             "\xC6\xFF\xFF\xFF\xFF", "\xC1"}) {
        EXPECT_EQ(StatusOfDecode(Media::MsgPack, body), Nucleo::ERROR_PARAMETER) << json(Bytes(body));
    }
    const std::tuple<Media, const char*, const char*> repeated[] = {
        {Media::Json, R"({"a":1,"b":{},"a":1})", "\"a\" twice (at \"/a\")"},
        {Media::Json, R"({"b":{"y":1},"~/":[0,{"x\u0000":1,"z":[],"x\u0000":2}]})",
         R"("x\x00" twice (at "/~0~1/1/x\x00"))"},
        {Media::Cbor, "\x81\xA2\x61k\x01\x61k\x02", "\"k\" twice (at \"/0/k\")"},
        {Media::MsgPack, "\x82\xA1k\x01\xA1k\x01", "\"k\" twice (at \"/k\")"}};
    for (const auto& [media, body, place] : repeated) {
        EXPECT_EQ(VxTestSupport::MessageThrown([type = media, text = body] { Decode(type, text); }),
                  "-997 the body has the member "s + place);
    }
    EXPECT_EQ(Decode(Media::Cbor, "\x7F\x61\x61\x61\x62\xFF"), "ab");  // a string in parts is fine
    EXPECT_EQ(Decode(Media::Cbor, "\x9F\x01\xBF\x61k\x02\xFF\xFF"), (json{1, {{"k", 2}}}));
}

TEST(Codec, DepthIsLimitedBeforeAnythingIsBuilt)
{
    constexpr std::size_t far = 1'000'000;
    const auto repeat = [](std::size_t count, std::string_view text) {
        std::string repeated;
        for (std::size_t i = 0; i < count; ++i) {
            repeated += text;
        }
        return repeated;
    };
    const auto nested = [&](std::size_t depth, std::string_view open, std::string_view close) {
        return repeat(depth, open) + (close.empty() ? "\x01" : "1") + repeat(depth, close);
    };
    const std::tuple<Media, const char*, const char*> cases[] = {
        {Media::Json, "[", "]"},        {Media::Json, "{\"a\":", "}"}, {Media::Cbor, "\x81", ""},
        {Media::Cbor, "\xA1\x61k", ""}, {Media::MsgPack, "\x91", ""},  {Media::MsgPack, "\x81\xA1k", ""}};
    for (const auto& [media, open, close] : cases) {
        EXPECT_EQ(StatusOfDecode(media, nested(4, open, close)), Nucleo::OK) << open;
        EXPECT_EQ(StatusOfDecode(media, nested(5, open, close)), Nucleo::ERROR_PARAMETER) << open;
        EXPECT_EQ(StatusOfDecode(media, nested(far, open, close), {64, 10 * far}), Nucleo::ERROR_PARAMETER) << open;
    }
    // Nesting that no event tells of: strings of indefinite length, arrays of them, tags.
    for (const char* opening : {"\x7F", "\x5F", "\x9F", "\xC6"}) {
        EXPECT_EQ(StatusOfDecode(Media::Cbor, nested(far, opening, ""), {64, 10 * far}), Nucleo::ERROR_PARAMETER)
            << json(Bytes(opening));
    }
}

TEST(Codec, ValuesAreCounted)
{
    const auto zeros = [](std::size_t count) { return json(std::vector<int>(count)).dump(); };
    EXPECT_EQ(StatusOfDecode(Media::Json, zeros(99)), Nucleo::OK);
    EXPECT_EQ(StatusOfDecode(Media::Json, zeros(100)), Nucleo::ERROR_LIMIT);
    EXPECT_EQ(StatusOfDecode(Media::MsgPack, "\xDC" + std::string("\x00\xC8", 2) + std::string(200, '\x01')),
              Nucleo::ERROR_LIMIT);
}

TEST(Hal, LinksAndEmbeddedDocuments)
{
    VxRest::ResponseInfo response;
    const auto encode = [&](json document, Media media) {
        return Decode(media, EncodeDocument(std::move(document), "/x", response, media).View(), {10, 100});
    };
    const json self = {{"self", {{"href", "/x"}}}};
    EXPECT_EQ(encode(json::object(), Media::Json), (json{{"_links", self}}));
    EXPECT_EQ(encode(nullptr, Media::Cbor), (json{{"_links", self}}));
    EXPECT_EQ(encode({1, 2}, Media::Json), (json{1, 2}));
    EXPECT_EQ(encode({{"_links", {{"up", {{"href", "/"}}}}}}, Media::Json)["_links"].size(), 2u);
    response.Embed("item", "/x/b", true, nullptr);
    response.Embed("item", "/x/a", true, {{"n", 1}});
    response.Embed("other", "/x/c", false, {{"n", 2}});
    const json expected = json::parse(R"({"a": 1,
        "_links": {"self": {"href": "/x"}, "item": [{"href": "/x/b"}, {"href": "/x/a"}]},
        "_embedded": {"item": [{"n": 1, "_links": {"self": {"href": "/x/a"}}}],
                      "other": [{"n": 2, "_links": {"self": {"href": "/x/c"}}}]}})");
    EXPECT_EQ(encode({{"a", 1}}, Media::Json), expected);
    EXPECT_EQ(encode({{"a", 1}}, Media::MsgPack), expected);
}

}  // namespace
