// The writer of OpenMetrics pages: exact text, and what it refuses.

#include <cmath>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include <Host/OpenMetrics.h>
#include <VxApi/Exception.h>

namespace VxHostTest
{
namespace
{

using VxHost::OpenMetrics;
using Kind = OpenMetrics::Kind;

TEST(OpenMetricsTest, FamiliesAndTheirSamples)
{
    OpenMetrics page;
    page.Begin(Kind::Gauge, "a:b_bytes", "bytes", "One \"two\"\nthree\\", {"x", "_y2"});
    page.Add(1, {"", 7U});
    page.Add(2, {"1", std::numeric_limits<std::uint64_t>::max()});
    page.Begin(Kind::Counter, "c", "", "", {});
    page.Add(0.5);
    page.Begin(Kind::Info, "d", "", "", {"v"});
    page.Add(1, {"1.0"});
    page.Begin(Kind::Histogram, "e_seconds", "seconds", "", {"m"});
    const double bounds[] = {0.0025, 1, 10};
    const std::uint64_t counts[] = {3, 0, 2, 1};
    page.AddHistogram(bounds, counts, 12.25, {"get"});
    page.Begin(Kind::Histogram, "f", "", "");
    page.AddHistogram({}, {counts, 1}, 0);
    EXPECT_EQ(std::move(page).Finish(), R"(# TYPE a:b_bytes gauge
# UNIT a:b_bytes bytes
# HELP a:b_bytes One \"two\"\nthree\\
a:b_bytes{x="",_y2="7"} 1
a:b_bytes{x="1",_y2="18446744073709551615"} 2
# TYPE c counter
# HELP c 
c_total 0.5
# TYPE d info
# HELP d 
d_info{v="1.0"} 1
# TYPE e_seconds histogram
# UNIT e_seconds seconds
# HELP e_seconds 
e_seconds_bucket{m="get",le="0.0025"} 3
e_seconds_bucket{m="get",le="1.0"} 3
e_seconds_bucket{m="get",le="10.0"} 5
e_seconds_bucket{m="get",le="+Inf"} 6
e_seconds_count{m="get"} 6
e_seconds_sum{m="get"} 12.25
# TYPE f histogram
# HELP f 
f_bucket{le="+Inf"} 3
f_count 3
f_sum 0
# EOF
)");
}

/// What a page says behind the head of its one family.
std::string SampleOf(const std::function<void(OpenMetrics&)>& add, OpenMetrics::LabelNames labels = {})
{
    OpenMetrics page;
    page.Begin(Kind::Gauge, "g", "", "", labels);
    add(page);
    const std::string text = std::move(page).Finish();
    const std::size_t begin = std::string_view("# TYPE g gauge\n# HELP g \n").size();
    return text.substr(begin, text.size() - begin - std::string_view("\n# EOF\n").size());
}

TEST(OpenMetricsTest, NumbersAndLabels)
{
    const auto number = [](auto value) { return SampleOf([value](OpenMetrics& page) { page.Add(value); }); };
    EXPECT_EQ(number(std::numeric_limits<std::uint64_t>::max()), "g 18446744073709551615");
    EXPECT_EQ(number(std::numeric_limits<std::int64_t>::min()), "g -9223372036854775808");
    const std::pair<double, const char*> reals[] = {
        {0, "0"},           {-0.0, "-0"},
        {0.1, "0.1"},       {1e300, "1e+300"},
        {5e-324, "5e-324"}, {123456789.125, "123456789.125"},
        {NAN, "NaN"},       {-NAN, "NaN"},
        {INFINITY, "+Inf"}, {-INFINITY, "-Inf"},
    };
    for (const auto& [value, text] : reals) {
        EXPECT_EQ(number(value), "g " + std::string(text));
    }

    const std::pair<std::string, std::string> labels[] = {
        {"a\\b\"c\nx", R"(a\\b\"c\nx)"},
        {"tab\tcr\r}{ =", "tab\tcr\r}{ ="},
        {"Stra\xC3\x9F"
         "e \xF0\x9F\x98\x80",
         "Stra\xC3\x9F"
         "e \xF0\x9F\x98\x80"},
        {std::string("\0\x7F", 2), std::string("\0\x7F", 2)},
        {"\xFF\\", "\xEF\xBF\xBD\\\\"},
        {"cut \xE2\x82", "cut \xEF\xBF\xBD"},
        {"\xED\xA0\x80!", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD!"},
    };
    for (const auto& [value, text] : labels) {
        EXPECT_EQ(SampleOf([&, &label = value](OpenMetrics& page) { page.Add(0, {label}); }, {"l"}),
                  "g{l=\"" + text + "\"} 0");
    }
}

TEST(OpenMetricsTest, WrongUseIsRefusedAndChangesNothing)
{
    using Page = OpenMetrics&;
    const double bounds[] = {1, 2};
    const double falling[] = {2, 2};
    const double endless[] = {1, INFINITY};
    const std::uint64_t counts[] = {0, 0, 0};
    const std::function<void(Page)> begins[] = {
        [](Page page) { page.Add(1); },
        [](Page page) { page.Begin(Kind::Gauge, "", "", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "1a", "", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "a-b", "", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "a\n", "", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "a", "bytes", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "_bytes", "bytes", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "abytes", "bytes", ""); },
        [](Page page) { page.Begin(Kind::Info, "a_bytes", "bytes", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "a", "", "", {"b:c"}); },
        [](Page page) { page.Begin(Kind::Gauge, "a", "", "", {"__b"}); },
        [](Page page) {
            page.Begin(Kind::Gauge, "a", "", "", {"b", "b"});
        },
        [](Page page) { page.Begin(Kind::Histogram, "a", "", "", {"le"}); },
    };
    const std::function<void(Page)> adds[] = {
        [](Page page) { page.Begin(Kind::Gauge, "taken", "", ""); },
        [](Page page) { page.Begin(Kind::Gauge, "taken_total", "", ""); },
        [](Page page) { page.Add(1); },
        [](Page page) { page.Add(-1, {"v"}); },
        [](Page page) { page.Add(-0.5, {"v"}); },
        [](Page page) { page.Add(NAN, {"v"}); },
        [&](Page page) { page.AddHistogram(bounds, counts, 0, {"v"}); },
    };
    const std::function<void(Page)> histograms[] = {
        [](Page page) { page.Add(1); },
        [&](Page page) {
            page.AddHistogram(bounds, {counts, 2}, 0);
        },
        [&](Page page) { page.AddHistogram(falling, counts, 0); },
        [&](Page page) { page.AddHistogram(endless, counts, 0); },
        [&](Page page) { page.AddHistogram(bounds, counts, NAN); },
        [&](Page page) { page.AddHistogram(bounds, counts, 0, {"v"}); },
    };
    OpenMetrics page;
    const auto refuseAll = [&](std::span<const std::function<void(Page)>> uses) {
        for (const auto& use : uses) {
            EXPECT_THROW(use(page), Vx::Exception) << "use " << &use - uses.data();
        }
    };
    refuseAll(begins);
    page.Begin(Kind::Counter, "taken", "", "", {"l"});
    refuseAll(begins);
    refuseAll(adds);
    page.Add(1, {"v"});
    page.Begin(Kind::Histogram, "h", "", "");
    refuseAll(histograms);
    EXPECT_EQ(std::move(page).Finish(),
              "# TYPE taken counter\n# HELP taken \ntaken_total{l=\"v\"} 1\n# TYPE h histogram\n# HELP h \n# EOF\n");
}

}  // namespace
}  // namespace VxHostTest
