#include <algorithm>
#include <cstring>
#include <iterator>

#include <gtest/gtest.h>

#include <Nucleo/Format.h>

namespace
{

using namespace Nucleo::Statuses;

template <class... Args>
std::string Printed(const char* format, const Args&... args)
{
    return Nucleo::Print(format, Nucleo::MakeFormatArgs(args...));
}

enum class Kind : std::uint32_t
{
    Seven = 7
};

TEST(FormatTest, PrintsWhateverNumbersAndTextsAre)
{
    EXPECT_EQ(Printed("%d %s|%s|%8s|%.2f", Kind::Seven, static_cast<const char*>(nullptr), std::string("text"), "right",
                      0.5F),
              "7 (null)|text|   right|0.50");
    EXPECT_EQ(Printed("%I64d %I32d %Iu %Lf", 1LL << 40, 1LL << 40 | 7, 8U, 0.5), "1099511627776 7 8 0.500000");
    EXPECT_EQ(Printed("%2$s %1$d", std::string(5000, 'a'), 2), std::string(5000, 'a') + " 2");  // In their order.
}

// A wrong format must never follow a number as a pointer, nor read beyond the arguments.
TEST(FormatTest, ASpecifierThatDoesNotFitItsArgumentPrintsAPlaceholder)
{
    EXPECT_EQ(Printed("%n%p", 1, 2), "(?)(?)");
    EXPECT_EQ(Printed("open %", 1), "open (?)");
    EXPECT_EQ(Printed("%1$%%d", 1), "%1");
    EXPECT_EQ(Printed("%99999999999d", 1), "(?)");
    EXPECT_EQ(Printed("%s", "%s%n"), "%s%n");
    // Neither time nor memory for a width out of all reason.
    EXPECT_EQ(Printed("%1000000000d %.1000000000f", 1, 2.0), "(?) (?)");
}

TEST(FormatTest, PrintsTextsAndNumbersIntoABufferWhereTheyFitWhole)
{
    const char* format = "%s: %d of %5.1f";
    const std::string whole = Printed(format, "abc", -42, 7.25);
    char buffer[64];
    for (std::size_t capacity = 0; capacity < sizeof buffer; ++capacity) {
        std::memset(buffer, '#', sizeof buffer);
        std::size_t length = 99;
        const bool fits = capacity > whole.size();
        const auto args = Nucleo::MakeFormatArgs("abc", -42, 7.25);
        EXPECT_EQ(Nucleo::PrintTo(buffer, capacity, &length, format, args), fits ? OK : ERROR_CAPACITY);
        EXPECT_EQ(length, fits ? whole.size() : 0);
        if (capacity > 0) {
            EXPECT_EQ(std::string(buffer), fits ? whole : "");
        }
        EXPECT_EQ(std::count(buffer + capacity, std::end(buffer), '#'), std::end(buffer) - (buffer + capacity));
    }
    EXPECT_EQ(Nucleo::FormatNumber(INT64_MIN, buffer, 21), OK);
    EXPECT_STREQ(buffer, "-9223372036854775808");
    EXPECT_EQ(Nucleo::FormatNumber(INT64_MIN, buffer, 20), ERROR_CAPACITY);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(Nucleo::FormatNumber(0.1, nullptr, 0), ERROR_CAPACITY);
}

}  // namespace
