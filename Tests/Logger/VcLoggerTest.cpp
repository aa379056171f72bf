// The logger: ways in, filters and cycles, formats, XML, many threads.

#include <malloc.h>

#include <atomic>
#include <bit>
#include <cstring>
#include <limits>
#include <thread>

#include <gmock/gmock.h>

#include <Nucleo/Clock.h>
#include <Nucleo/MemoryMarks.h>
#include <VxApi/Logging.h>
#include <VxCommon/Logger/VcLogger.h>
#include <VxCommon/Logger/VcUtilsLog.h>
#include <VxRest/HttpServer.h>
#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/ReplacedHeap.h>
#include <VxTestSupport/ScopedClock.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>
#include <VxTestSupport/Streams.h>
#include <VxTestSupport/Threads.h>

using namespace Nucleo::Statuses;
using Nucleo::Handle;
using Nucleo::MakeFormatArgs;
using testing::ElementsAre;
using testing::IsEmpty;
using VxTestSupport::PieceStream;

namespace
{

std::atomic<std::size_t> heapAllocations{0};  // From the general heap, by this program.
// Called before each of this thread, but not from inside itself.
thread_local const std::function<void()>* beforeAllocation = nullptr;

}  // namespace

void VxTestSupport::OnAllocation()
{
    ++heapAllocations;
    if (const auto* call = std::exchange(beforeAllocation, nullptr)) {
        (*call)();
        beforeAllocation = call;
    }
}

namespace
{

class VcLoggerTest : public testing::Test
{
protected:
    VcLoggerTest()
    {
        EXPECT_EQ(VcLogger_Construct(logger.Receive(), 7, 0, nullptr), OK);
        log = VcLogger_PublicLog();
    }

    std::vector<std::string> Texts(const VcLog* of = VcLogger_PublicLog())
    {
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < VcLog_Count(of); ++i) {
            const VcLogMsg* msg = VcLog_At(of, i);
            texts.emplace_back(VcLogMsg_Text(msg));
            for (const VcLogMsgArg* arg = VcLogMsg_FirstArg(msg); arg != nullptr; arg = VcLogMsg_NextArg(msg, arg)) {
                texts.back() += std::string("|") + VcLogMsg_ArgType(msg, arg)->name + ":" + VcLogMsg_ArgText(msg, arg);
            }
        }
        return texts;
    }

    template <class... Args>
    Nucleo::Status Logf(std::uint32_t structured, const char* format, const Args&... args)
    {
        return VcLogger_LogfImpl(logger.Get(), log, structured, VcLogMsgType_Info, 0, format, MakeFormatArgs(args...));
    }

    Handle<VcLogger> logger;
    VcLog* log = nullptr;
};

TEST_F(VcLoggerTest, ThereIsOneInstance)
{
    VcLogger* second = logger.Get();
    EXPECT_EQ(VcLogger_Construct(&second, 8, 0, nullptr), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(VcLogger_Instance(), logger.Get());
    EXPECT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, 0, "still there"), OK);

    logger = Handle<VcLogger>();
    EXPECT_EQ(VcLogger_Instance(), nullptr);
    EXPECT_EQ(VcLogger_LogCallback(nullptr, {0, 0, 0, "", ""}), OK);
    EXPECT_EQ(VcLogger_RenderPublic(nullptr), OK);
    EXPECT_EQ(VcLogger_RenderPrivate(nullptr), OK);
    EXPECT_EQ(VcLogger_ClearPublicLogAndFilter(), OK);

    // The page that the host has set is its own, before a logger that cannot be made and under one that could.
    const VrPrivateLogFx hosts = [](Nucleo::Stream*) { return OK; };
    VrPrivateLogFx shown = nullptr;
    VxTestSupport::SweepFailures([&](VxTestSupport::FailingAllocator& allocator) {
        ASSERT_EQ(VrHttpServer_SetPrivateLogHandler(hosts, nullptr), OK);
        const Nucleo::Status status = VcLogger_Construct(&second, 8, 0, &allocator);
        EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
        EXPECT_EQ(VrHttpServer_SetPrivateLogHandler(hosts, &shown), OK);
        EXPECT_EQ(shown, status == OK ? &VcLogger_RenderPrivate : hosts);
        EXPECT_EQ(VcLogger_Instance(), second);
        EXPECT_EQ(second == nullptr, status != OK);
        EXPECT_EQ(Nucleo::Destroy(second), OK);
        EXPECT_EQ(VrHttpServer_SetPrivateLogHandler(nullptr, &shown), OK);
        EXPECT_EQ(shown, hosts);
    });
    ASSERT_EQ(VcLogger_Construct(logger.Receive(), 7, 0, nullptr), OK);
    logger = Handle<VcLogger>();
    EXPECT_EQ(VrHttpServer_SetPrivateLogHandler(nullptr, &shown), OK);
    EXPECT_EQ(shown, nullptr);
}

TEST_F(VcLoggerTest, RuntimeRecordsReachTheRingsWhileTheHandlerIsInstalledAndInACycleNewOnesThePrivateOneAlone)
{
    const auto publish = [](const char* text) { Vx::Logging::Public(Vx::Logging::Level::Error, "Source", text); };
    EXPECT_EQ(VcLogger_RemoveLogHandler(), ERROR_NOT_FOUND);
    ASSERT_EQ(VcLogger_AddLogHandler(), OK);
    EXPECT_EQ(VcLogger_AddLogHandler(), ERROR_ALREADY_EXISTS);
    Vx::Logging::Tagged(Vx::Logging::Level::Info, "Source", "private %d", 1);
    publish("public");
    ASSERT_EQ(VcLogger_BeginLogCycle(), OK);
    publish("in a cycle");
    std::thread([&] { publish("of another"); }).join();
    ASSERT_EQ(VcLogger_EndLogCycle(), OK);
    VcLogger_EnablePrivateLogging(0);
    publish("of another");
    publish("of another");  // Nothing filters.
    EXPECT_EQ(VcLogger_RemoveLogHandler(), OK);
    publish("nobody");
    EXPECT_THAT(Texts(VcLogger_PrivateLog()), ElementsAre("private 1", "public", "in a cycle", "of another"));
    EXPECT_THAT(Texts(), ElementsAre("public", "of another", "of another"));
}

TEST_F(VcLoggerTest, FiltersAndCyclesHoldRepetitionsBack)
{
    // Each step: B begins a cycle, E ends one, F and N set the public filter on and off, X clears the filters; any
    // other letter is a text that is logged, a capital one with the public filter asked for.
    const std::pair<const char*, const char*> cases[] = {
        {"a a", "a a "},        // Nothing filters.
        {"A A", "a a "},        // Asked for, but not enabled.
        {"F A A a A", "a a "},  // The unfiltered one is shown; it is not remembered either.
        {"F A N A F A X A", "a a a "},
        {"B a a E B a E B a E", "a "},
        {"B a E B E B a E", "a a "},  // One whole cycle without it.
        {"B a E a", "a a "},          // Outside a cycle its sets do not count.
        {"B a E B c E B a c E", "a c a "},
        {"F A B A E A", "a "},    // The filter counts inside a cycle too.
        {"F B A E A A", "a a "},  // Seen in a cycle only: the filter has not got it.
        {"E a E a", "a a "},      // An end without a beginning does nothing.
        {"B a X a E", "a a "},
    };
    for (const auto& [steps, expected] : cases) {
        ASSERT_EQ(VcLogger_ClearPublicLogAndFilter(), OK);
        VcLogger_EnablePublicMessageFilter(0);
        VcLogger_EndLogCycle();
        VcLogger_ClearMessageFilters();
        for (const char step : std::string(steps)) {
            if (step == 'B') {
                EXPECT_EQ(VcLogger_BeginLogCycle(), OK);
            } else if (step == 'E') {
                EXPECT_EQ(VcLogger_EndLogCycle(), OK);
            } else if (step == 'F' || step == 'N') {
                VcLogger_EnablePublicMessageFilter(step == 'F' ? 1 : 0);
            } else if (step == 'X') {
                EXPECT_EQ(VcLogger_ClearMessageFilters(), OK);
            } else if (step != ' ') {
                const char text[] = {static_cast<char>(step | 0x20), '\0'};
                EXPECT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, step < 'a' ? 1 : 0, text), OK);
            }
        }
        std::string shown;
        for (const std::string& text : Texts()) {
            shown += text + " ";
        }
        EXPECT_EQ(shown, expected) << steps;
    }
    EXPECT_GT(VcLogger_FilterCount(), 0U);
}

TEST_F(VcLoggerTest, FormatsAreHeldBackByFormatOrTextAndRememberedByTextUntilThePublicLogIsCleared)
{
    VcLogger_EnablePublicMessageFilter(1);
    const auto say = [&](std::uint32_t structured, const char* format, int number) {
        return VcLogger_LogfImpl(logger.Get(), log, structured, VcLogMsgType_Info, 1, format, MakeFormatArgs(number));
    };
    EXPECT_EQ(say(0, "%d", 1), OK);
    EXPECT_EQ(say(0, "%d", 1), OK);  // By its text.
    EXPECT_EQ(say(1, "%d", 1), OK);  // As well.
    EXPECT_EQ(say(1, "%d", 2), OK);  // Remembered as "2".
    EXPECT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, 1, "2"), OK);
    EXPECT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, 1, "%d"), OK);
    EXPECT_EQ(say(0, "%d", 3), OK);  // By its format.
    const Nucleo::LogArgs record{Nucleo::LogOption::Public, 1, 2, "Source", "record"};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(VcLogger_LogImplLogArgs(logger.Get(), log, 1, &record), OK);
        EXPECT_EQ(VcLogger_LogfImplLogArgs(logger.Get(), log, 1, &record, {}), OK);
        EXPECT_EQ(VcLogger_LogCallback(nullptr, record), OK);  // The private log has no such filter.
    }
    EXPECT_THAT(Texts(), ElementsAre("1", "%d|i32:2", "%d", "record"));
    EXPECT_THAT(Texts(VcLogger_PrivateLog()), ElementsAre("record", "record"));
    EXPECT_EQ(VcLogger_FilterCount(), 5U);

    PieceStream pages[] = {PieceStream({}), PieceStream({})};
    EXPECT_EQ(VcLogger_RenderPrivate(&pages[0]), OK);
    EXPECT_EQ(VcLogger_RenderPublic(&pages[1]), OK);
    EXPECT_LT(pages[0].Content().size(), pages[1].Content().size());

    const auto filters = [](void* receiver, void*, void*) -> Nucleo::Status {
        *static_cast<std::size_t*>(receiver) = VcLogger_FilterCount();
        return OK;
    };
    std::size_t whileCleared = 0;
    ASSERT_EQ(VcLog_ChangeEvent(log)->Add(filters, &whileCleared), OK);
    EXPECT_EQ(VcLogger_ClearPublicLogAndFilter(), OK);
    EXPECT_EQ(whileCleared, 5U);
    EXPECT_EQ(VcLogger_FilterCount(), 0U);
    EXPECT_THAT(Texts(), IsEmpty());
    EXPECT_EQ(VcLog_Count(VcLogger_PrivateLog()), 2U);
}

TEST_F(VcLoggerTest, WithoutMemoryEachOperationReportsItAndAFilteredEntryStays)
{
    const std::string text(100, 'x');
    ASSERT_EQ(Logf(1, "%s", text), OK);
    Nucleo::XmlDocument document;
    document.CreateRoot("Root");
    Handle<Nucleo::String> line;
    Handle<Nucleo::ArrayList<VcLogMsg*>> list;
    const std::function<Nucleo::Status()> operations[] = {
        [&] { return VcLogger_GenerateXML(1, &document, 0, 1); },
        [&] { return VcLog_FormatLog(line.Receive(), VcLog_At(log, 0)); },
        [&] { return VcUtils_Logvf(line.Receive(), 1, "%s", MakeFormatArgs(text)); },
        [&] { return VcLog_CopyEntries(log, list.Receive(), 0); },
        [&] {
            logger = Handle<VcLogger>();
            Nucleo::Status status = VcLogger_Construct(logger.Receive(), 7, 0, nullptr);
            if (status == OK) {
                VcLogger_EnablePublicMessageFilter(1);
                status = VcLogger_LogImpl(logger.Get(), VcLogger_PublicLog(), VcLogMsgType_Info, 1, text.c_str());
                EXPECT_EQ(VcLog_Count(VcLogger_PublicLog()), 1U);
                EXPECT_EQ(VcLogger_FilterCount(), status == OK ? 1U : 0U);
            }
            logger = Handle<VcLogger>();
            return status;
        },
    };
    for (const auto& operation : operations) {
        const int failures = VxTestSupport::SweepFailures([&](VxTestSupport::FailingAllocator& allocator) {
            const VxTestSupport::ScopedDefaultAllocator scoped(allocator);
            const Nucleo::Status status = operation();
            EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
            line = Handle<Nucleo::String>();
            list = Handle<Nucleo::ArrayList<VcLogMsg*>>();
        });
        EXPECT_GT(failures, 1) << &operation - operations;
    }
}

TEST_F(VcLoggerTest, AttachesTheArgumentsOfAStructuredMessage)
{
    const std::string longText(300, 'x');
    EXPECT_EQ(Logf(1, "%2$s is %1$d of %llu, %c%c, %g", "it", -5, std::uint64_t{1} << 40, 'o', 'k', 0.5), OK);
    EXPECT_EQ(Logf(1, "%s", longText), OK);
    EXPECT_EQ(Logf(1, "%s", longText.substr(0, 253) + "\u20ac"), OK);  // Cut in front of the last character.
    EXPECT_EQ(Logf(0, "%d of %s%c", 1, "two", '\0'), OK);
    EXPECT_THAT(
        Texts(),
        ElementsAre("%2$s is %1$d of %llu, %c%c, %g|string:it|i32:-5|i64:1099511627776|char:o|char:k|f64:0.5",
                    "%s|string:" + longText.substr(0, 255), "%s|string:" + longText.substr(0, 253), "1 of two"));

    ASSERT_EQ(VcLogger_ClearPublicLogAndFilter(), OK);
    const Nucleo::LogArgs record{1, 2, 3, "Source", "%d %c"};
    EXPECT_EQ(VcLogger_LogfImplLogArgs(logger.Get(), log, 0, &record, MakeFormatArgs(4, 'x')), OK);
    EXPECT_THAT(Texts(), ElementsAre("%d %c|i32:4|char:x"));

    char buffer[4];
    const auto storage = MakeFormatArgs(123456, 'x', "text");
    Nucleo::ArgCursor cursor{storage};
    EXPECT_EQ(VcLogger_FormatArg(&cursor, &Nucleo::Int32Type, buffer, sizeof buffer), ERROR_CAPACITY);
    EXPECT_EQ(VcLogger_FormatArg(&cursor, &Nucleo::CharType, buffer, 1), ERROR_PARAMETER);
    EXPECT_EQ(VcLogger_FormatArg(&cursor, &Nucleo::StringType, buffer, sizeof buffer), OK);
    EXPECT_STREQ(buffer, "tex");
    EXPECT_EQ(VcLogger_FormatArg(&cursor, &Nucleo::Float32Type, buffer, sizeof buffer), ERROR_PARAMETER);
}

TEST_F(VcLoggerTest, PrintsAndAttachesEachPairOfSpecifierAndArgument)
{
    const auto shown = [&](const char* format, const auto&... args) {
        EXPECT_EQ(VcLogger_ClearPublicLogAndFilter(), OK);
        EXPECT_EQ(Logf(0, format, args...), OK);
        EXPECT_EQ(Logf(1, format, args...), OK);
        const std::vector<std::string> texts = Texts();
        return texts[0] + texts[1].substr(std::strlen(format));
    };
    for (const char* number : {"%d|i32", "%u|u32", "%lld|i64", "%f|f64", "%c|char"}) {
        const std::string format(number, std::strchr(number, '|'));
        EXPECT_EQ(shown(format.c_str(), "text"), "(?)" + std::string(number).substr(format.size()) + ":(?)");
    }
    EXPECT_EQ(shown("%s", 17), "(?)|string:(?)");  // No slot is followed that holds no text.
    EXPECT_EQ(shown("%s", 1.5), "(?)|string:(?)");
    EXPECT_EQ(shown("%s", static_cast<const char*>(nullptr)), "(null)|string:(null)");
    EXPECT_EQ(shown("%d"), "(?)|i32:(?)");
    // Where what is attached differs from what is printed.
    EXPECT_EQ(shown("%04x %.1f", 255, 2.5), "00ff 2.5|i32:255|f64:2.5");
    EXPECT_EQ(shown("%d %hhd", std::int64_t{1} << 32 | 3, 257), "3 1|i32:3|i64:257");
    EXPECT_EQ(shown("%lf %-+f", 1.0, 2.0), "1.000000 +2.000000|i32:0|i32:0");
    EXPECT_EQ(shown("%d %f", 1 + 0x1p-20, std::bit_cast<std::int64_t>(2.5)), "(?) (?)|i32:0|f64:2.5");
    EXPECT_EQ(shown("%p %5%", 7, 8), "(?) %|i32:7|i32:8");
    EXPECT_EQ(shown("%I64d %I32d %Iu %I%d", 1, 2, 3, 4), "1 2 3 %d|i64:1|i32:2|i32:3|i32:4");
    EXPECT_EQ(shown("%hhu %hu %lu", 1, 2, 3), "1 2 3|i64:1|i32:2|i32:3");
}

TEST_F(VcLoggerTest, ArgumentsGoToTheirOwnMessageWhateverListenersDo)
{
    const auto logs = [](void*, void*, void*) {
        return VcLogger_LogImpl(VcLogger_Instance(), VcLogger_PublicLog(), VcLogMsgType_Info, 0, "listener");
    };
    const auto clears = [](void*, void*, void*) { return VcLog_Clear(VcLogger_PublicLog()); };
    ASSERT_EQ(VcLog_ChangeEvent(log)->Add(logs, nullptr), OK);
    EXPECT_EQ(Logf(1, "%d of %d", 3, 4), OK);
    EXPECT_THAT(Texts(), ElementsAre("%d of %d|i32:3|i32:4", "listener"));
    ASSERT_EQ(VcLog_ChangeEvent(log)->Add(clears, nullptr), OK);
    EXPECT_EQ(Logf(1, "%d of %d", 3, 4), ERROR_STATE);
    EXPECT_THAT(Texts(), IsEmpty());
    const Nucleo::LogArgs nothing{0, 1, 2, nullptr, nullptr};
    EXPECT_EQ(VcLogger_LogCallback(nullptr, nothing), OK);
    EXPECT_THAT(Texts(VcLogger_PrivateLog()), ElementsAre(""));
}

TEST_F(VcLoggerTest, WhatCouldNotBeInsertedOrGoesForItsArgumentIsNotRemembered)
{
    ASSERT_EQ(VcLogger_EnablePublicMessageFilter(1), OK);
    const std::string huge(2 * VcLogger::LogCapacity, 'x');
    EXPECT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, 1, huge.c_str()), ERROR_MEMORY);
    EXPECT_EQ(VcLogger_LogCallback(nullptr, {Nucleo::LogOption::Public, 1, 2, "Source", huge.c_str()}), ERROR_MEMORY);
    EXPECT_EQ(VcLogger_FilterCount(), 0U);
    EXPECT_EQ(VcLog_NextId(log), 1U);
    // What a listener logs leaves so little room that the message and what came after it go for the argument.
    const auto fills = [](void*, void*, void*) {
        const auto used = static_cast<std::size_t>(VcLog_Used(VcLogger_PublicLog()));
        const std::size_t room = VcLog_Capacity(VcLogger_PublicLog()) - used;
        return VcLogger_LogImpl(VcLogger_Instance(), VcLogger_PublicLog(), VcLogMsgType_Info, 0,
                                std::string(room - 300, 'x').c_str());
    };
    ASSERT_EQ(VcLog_ChangeEvent(log)->Add(fills, nullptr), OK);
    const auto logs = [&] {
        return VcLogger_LogfImpl(logger.Get(), log, 1, VcLogMsgType_Error, 1, "value %s",
                                 MakeFormatArgs(std::string(255, 'a')));
    };
    EXPECT_EQ(logs(), Nucleo::ERROR_MEMORY);
    EXPECT_EQ(VcLog_Count(log), 0U);
    ASSERT_EQ(VcLog_ChangeEvent(log)->Remove(fills, nullptr), OK);
    EXPECT_EQ(logs(), OK);
    EXPECT_EQ(VcLog_Count(log), 1U);
}

TEST_F(VcLoggerTest, CycleThatAListenerBeginsHoldsTheTextThatCameFirst)
{
    const auto begins = [](void*, void*, void*) { return VcLogger_BeginLogCycle(); };
    ASSERT_EQ(VcLog_ChangeEvent(log)->Add(begins, nullptr), OK);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, 0, "same"), OK);
    }
    EXPECT_THAT(Texts(), ElementsAre("same"));
}

TEST_F(VcLoggerTest, TextsThatDoNotFitAreRefusedWhole)
{
    const std::string most(511, 'x');
    EXPECT_EQ(Logf(0, "%s", most), OK);
    EXPECT_EQ(Logf(0, "%s.", most), ERROR_CAPACITY);
    EXPECT_EQ(Logf(0, (most + "x").c_str()), ERROR_CAPACITY);
    EXPECT_EQ(Logf(0, ("%1$s" + most.substr(3)).c_str(), "x"), OK);  // 510 characters without the marker
    EXPECT_EQ(VcLog_Count(log), 2U);
    // A "%" in front of a marker is a specifier of its own, whether or not the format is short enough to be kept.
    for (const std::size_t zeros : {1U, 600U}) {
        EXPECT_EQ(Logf(0, ("%" + std::string(zeros, '0') + "$d % %1$d").c_str(), 7), OK);
        EXPECT_EQ(Texts().back(), "7 %1$d");
    }
    char buffer[7];
    const Vx::Locker locker = VcLogger_GetLock();
    EXPECT_EQ(VcLogger_MakeLogText("%1$d-%2$s", MakeFormatArgs(12, "abc"), buffer, sizeof buffer), OK);
    EXPECT_STREQ(buffer, "12-abc");
    EXPECT_EQ(VcLogger_MakeLogText("%1$d-%2$s", MakeFormatArgs(123, "abc"), buffer, sizeof buffer), ERROR_CAPACITY);
}

TEST_F(VcLoggerTest, XmlShowsTheAskedRange)
{
    for (int i = 1; i <= 9; ++i) {
        ASSERT_EQ(VcLogger_LogImpl(logger.Get(), log, static_cast<VcLogMsgType>(i % 3), 0, std::to_string(i).c_str()),
                  OK);
        if (i == 4) {
            ASSERT_EQ(VcLog_Clear(log), OK);
        }
    }
    constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
    const std::tuple<std::uint64_t, std::uint64_t, const char*> cases[] = {
        // start, end, "idStart-idEnd: ids"
        {0, largest, "5-9: 5 6 7 8 9"}, {5, 5, "5-5: 5"},       {7, 100, "7-9: 7 8 9"},
        {6, 8, "6-8: 6 7 8"},           {8, 6, "8-6:"},         {0, 4, "5-4:"},
        {0, 3, "5-9: 5 6 7 8 9"},       {12, largest, "12-9:"}, {largest, 7, "-1-7:"}};
    for (const auto& [startId, endId, expected] : cases) {
        Nucleo::XmlDocument document;
        document.CreateRoot("Root");
        ASSERT_EQ(VcLogger_GenerateXML(1, &document, startId, endId), OK);
        const Nucleo::XmlNode element = document.Child(document.Root(), "Log");
        std::string shown = document.Attribute(element, "idStart").value_or("?") + "-" +
                            document.Attribute(element, "idEnd").value_or("?") + ":";
        for (const Nucleo::XmlNode entry : document.Children(element)) {
            shown += " " + document.Attribute(entry, "id").value_or("?");
            EXPECT_EQ(document.Attribute(entry, "id"), document.Attribute(entry, "value"));
        }
        EXPECT_EQ(shown, expected);
    }
    Nucleo::XmlDocument empty;
    EXPECT_EQ(VcLogger_GenerateXML(1, &empty, 0, largest), ERROR_STATE);
}

TEST_F(VcLoggerTest, XmlIsWellFormedWhateverIsLoggedAndShowsTheScaledTimerSinceTheOrigin)
{
    VxTestSupport::ScopedClock clock(10, 3);
    clock.SetTimer(3'000);
    logger = Handle<VcLogger>();
    ASSERT_EQ(VcLogger_Construct(logger.Receive(), 7, 4'000, nullptr), OK);
    log = VcLogger_PrivateLog();
    ASSERT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Error, 0, "100%d<\"\x01\xff&"), OK);
    for (const Nucleo::Type* type : {&Nucleo::Int32Type, &Nucleo::UInt32Type, &Nucleo::Int64Type, &Nucleo::UInt64Type,
                                     &Nucleo::Float32Type, &Nucleo::Float64Type, &Nucleo::CharType}) {
        ASSERT_EQ(VcLog_AddArgument(log, type->name, type), OK);
    }
    ASSERT_EQ(VcLog_AddArgument(log, "</Log>\x80", &Nucleo::StringType), OK);
    Nucleo::XmlDocument document;
    document.CreateRoot("Root");
    ASSERT_EQ(VcLogger_GenerateXML(0, &document, 0, 1), OK);
    EXPECT_EQ(document.ToText(), R"(<?xml version="1.0" encoding="UTF-8"?>
<Root>
  <Log idStart="1" idEnd="1">
    <Error time="6000" source="7" id="1" value="100%d&lt;&quot;��&amp;">
      <IntArg value="i32" />
      <IntArg value="u32" />
      <IntArg value="i64" />
      <IntArg value="u64" />
      <FloatArg value="f32" />
      <FloatArg value="f64" />
      <Arg value="char" />
      <Arg value="&lt;/Log>�" />
    </Error>
  </Log>
</Root>
)");
}

TEST_F(VcLoggerTest, XmlIsMadeOfACopyWhileOthersLogAndClear)
{
    const std::string text(100, 'x');  // Each takes memory when it is set.
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(Logf(1, (text + "%s").c_str(), text), OK);
    }
    int between = 0;
    Nucleo::XmlDocument document;
    document.CreateRoot("Root");
    const std::function<void()> clear = [&] {
        std::thread([&] {
            if (logger->lock.TryEnter()) {
                ++between;
                VcLog_Clear(log);
                logger->lock.Leave();
            }
        }).join();
    };
    beforeAllocation = &clear;
    const Nucleo::Status status = VcLogger_GenerateXML(1, &document, 2, 4);
    beforeAllocation = nullptr;
    EXPECT_EQ(status, OK);
    EXPECT_GE(between, 6);
    const std::string entry = "value=\"" + text + "%s\">\n      <Arg value=\"" + text + "\" />";
    EXPECT_THAT(document.ToText(), testing::HasSubstr("<Log idStart=\"2\" idEnd=\"4\">"));
    EXPECT_THAT(document.ToText(), testing::ContainsRegex("(id=\"[234]\" " + entry + "[^v]*){3}"));
}

TEST_F(VcLoggerTest, LinesOfLibraryUsers)
{
    Handle<Nucleo::String> line;
    EXPECT_EQ(VcUtils_Log(line.Receive(), 1'700'000'000'999'999, "100%d"), OK);
    EXPECT_EQ(line->View(), "2023-11-14 22:13:20: 100%d\r\n");
    EXPECT_EQ(VcUtils_Logvf(line.Receive(), std::numeric_limits<std::uint64_t>::max(), "%d%%", MakeFormatArgs(5)), OK);
    EXPECT_EQ(line->View(), "5%\r\n");
    EXPECT_EQ(VcUtils_Logvf(line.Receive(), std::numeric_limits<std::uint64_t>::max(), "a%cb", MakeFormatArgs(0)), OK);
    EXPECT_EQ(line->View(), "a\r\n");
}

TEST_F(VcLoggerTest, ManyThreadsLogWhileOthersReadAndClear)
{
    constexpr int writers = 8;
    constexpr int messages = 2'000;
    std::atomic<int> running{writers};
    ASSERT_EQ(VcLogger_AddLogHandler(), OK);
    // A listener that logs through the runtime, from inside the change.
    const auto listener = [](void*, void*, void* args) -> Nucleo::Status {
        if (static_cast<VcLogChangeArgs*>(args)->lastId % 16 == 0) {
            Vx::Logging::Public(Vx::Logging::Level::Info, "Listener", "from inside");
        }
        return OK;
    };
    VcLogger_Lock();
    ASSERT_EQ(VcLog_ChangeEvent(log)->Add(listener, nullptr), OK);
    VcLogger_Unlock();

    VxTestSupport::OnThreads(writers + 2, [&](int number) {
        std::uint32_t lastSeen = 0;
        for (int i = 0; number < writers && i < messages; ++i) {
            Vx::Logging::Public(Vx::Logging::Level::Info, "Writer", "%d says %d", number, i);
            EXPECT_EQ(Logf(1, "%d says %d", number, i), OK);
        }
        running -= number < writers ? 1 : 0;
        while (running > 0 && number == writers) {
            EXPECT_EQ(VcLogger_ClearPublicLogAndFilter(), OK);
            std::this_thread::yield();
        }
        while (running > 0 && number > writers) {
            const Vx::Locker locker = VcLogger_GetLock();
            for (std::size_t i = 0; i < VcLog_Count(log); ++i) {
                ASSERT_EQ(VcLogMsg_Id(VcLog_At(log, i)), VcLog_FirstId(log) + i);
            }
            ASSERT_GE(VcLog_LastId(log), lastSeen);
            lastSeen = VcLog_LastId(log);
        }
    });
    EXPECT_EQ(VcLogger_RemoveLogHandler(), OK);
    EXPECT_GE(VcLog_LastId(log), 2U * writers * messages);
}

TEST_F(VcLoggerTest, AFloodTakesNoMemory)
{
#if defined(NUCLEO_ASAN) || defined(__SANITIZE_THREAD__)
    constexpr int rounds = 100'000;  // Each message takes many times as long.
#else
    constexpr int rounds = 3'333'333;
#endif
    VxTestSupport::FailingAllocator allocator;
    logger = Handle<VcLogger>();
    ASSERT_EQ(VcLogger_Construct(logger.Receive(), 7, 0, &allocator), OK);
    log = VcLogger_PublicLog();
    const std::string text(500, 'x');
    const auto flood = [&](int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(VcLogger_LogImpl(logger.Get(), log, VcLogMsgType_Info, 0, text.c_str() + i % 500), OK);
            ASSERT_EQ(Logf(0, "%d of %s at %llu", i, text.c_str() + 100 + i % 400, std::uint64_t{1} << 40), OK);
            ASSERT_EQ(Logf(1, "%s and %c", "text", 'x'), OK);
        }
    };
    flood(1);  // What is made once.
    const std::size_t before = heapAllocations + static_cast<std::size_t>(allocator.Allocations());
    const std::size_t inUse = mallinfo2().uordblks;
    flood(rounds);
    EXPECT_EQ(heapAllocations + static_cast<std::size_t>(allocator.Allocations()), before);
    EXPECT_LE(mallinfo2().uordblks, inUse);
    EXPECT_EQ(VcLog_LastId(log), 3U * (rounds + 1));
    EXPECT_LE(VcLog_Used(log), static_cast<std::int64_t>(VcLogger::LogCapacity));
    logger = Handle<VcLogger>();  // Before its allocator goes.
}

}  // namespace
