#include <cmath>

#include <gmock/gmock.h>

#include <VxApi/JsonSerializer.h>
#include <VxApi/Params.h>
#include <VxTestSupport/LogCapture.h>

#include "Refusal.h"

namespace Vx::Params
{
namespace
{

using nlohmann::json;

struct Acquisition : Group
{
    Acquisition() : Group("Acquisition", "settings") {}

    Value<double> exposure{
        *this, "exposure", {.initial = 100, .title = "Exposure", .units = "us", .minimum = 5, .maximum = 200}};
    Value<std::int32_t> gain{*this, "gain", {.initial = 1, .exclusiveMinimum = 0, .exclusiveMaximum = 10}};
    Value<std::string> name{*this, "name", {.initial = "ab", .minLength = 2, .maxLength = 3}};
    Value<bool> enabled{*this, "enabled"};
    Value<std::uint64_t> frames{*this, "frames", {.readOnly = true}};
    Value<Bytes> mask{*this, "mask", {.maxLength = 2}};
};

TEST(Params, TheSchemaTellsWhatAClientMaySet)
{
    const Acquisition group;
    EXPECT_EQ(group.Schema(),
              json::parse(R"({"type": "object", "title": "Acquisition", "extendedType": "settings", "properties": {
        "exposure": {"type": "number", "title": "Exposure", "sortOrder": 0, "units": "us", "minimum": 5, "maximum": 200},
        "gain": {"type": "integer", "title": "gain", "sortOrder": 100, "exclusiveMinimum": 0, "exclusiveMaximum": 10},
        "name": {"type": "string", "title": "name", "sortOrder": 200, "minLength": 2, "maxLength": 3},
        "enabled": {"type": "boolean", "title": "enabled", "sortOrder": 300},
        "frames": {"type": "integer", "title": "frames", "sortOrder": 400, "readOnly": true},
        "mask": {"type": "binary", "title": "mask", "sortOrder": 500, "maxLength": 2}}})"));
}

// Every way into a field has the same bounds, logs the same line and keeps the old value.
TEST(Params, BoundsHoldOnEveryWay)
{
    struct Case
    {
        const char* field;
        json bad;
        json good;  // The nearest that is taken.
        const char* message;
    };
    const std::vector<Case> cases = {
        {"exposure", std::nextafter(5, 0), 5, "exposure was set to be less than its minimum."},
        {"exposure", std::nextafter(200, 300), 200, "exposure was set to be greater than its maximum."},
        {"gain", 0, 1, "gain was set to be less than or equal to its exclusive minimum."},
        {"gain", 10, 9, "gain was set to be greater than or equal to its exclusive maximum."},
        {"name", "\xC3\xA4", "\xC3\xA4\xC3\xA4", "name was set to be shorter than its minimum length."},
        {"name", "abcd", "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC", "name was set to be longer than its maximum length."},
        {"mask", "AAAA", json::binary({0, 1}), "mask was set to be longer than its maximum length."}};
    for (const Case& item : cases) {
        Acquisition group;
        const json before = group.ToJson();
        VxTestSupport::ScopedLogCapture log;
        for (const bool owner : {false, true}) {
            const json document = {{"enabled", true}, {item.field, item.bad}};
            EXPECT_EQ(Refusal([&] { Update(group, document, {.includeReadOnly = owner}); }), item.message);
        }
        EXPECT_EQ(group.ToJson(), before);
        const std::string line = "W " + std::string(item.message);
        EXPECT_THAT(log.Texts("Params validation"), testing::ElementsAre(line, line));
        log.Clear();
        Update(group, {{item.field, item.good}});
        EXPECT_EQ(group.ToJson()[item.field], item.good);
        EXPECT_THAT(log.Lines(), testing::IsEmpty());
    }
    Acquisition group;
    EXPECT_EQ(Refusal([&] { group.exposure.Set(std::nan("")); }), "exposure was set to be not a finite number.");
    EXPECT_EQ(Refusal([&] { group.exposure.Set(4); }), "exposure was set to be less than its minimum.");
    EXPECT_EQ(Refusal([&] { group.exposure.Fill(4); }), "exposure was set to be less than its minimum.");
    EXPECT_EQ(group.exposure.Get(), 100);
    EXPECT_EQ(Refusal([&] { Value<int>(group, "wrong", {.minimum = 1}); }),
              "wrong was set to be less than its minimum.");
}

TEST(Params, AFieldMayDemandMoreThanBounds)
{
    struct Even : Value<int>
    {
        using Value::Value;
        void Validate(const int& value) const override
        {
            Value::Validate(value);
            if (value % 2 != 0) {
                VX_THROW(Nucleo::ERROR_PARAMETER, "odd");
            }
        }
    };
    Group group;
    Even even(group, "even", {.maximum = 8});
    EXPECT_EQ(Refusal([&] { even.Set(3); }), "odd");
    EXPECT_EQ(Refusal([&] { even.Fill(3); }), "odd");
    EXPECT_EQ(Refusal([&] { Update(group, {{"even", 3}}); }), "odd");
    EXPECT_EQ(Refusal([&] { even.Set(10); }), "even was set to be greater than its maximum.");
    even.Set(8);
    EXPECT_EQ(even.Get(), 8);
}

TEST(Params, ReadOnlyFieldsAreFilledByTheirOwnerAlone)
{
    Acquisition group;
    EXPECT_EQ(Refusal([&] { group.frames.Set(7); }), "frames is read-only.");
    EXPECT_EQ(Refusal([&] { Update(group, {{"enabled", true}, {"frames", 7}}); }), "frames is read-only.");
    EXPECT_FALSE(group.enabled.Get());
    EXPECT_EQ(group.frames.Get(), 0u);
    EXPECT_TRUE(group.frames.IsReadOnly());
    group.frames.Fill(7);
    EXPECT_EQ(group.frames.Get(), 7u);
    Update(group, {{"frames", 8}}, {.includeReadOnly = true});
    EXPECT_EQ(group.frames.Get(), 8u);
}

TEST(Params, AGroupIsSavedAsTextAndLoadedBack)
{
    Acquisition saved;
    saved.exposure.Set(0.1 + 60);
    saved.name.Set("a\"\n");
    saved.frames.Fill(18446744073709551615U);
    saved.mask.Set({0, 255});
    const std::string text = Properties::ToJsonText(NodeToJson(saved));

    Acquisition loaded;
    Update(loaded, json::parse(text), {.includeReadOnly = true});
    EXPECT_EQ(NodeToJson(loaded), NodeToJson(saved));

    // What another version saved: what can be used is used, and the rest is told.
    json other = json::parse(text);
    other["gain"] = 99;
    other["removed"] = 1;
    other["exposure"] = 50;
    Acquisition lenient;
    const VxTestSupport::ScopedLogCapture log;
    Update(lenient, other, {.includeReadOnly = true, .lenient = true});
    EXPECT_EQ(lenient.exposure.Get(), 50);
    EXPECT_EQ(lenient.gain.Get(), 1);
    EXPECT_EQ(lenient.frames.Get(), saved.frames.Get());
    EXPECT_EQ(log.Count("Passed over: gain was set to be greater than or equal to its exclusive maximum."), 1);
    EXPECT_THAT(log.Texts(),
                testing::Contains(testing::StartsWith("W Passed over: The document has no field \"removed\"")));
}

}  // namespace
}  // namespace Vx::Params
