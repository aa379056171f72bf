#include <cmath>
#include <limits>

#include <gmock/gmock.h>

#include <VxApi/JsonSerializer.h>
#include <VxApi/Properties.h>

#include "Refusal.h"

namespace
{
enum class Severity : std::int32_t
{
    Potential = 0,
    Blocking = 1
};
}  // namespace

template <>
struct Vx::Properties::EnumTraits<Severity>
{
    static std::vector<std::pair<Severity, std::string>> Values()
    {
        return {{Severity::Potential, "Potential"}, {Severity::Blocking, "Blocking"}};
    }
};

namespace Vx::Properties
{
namespace
{

using nlohmann::json;

struct Entry : Structure
{
    Value<Severity> level{*this, "level"};
    Value<std::string> text{*this, "text", "none"};
    Value<bool> shown{*this, "shown"};
};

struct Numbers : Structure
{
    Value<std::int32_t> i32{*this, "i32", 1};
    Value<std::uint32_t> u32{*this, "u32", 1};
    Value<std::int64_t> i64{*this, "i64", 1};
    Value<std::uint64_t> u64{*this, "u64", 1};
    Value<float> f32{*this, "f32", 1};
    Value<double> f64{*this, "f64", 1};
};

struct Page : Structure
{
    Value<Bytes> content{*this, "content"};
    Array<Entry> logs{*this, "logs"};
};

TEST(Properties, AStructureIsShownWithItsSchema)
{
    Entry entry;
    entry.level.Set(Severity::Blocking);
    entry.text.Set("a");
    EXPECT_EQ(JsonSerializer::Serialize(entry), json::parse(R"({"level": 1, "text": "a", "shown": false})"));
    EXPECT_EQ(JsonSerializer::SerializeSchema(entry), json::parse(R"({"type": "object", "properties": {
        "level": {"type": "integer", "title": "level", "sortOrder": 0,
                  "oneOf": [{"const": 0, "title": "Potential"}, {"const": 1, "title": "Blocking"}]},
        "text": {"type": "string", "title": "text", "sortOrder": 100},
        "shown": {"type": "boolean", "title": "shown", "sortOrder": 200}}})"));

    entry.level.Set(static_cast<Severity>(7));
    EXPECT_EQ(entry.ToJson()["level"], 7);
    EXPECT_EQ(Refusal([&] { Value<bool>(entry, "text"); }, Nucleo::ERROR_ALREADY_EXISTS),
              "The structure has a field text already.");
}

TEST(Properties, NumbersComeBackOrAreRefused)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    constexpr std::uint64_t highest = std::numeric_limits<std::uint64_t>::max();
    const struct
    {
        const char* field;
        std::vector<json> taken;
        std::vector<json> refused;
    } cases[] = {
        {"i32",
         {2147483647, -2147483648LL, 7.0},
         {2147483648, -2147483649LL, 7.5, -2147483649.0, 1e300, std::nan(""), infinity, highest}},
        {"u32", {4294967295U, -0.0}, {4294967296, -1, -1.0}},
        {"i64", {lowest, -0x1p63}, {0x1p63, 9223372036854775808U}},
        {"u64", {highest, 0x1p63}, {0x1p64, lowest, -infinity}},
        {"f32", {3, -3.0e38, 0.1f}, {3.5e38, -infinity}},
        {"f64", {1.7e308}, {infinity, std::nan("")}},
    };
    for (const auto& [field, taken, refused] : cases) {
        for (const json& value : taken) {
            Numbers numbers;
            Update(numbers, {{field, value}});
            const auto shown = numbers.ToJson()[field];
            EXPECT_EQ(shown.get<float>(), value.get<float>()) << field << value;
            EXPECT_TRUE(shown == value || field == std::string("f32")) << shown << value;
        }
        for (const json& value : refused) {
            Numbers numbers;
            const json document = {{field, value}};
            EXPECT_THAT(Refusal([&] { Update(numbers, document); }),
                        testing::StartsWith(std::string(field) + " must be a"))
                << value;
            EXPECT_EQ(numbers.ToJson(), Numbers().ToJson());
        }
    }
    Numbers numbers;
    numbers.f32.Set(0.1f);
    EXPECT_EQ(numbers.ToJson()["f32"].dump(), "0.1");
    numbers.f32.Set(std::nanf(""));
    EXPECT_EQ(ToJsonText(numbers.ToJson()["f32"]), "null");
}

TEST(Properties, WhatIsRefusedIsNamedAndChangesNothing)
{
    const std::vector<std::pair<const char*, const char*>> cases = {
        {R"([])", "The document must be of type object, but is array."},
        {R"({"text": "x", "colour": 1})",
         R"(The document has no field "colour"; known are: "level", "text", "shown".)"},
        {R"({"shown": true, "text": 7})", "text must be of type string, but is number."},
        {R"({"level": 1, "shown": 0})", "shown must be of type boolean, but is number."},
        {R"({"level": "Blocking"})", "level must be of type integer, but is string."},
        {R"({"level": 0.5})", "level must be an integer from -2147483648 to 2147483647, but is 0.5."},
        {R"({"level": 2})", "level must be one of 0 (Potential), 1 (Blocking), but is 2."},
        {R"({"text": null})", "text must be of type string, but is null."}};
    for (const auto& [document, message] : cases) {
        Entry entry;
        const json before = entry.ToJson();
        EXPECT_EQ(Refusal([&, text = document] { JsonSerializer::Deserialize(entry, json::parse(text)); }), message);
        EXPECT_EQ(entry.ToJson(), before) << document;
    }
    Entry entry;
    EXPECT_LT(Refusal([&] { Update(entry, {{std::string(100000, 'x'), 1}}); }).size(), 200u);
    Update(entry, json::parse(R"({"text": "b", "_links": {"self": 1}, "_schema": 1, "_embedded": 1})"));
    EXPECT_EQ(entry.text.Get(), "b");
}

TEST(Properties, ArraysTellOfTheirChanges)
{
    Array<Entry> list;
    int changes = 0;
    const Subscription subscription = list.ChangedEvent().Subscribe([&] { ++changes; });
    Entry& first = list.Add();
    first.text.Set("first");
    list.Add();
    EXPECT_EQ(changes, 2);
    list.Resize(40);
    EXPECT_EQ(&list.At(0), &first);
    EXPECT_EQ(list.At(39).text.Get(), "none");
    list.Resize(1);
    list.Resize(1);
    EXPECT_EQ(changes, 4);
    EXPECT_EQ(list.ToJson(), json::parse(R"([{"level": 0, "text": "first", "shown": false}])"));
    EXPECT_EQ(Refusal([&] { list.At(1); }, Nucleo::ERROR_NOT_FOUND), "There is no element 1 among 1.");
    list.Clear();
    list.Clear();
    EXPECT_EQ(changes, 5);
    EXPECT_EQ(list.ToJson(), json::array());
}

TEST(Properties, ArraysAreReadWholeOrNotAtAll)
{
    Page page;
    page.logs.Add().text.Set("old");
    const json before = page.ToJson();
    std::vector<std::size_t> seen;
    const Subscription subscription =
        page.logs.ChangedEvent().Subscribe([&] { seen.push_back(page.content.Get().size()); });
    EXPECT_EQ(Refusal([&] {
                  Update(page, {{"content", "AAAA"}, {"logs", {{{"text", "a"}}, {{"text", 1}}}}});
              }),
              "logs[1].text must be of type string, but is number.");
    EXPECT_EQ(Refusal([&] {
                  Update(page, {{"logs", {{{"tekst", "a"}}}}});
              }),
              R"(logs[0] has no field "tekst"; known are: "level", "text", "shown".)");
    EXPECT_EQ(Refusal([&] { Update(page, {{"logs", 3}}); }), "logs must be of type array, but is number.");
    EXPECT_EQ(page.ToJson(), before);
    EXPECT_THAT(seen, testing::IsEmpty());

    Update(page, json::parse(R"({"logs": [{"text": "a"}, {"level": 1}], "content": "AAAA"})"));
    EXPECT_EQ(
        page.logs.ToJson(),
        json::parse(R"([{"level": 0, "text": "a", "shown": false}, {"level": 1, "text": "none", "shown": false}])"));
    // The listener hears of it when every field has been set.
    EXPECT_THAT(seen, testing::ElementsAre(3u));
    EXPECT_EQ(page.Schema()["properties"]["logs"]["items"], Entry().Schema());
    EXPECT_EQ(page.Schema()["properties"]["logs"]["type"], "array");
    EXPECT_EQ(page.Schema()["properties"]["content"]["type"], "binary");
}

TEST(Properties, BinaryDataTravelsAsBytesOrAsBase64)
{
    const Bytes bytes = {0, 255, 'a'};
    const json ciphered = JsonSerializer::CipherBinaryJson(bytes);
    EXPECT_EQ(JsonSerializer::DecipherBinaryJson(ciphered), bytes);

    Page page;
    Update(page, {{"content", ciphered}});
    EXPECT_EQ(page.ToJson()["content"], ciphered);
    const std::string text = ToJsonText({{"page", page.ToJson()}, {"name", "\xFF"}});
    EXPECT_EQ(text, "{\"name\":\"\xEF\xBF\xBD\",\"page\":{\"content\":\"AP9h\",\"logs\":[]}}");
    EXPECT_EQ(JsonSerializer::DecipherBinaryJson(json::parse(text)["page"]["content"]), bytes);
    EXPECT_EQ(ToJsonText(json::array({1}), 2), "[\n  1\n]");

    const auto decipher = [](const json& value) { return Refusal([&] { JsonSerializer::DecipherBinaryJson(value); }); };
    EXPECT_EQ(decipher("AP9!"), "Character 4 of the Base64 text is not valid.");
    EXPECT_EQ(decipher("AP9hAP"), "The Base64 text ends too early, after 6 characters.");
    EXPECT_EQ(decipher(json::array({0})), "Binary data must be a Base64 text, but is array.");
    EXPECT_EQ(Refusal([&] {
                  Update(page, {{"content", "?"}});
              }),
              "content: Character 1 of the Base64 text is not valid.");
    EXPECT_EQ(page.content.Get(), bytes);
}

}  // namespace
}  // namespace Vx::Properties
