#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>
#include <VxApi/Object.h>
#include <VxTestSupport/LogCapture.h>

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

template <class Call>
Vx::Exception Caught(Call call)
{
    try {
        call();
    } catch (const Vx::Exception& exception) {
        return exception;
    }
    throw std::logic_error("nothing was thrown");
}

TEST(ExceptionTest, NamesThePlaceThatThrewAlikeOnEveryCompiler)
{
    const Vx::Exception method = Caught([] { Outer::Thrower().Method({}); });
    EXPECT_EQ(method.Function(), "Outer::Thrower::Method");
    EXPECT_EQ(method.File(), "Tests/Platform/VxApi/ExceptionLoggingTest");
    EXPECT_EQ(method.Status(), ERROR_NAME);
    EXPECT_THAT(method.what(), testing::HasSubstr("not a valid file name"));

    const Vx::Exception lambda = Caught([] { Outer::Thrower::Template(1); });
    EXPECT_EQ(lambda.Function(), "Outer::Thrower::Template");
    EXPECT_STREQ(lambda.what(), "message 7 of '100%d'");

    EXPECT_EQ(Caught(&Outer::Free).Function(), "Other::Name");
    EXPECT_EQ(Outer::Thrower()(1).function, "Outer::Thrower::operator()");
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

TEST(ExceptionTest, LogsItselfWithItsBackTrace)
{
    VxTestSupport::ScopedLogCapture log;
    const Vx::Exception exception(VX_HERE, ERROR_IO, "disk %s gone");
    Vx::LogException(VX_HERE, exception);
    const auto texts = log.Texts();
    ASSERT_GT(texts.size(), 1U);
    EXPECT_THAT(texts[0], testing::HasSubstr("disk %s gone"));
    EXPECT_THAT(texts[1], testing::HasSubstr("#0"));
}

TEST(LoggingTest, APositionalMarkerIsRemovedAndALineCannotBeForged)
{
    char buffer[32];
    ASSERT_TRUE(Vx::Logging::StripPositionalParameters("%2$s %1$d 5$ %%1$ %5.2f", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "%s %d 5$ %%1$ %5.2f");
    EXPECT_FALSE(Vx::Logging::StripPositionalParameters("0123456", buffer, 7));
    EXPECT_TRUE(Vx::Logging::StripPositionalParameters("012345", buffer, 7));

    const Nucleo::LogArgs record{Nucleo::LogOption::Error, 0, 1'700'000'000'123'456, "Jobs", "a\nb\x1b[0m"};
    EXPECT_EQ(Vx::Logging::FormatLogBuffer(record), "2023-11-14 22:13:20.123 Error   Jobs: a\\x0ab\\x1b[0m");
}

TEST(LoggingTest, RecordsCarryTheirSourceAndPublicMark)
{
    VxTestSupport::ScopedLogCapture log;
    Vx_Debug_Log(Warning, "100% sure");
    Vx::Logging::Public(Vx::Logging::Level::Error, "Jobs", "job '%s' failed", "a");
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "100% sure");
    EXPECT_EQ(lines[0].source, "Tests/Platform/VxApi/ExceptionLoggingTest");
    EXPECT_EQ(lines[0].options & Nucleo::LogOption::Public, 0U);
    EXPECT_EQ(lines[1].source, "Jobs");
    EXPECT_NE(lines[1].options & Nucleo::LogOption::Public, 0U);
}

}  // namespace
