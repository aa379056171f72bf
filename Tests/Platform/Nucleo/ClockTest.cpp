#include <gtest/gtest.h>

#include <Nucleo/Clock.h>
#include <VxTestSupport/ScopedClock.h>

using namespace Nucleo::Statuses;
using enum Nucleo::DateTimeStyle;

namespace
{

constexpr std::uint64_t largest = ~std::uint64_t{0};

TEST(ClockTest, FormatsEachStyleIntoJustEnoughRoom)
{
    const struct
    {
        std::uint64_t dateTime;
        Nucleo::DateTimeStyle style;
        std::string text;
    } rows[] = {
        {1'795'269'909'250'999, Date, "2026-11-21"},
        {1'795'269'909'250'999, Time, "14:05:09"},
        {1'795'269'909'250'999, Iso8601, "2026-11-21T14:05:09.250Z"},
        {0, Iso8601, "1970-01-01T00:00:00.000Z"},
        {951'827'696'007'000, DateAndTime, "2000-02-29 12:34:56.007"},
        {4'107'542'400'000'000, Date, "2100-03-01"},
        {253'402'300'799'999'999, DateAndTime, "9999-12-31 23:59:59.999"},
    };
    for (const auto& row : rows) {
        std::string buffer(row.text.size() + 1, '#');
        EXPECT_EQ(Nucleo::DateTime_Format(row.dateTime, row.style, buffer.data(), buffer.size()), OK);
        EXPECT_STREQ(buffer.c_str(), row.text.c_str());
        EXPECT_EQ(Nucleo::DateTime_Format(row.dateTime, row.style, buffer.data(), row.text.size()), ERROR_CAPACITY);
        EXPECT_STREQ(buffer.c_str(), "");
    }
    char buffer[32] = "#";
    EXPECT_EQ(Nucleo::DateTime_Format(253'402'300'800'000'000, Date, buffer, 32), ERROR_PARAMETER);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(Nucleo::DateTime_Format(largest, Date, buffer, 32), ERROR_PARAMETER);
    EXPECT_EQ(Nucleo::DateTime_Format(0, Nucleo::DateTimeStyle{0}, buffer, 32), ERROR_PARAMETER);
    EXPECT_EQ(Nucleo::DateTime_Format(0, Nucleo::DateTimeStyle{5}, buffer, 32), ERROR_PARAMETER);
    EXPECT_EQ(Nucleo::DateTime_Format(0, Date, nullptr, 0), ERROR_CAPACITY);
}

TEST(ClockTest, ScalesExactlyWhereTheProductExceeds64Bits)
{
    const struct
    {
        std::uint64_t raw, multiplier, divider, microseconds;
    } rows[] = {
        {largest, 1, 1'000, 18'446'744'073'709'551},
        {largest, 1'000'000, 1'193'182, 15'460'126'010'708'803'531U},
        {largest, largest, largest, largest},
        {largest - 1, largest - 2, largest, largest - 3},
        {largest / 2, largest, largest - 1, largest / 2},
    };
    VxTestSupport::ScopedClock clock;
    for (const auto& row : rows) {
        clock.SetScale(row.multiplier, row.divider);
        EXPECT_EQ(Nucleo::Timer_Scale(row.raw), row.microseconds) << row.raw << " * " << row.multiplier;
    }
}

TEST(ClockTest, EveryClockFollowsTheReplacedOnesUntilTheyAreTakenAway)
{
    {
        VxTestSupport::ScopedClock clock(3, 2);
        clock.SetDateTime(77);
        clock.SetTimer(1'001);
        EXPECT_EQ(Nucleo::Clock_Read().timer, 1'001U);
        EXPECT_EQ(Nucleo::Clock_Read().scaled, 1'501U);
        EXPECT_EQ(Nucleo::Clock_Read().dateTime, 77U);
        EXPECT_EQ(Nucleo::DateTime_Now(), 77U);
        EXPECT_EQ(Nucleo::Timer_Multiplier() * 10 + Nucleo::Timer_Divider(), 32U);
        EXPECT_EQ(Nucleo::UpTime_Now(), 1'501U);
        clock.SetDateTime(76);
        EXPECT_EQ(Nucleo::Clock_Read().dateTime, 76U);
    }
    EXPECT_EQ(Nucleo::Timer_Scale(1'999), 1U);
    for (int i = 0; i < 10'000; ++i) {  // Long enough for several samples of the wall clock.
        const std::uint64_t before = Nucleo::DateTime_Now();
        const std::uint64_t upTime = Nucleo::UpTime_Now();
        const Nucleo::ClockReading reading = Nucleo::Clock_Read();
        ASSERT_GE(Nucleo::UpTime_At(reading.timer) + 1, upTime);
        ASSERT_LE(reading.timer, Nucleo::Timer_Query() + 1'000);
        ASSERT_EQ(reading.scaled, Nucleo::Timer_Scale(reading.timer));
        ASSERT_GE(reading.dateTime + 1'000, before);
        ASSERT_LE(reading.dateTime, Nucleo::DateTime_Now() + 1'000);
    }
}

}  // namespace
