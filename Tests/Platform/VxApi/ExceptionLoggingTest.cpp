#include <cerrno>
#include <sstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxApi/Object.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/Thrown.h>

using namespace Nucleo::Statuses;

namespace Outer
{
struct Thrower
{
    Thrower() = default;
    [[noreturn]] void Method(const std::vector<std::map<int, std::string>>&) const { VX_THROW(ERROR_NAME); }
    ~Thrower() = default;
    Vx::Location operator()(int) { return VX_HERE; }
    template <class T>
    static std::pair<T, int> Template(T)
    {
        const auto inner = [] { VX_THROW(ERROR_STATE, "message %d of '%s'", 7, "100%d"); };
        inner();
        return {};
    }
    operator Vx::Location() const { return VX_HERE; }
};

[[noreturn]] static void Free()
{
    VX_THROW_AT(VX_HERE_AS("Other::Name"), ERROR_IO);
}
}  // namespace Outer

namespace
{

TEST(ExceptionTest, NamesThePlaceThatThrewAlikeOnEveryCompiler)
{
    const Vx::Exception method = VxTestSupport::Caught([] { Outer::Thrower().Method({}); }).value();
    EXPECT_EQ(method.Function(), "Outer::Thrower::Method");
    EXPECT_EQ(method.File(), "Tests/Platform/VxApi/ExceptionLoggingTest");
    EXPECT_EQ(method.Status(), ERROR_NAME);
    EXPECT_THAT(method.what(), testing::HasSubstr("not a valid file name"));

    const Vx::Exception lambda = VxTestSupport::Caught([] { Outer::Thrower::Template(1); }).value();
    EXPECT_EQ(lambda.Function(), "Outer::Thrower::Template");
    EXPECT_STREQ(lambda.what(), "message 7 of '100%d'");

    EXPECT_EQ(VxTestSupport::Caught(&Outer::Free)->Function(), "Other::Name");
    EXPECT_EQ(Outer::Thrower()(1).function, "Outer::Thrower::operator()");
}

[[noreturn, gnu::noinline]] void ThrowFromHere(const void** caller)
{
    *caller = __builtin_return_address(0);
    VX_THROW(ERROR_IO);
}

TEST(ExceptionTest, TheBackTraceNamesTheModulesAndPlacesThatLedToTheThrow)
{
    const void* caller = nullptr;
    const VxTestSupport::ScopedLogCapture log;
    VxTestSupport::Caught([&caller] { ThrowFromHere(&caller); })->Log(VX_HERE);
    std::ostringstream place;
    place << program_invocation_short_name << ".*\\[" << caller << "\\]";
    EXPECT_THAT(log.Texts(), testing::Contains(testing::ContainsRegex("E   #[0-3] .*" + place.str())));
}

TEST(ExceptionTest, AnyExceptionBecomesAStatus)
{
    EXPECT_EQ(Vx::StatusOf(std::exception_ptr()), OK);
    EXPECT_EQ(Vx::StatusOf(std::make_exception_ptr(Vx::Exception(VX_HERE, ERROR_BUSY))), ERROR_BUSY);
    EXPECT_EQ(Vx::StatusOf(std::make_exception_ptr(std::bad_alloc())), ERROR_MEMORY);
    EXPECT_EQ(Vx::StatusOf(std::make_exception_ptr(7)), ERROR_STATE);
    try {
        const auto document = nlohmann::json::parse("{");
        FAIL() << document;
    } catch (const std::exception& exception) {
        EXPECT_EQ(Vx::StatusOf(exception), ERROR_PARAMETER);
        EXPECT_EQ(Vx::CarriedStatus(exception), OK);
    }
}

TEST(LoggingTest, APositionalMarkerIsRemovedAndALineCannotBeForged)
{
    char buffer[32];
    ASSERT_TRUE(Vx::Logging::StripPositionalParameters("%2$s %1$d 5$ %%1$ %5.2f", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "%s %d 5$ %%1$ %5.2f");
    EXPECT_FALSE(Vx::Logging::StripPositionalParameters("0123456", buffer, 7));
    EXPECT_TRUE(Vx::Logging::StripPositionalParameters("012345", buffer, 7));

    EXPECT_EQ(Vx::Logging::FormatLogLine(1'700'000'000'123'456, Nucleo::LogOption::Error, "Jobs", "a\nb\x1b[0m"),
              "2023-11-14 22:13:20.123 Error   Jobs: a\\x0ab\\x1b[0m");
}

// Every room from one byte on: what is shown is as many whole characters and whole escapes as fit.
TEST(LoggingTest, ABoundedLineIsCutBetweenCharacters)
{
    constexpr std::uint64_t noon = 1'795'262'400'250'000;
    const std::string source = "\x80\x80\x80\x80\xff";  // No UTF-8: cut anywhere.
    const char* const text = "a\n\u00e9\x7f\u20ac\U0001f600z";
    const std::string line = "2026-11-21 12:00:00.250 Warning " + source + ": a\\x0a\u00e9\\x7f\u20ac\U0001f600z";
    const std::size_t shownWhole = line.size() - 19;
    const std::size_t cuts[] = {0, 1, 5, 7, 11, 14, 18, 19};  // Behind which the line may end then.
    EXPECT_EQ(Vx::Logging::FormatLogLine(noon, 1, source.c_str(), text), line);
    for (std::size_t capacity = 1; capacity < line.size() + 3; ++capacity) {
        std::size_t expected = std::min(capacity - 1, shownWhole);
        for (const std::size_t cut : cuts) {
            expected = shownWhole + cut < capacity ? shownWhole + cut : expected;
        }
        std::string buffer(capacity, '#');
        EXPECT_EQ(Vx::Logging::FormatLogBuffer(noon, 1, source.c_str(), text, buffer.data(), capacity), OK);
        EXPECT_STREQ(buffer.c_str(), line.substr(0, expected).c_str());
    }
    char buffer[64] = "#";
    EXPECT_EQ(Vx::Logging::FormatLogBuffer(0, 2, nullptr, "x", buffer, sizeof buffer), OK);
    EXPECT_STREQ(buffer, "1970-01-01 00:00:00.000 Error   x");
    EXPECT_EQ(Vx::Logging::FormatLogBuffer(~0ULL, 0, "a", "x", buffer, sizeof buffer), OK);
    EXPECT_STREQ(buffer, "(?) Info    a: x");
    EXPECT_EQ(Vx::Logging::FormatLogBuffer(0, 0, "a", nullptr, buffer, sizeof buffer), ERROR_PARAMETER);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(Vx::Logging::FormatLogBuffer(0, 0, "a", "x", nullptr, 0), ERROR_PARAMETER);
    EXPECT_EQ(Vx::Logging::FormatLogLine(~0ULL, 0, nullptr, nullptr), "(?) Info    ");
}

TEST(LoggingTest, RecordsCarryTheirSourceTextAndPublicMark)
{
    VxTestSupport::ScopedLogCapture log;
    Vx_Debug_Log(Warning, "100% sure");
    EXPECT_EQ(log.Texts("Tests/Platform/VxApi/ExceptionLoggingTest"), std::vector<std::string>{"W 100% sure"});
    EXPECT_EQ(log.Lines().back().options & Nucleo::LogOption::Public, 0U);
    // Around the sizes up to which a line takes no memory.
    for (const std::size_t length : {0U, 127U, 128U, 511U, 512U, 5000U}) {
        const std::string text(length, 't');
        log.Clear();
        Vx::Logging::Public(Vx::Logging::Level::Info, text, text);
        Vx::Logging::Public(Vx::Logging::Level::Info, text, "%s", text);
        ASSERT_EQ(log.Lines().size(), 2U);
        for (const auto& line : log.Lines()) {
            EXPECT_EQ(line.source, text);
            EXPECT_EQ(line.text, text);
            EXPECT_NE(line.options & Nucleo::LogOption::Public, 0U);
        }
    }
}

}  // namespace
