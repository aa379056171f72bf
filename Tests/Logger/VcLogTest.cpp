// The log ring and its messages.

#include <cstdlib>
#include <limits>

#include <gmock/gmock.h>

#include <VxCommon/Logger/VcLog.h>
#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/ScopedClock.h>
#include <VxTestSupport/Streams.h>

using namespace Nucleo::Statuses;
using Nucleo::Handle;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr std::uint64_t smallCapacity = 4096;

Handle<VcLog> MakeLog(std::uint64_t capacity = smallCapacity, Nucleo::Allocator* allocator = nullptr)
{
    Handle<VcLog> log;
    EXPECT_EQ(VcLog_Construct(log.Receive(), capacity, allocator), OK);
    return log;
}

Nucleo::Status Insert(VcLog& log, const std::string& text)
{
    return VcLog_Insert(&log, 7, 1, VcLogMsgType_Warning, text.c_str());
}

// What a listener hears, and what the probes show at that moment.
struct Changes
{
    std::vector<std::string> shown;

    static Nucleo::Status Collect(void* receiver, void* /*sender*/, void* args)
    {
        const auto& change = *static_cast<VcLogChangeArgs*>(args);
        std::string text = (change.cleared != 0 ? "cleared " : "") + std::to_string(change.firstId) + "-" +
                           std::to_string(change.lastId);
        for (const auto& probe : Nucleo::HealthProbe::ListLive()) {
            text += " " + probe.name + " " + std::to_string(probe.value);
        }
        static_cast<Changes*>(receiver)->shown.push_back(text);
        return OK;
    }
};

// Takes the blocks back and notes in which order.
class FreeOrder final : public Nucleo::Allocator
{
public:
    Nucleo::Status Allocate(std::size_t size, void** memory) override
    {
        *memory = std::malloc(size);
        return OK;
    }
    Nucleo::Status Free(void* memory) override
    {
        freed.push_back(memory);
        std::free(memory);
        return OK;
    }
    std::vector<const void*> freed;
};

// Takes everything and cannot say that it has arrived.
class UnflushedStream final : public Nucleo::Stream
{
public:
    Nucleo::Status Write(const void*, std::size_t) override { return OK; }
    Nucleo::Status Flush() override { return ERROR_IO; }
};

TEST(VcLogTest, TellsListenersAndProbesTheIds)
{
    const Handle<VcLog> log = MakeLog();
    Changes changes;
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(&Changes::Collect, &changes), OK);
    EXPECT_EQ(VcLog_FirstId(log.Get()), 1U);
    EXPECT_EQ(VcLog_LastId(log.Get()), 0U);
    EXPECT_EQ(VcLog_AddArgument(log.Get(), "text", &Nucleo::StringType), ERROR_STATE);
    ASSERT_EQ(Insert(*log, "1"), OK);
    ASSERT_EQ(VcLog_InitHealthProbe(log.Get(), 4, nullptr), OK);
    EXPECT_EQ(VcLog_InitHealthProbe(log.Get(), 4, nullptr), ERROR_STATE);
    const auto probes = Nucleo::HealthProbe::ListLive();
    ASSERT_EQ(probes.size(), 2U);
    EXPECT_EQ(probes[0].id * 10 + probes[0].instance, 213014U);
    EXPECT_EQ(probes[0].value, 1);
    EXPECT_EQ(probes[1].id * 10 + probes[1].instance, 213004U);
    ASSERT_EQ(Insert(*log, "2"), OK);
    ASSERT_EQ(VcLog_Clear(log.Get()), OK);
    ASSERT_EQ(Insert(*log, std::string(smallCapacity / 2, 'x')), OK);
    ASSERT_EQ(Insert(*log, std::string(smallCapacity / 2, 'x')), OK);  // Drops the one before.
    EXPECT_EQ(Insert(*log, std::string(smallCapacity, 'x')), ERROR_MEMORY);
    EXPECT_THAT(changes.shown,
                ElementsAre("1-1", "1-2 Veloxa/Log First 1 Veloxa/Log Last 2",
                            "cleared 3-2 Veloxa/Log First 3 Veloxa/Log Last 2",
                            "3-3 Veloxa/Log First 3 Veloxa/Log Last 3", "4-4 Veloxa/Log First 4 Veloxa/Log Last 4"));
}

TEST(VcLogTest, AListenerThatChangesTheRingHearsNothingOfItAndIdsGoOnAtZeroAfterTheLargest)
{
    const Handle<VcLog> log = MakeLog();
    Changes changes;
    const auto change = [](void* /*receiver*/, void* sender, void* args) {
        auto* changed = static_cast<VcLog*>(sender);
        if (static_cast<VcLogChangeArgs*>(args)->lastId == 3) {
            VcLog_Clear(changed);
        }
        return VcLog_Insert(changed, 7, 1, VcLogMsgType_Info, "from inside");
    };
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(change, nullptr), OK);
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(&Changes::Collect, &changes), OK);
    log->nextId = std::numeric_limits<std::uint32_t>::max();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Insert(*log, "from outside"), OK);
    }
    EXPECT_THAT(changes.shown, ElementsAre("4294967295-4294967295", "4294967295-1", "4294967295-3"));
    ASSERT_EQ(VcLog_Count(log.Get()), 1U);
    EXPECT_EQ(VcLogMsg_Id(VcLog_At(log.Get(), 0)), 4U);
}

TEST(VcLogTest, MessagesKeepWhatTheyWereMadeFrom)
{
    VxTestSupport::ScopedClock clock;
    clock.SetDateTime(1'700'000'000'123'456);
    Handle<VcLogMsg> msg;
    ASSERT_EQ(VcLogMsg_Construct(msg.Receive(), 7, 8, 9, VcLogMsgType_Error, "", nullptr), OK);
    EXPECT_EQ(VcLogMsg_SourceId(msg.Get()) * 100 + VcLogMsg_Id(msg.Get()) * 10 + VcLogMsg_Timestamp(msg.Get()), 789U);
    EXPECT_EQ(VcLogMsg_DateTime(msg.Get()), 1'700'000'000'123'456U);
    EXPECT_EQ(VcLogMsg_SourceName(msg.Get()), nullptr);
    EXPECT_EQ(msg->options, 0U);
    for (std::uint64_t severity = 0; severity < 4; ++severity) {
        const Nucleo::LogArgs record{severity | std::uint64_t{1} << 63, 5, 6, "Source", "text"};
        ASSERT_EQ(VcLogMsg_ConstructLogArgs(msg.Receive(), 7, 8, &record, nullptr), OK);
        EXPECT_EQ(VcLogMsg_Type(msg.Get()), severity == 3 ? 0U : severity);
        EXPECT_EQ(VcLogMsg_Timestamp(msg.Get()), 5U);
        EXPECT_EQ(msg->options, record.options);
    }
}

TEST(VcLogTest, AMessageFreesItsArgumentsInOrderThenItsTextThenItsSource)
{
    FreeOrder order;
    const Nucleo::LogArgs record{1, 2, 3, "Source", "text"};
    VcLogMsg* msg = nullptr;
    ASSERT_EQ(VcLogMsg_ConstructLogArgs(&msg, 7, 8, &record, &order), OK);
    ASSERT_EQ(VcLogMsg_AddArgument(msg, "1", &Nucleo::Int32Type), OK);
    ASSERT_EQ(VcLogMsg_AddArgument(msg, "2", &Nucleo::Int32Type), OK);
    const VcLogMsgArg* first = VcLogMsg_FirstArg(msg);
    const VcLogMsgArg* second = VcLogMsg_NextArg(msg, first);
    const std::vector<const void*> owned = {first->text,        first,           second->text, second,
                                            VcLogMsg_Text(msg), msg->sourceName, msg};
    EXPECT_EQ(Nucleo::Destroy(msg), OK);
    EXPECT_EQ(order.freed, owned);
}

TEST(VcLogTest, EachFailingAllocationIsReportedAndLeaksNothing)
{
    VxTestSupport::NoObjects noObjects;
    VcLog* refused = nullptr;
    EXPECT_EQ(VcLog_Construct(&refused, smallCapacity, &noObjects), ERROR_PARAMETER);
    for (const std::uint64_t capacity : {std::uint64_t{0}, std::uint64_t{200}, std::uint64_t{1} << 32}) {
        EXPECT_EQ(VcLog_Construct(&refused, capacity, nullptr), ERROR_PARAMETER) << capacity;
    }
    EXPECT_EQ(refused, nullptr);

    const Nucleo::LogArgs record{1, 2, 3, "Source", "text"};
    VxTestSupport::SweepFailures([&](VxTestSupport::FailingAllocator& allocator) {
        VcLog* log = nullptr;
        VcLogMsg* msg = nullptr;
        Nucleo::Status status = VcLog_Construct(&log, smallCapacity, &allocator);
        EXPECT_EQ(log == nullptr, status != OK);
        if (status == OK && (status = VcLog_InitHealthProbe(log, 0, &allocator)) != OK) {
            EXPECT_THAT(Nucleo::HealthProbe::ListLive(), IsEmpty());
            EXPECT_EQ(VcLog_InitHealthProbe(log, 0, &allocator), OK);  // Only one allocation fails.
        }
        if (status == OK) {
            status = VcLogMsg_ConstructLogArgs(&msg, 1, 2, &record, &allocator);
            EXPECT_EQ(msg == nullptr, status != OK);
        }
        if (status == OK) {
            status = VcLogMsg_AddArgument(msg, "argument", &Nucleo::StringType);
            EXPECT_EQ(VcLogMsg_FirstArg(msg) == nullptr, status != OK);
        }
        EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
        if (log != nullptr) {
            // The ring itself takes nothing more, whatever happens to it.
            const int allocations = allocator.Allocations();
            for (int i = 0; i < 200; ++i) {
                EXPECT_EQ(Insert(*log, "text"), OK);
                EXPECT_EQ(VcLog_AddArgument(log, "argument", &Nucleo::StringType), OK);
            }
            EXPECT_EQ(allocator.Allocations(), allocations);
        }
        EXPECT_EQ(Nucleo::Destroy(msg), OK);
        EXPECT_EQ(Nucleo::Destroy(log), OK);
    });
}

TEST(VcLogTest, ShowsItsEntriesAsLines)
{
    VxTestSupport::ScopedClock clock;
    clock.SetDateTime(1'700'000'000'123'456);
    const Handle<VcLog> log = MakeLog();
    ASSERT_EQ(Insert(*log, "forged\r\n2023-11-14 line"), OK);
    ASSERT_EQ(VcLog_AddArgument(log.Get(), "first\n2023", &Nucleo::StringType), OK);
    ASSERT_EQ(VcLog_AddArgument(log.Get(), "2", &Nucleo::Int32Type), OK);
    const std::string longText(600, 'x');
    ASSERT_EQ(VcLog_AddArgument(log.Get(), (longText + "\n" + longText).c_str(), &Nucleo::StringType), OK);
    const Nucleo::LogArgs record{2, 0, 1'700'000'000'123'456, "Jobs", longText.c_str()};
    ASSERT_EQ(VcLog_InsertLogArgs(log.Get(), 1, &record), OK);

    VxTestSupport::PieceStream page({});
    ASSERT_EQ(VcLog_Render(log.Get(), &page), OK);
    std::string expected =
        "2023-11-14 22:13:20.123 Warning forged\\x0d\\x0a2023-11-14 line\r\n    first\\x0a2023\r\n    2\r\n";
    expected += "    " + longText + "\\x0a" + longText + "\r\n";
    std::string line = "2023-11-14 22:13:20.123 Error   Jobs: ";
    line.resize(255, 'x');
    EXPECT_EQ(page.Content(), expected + line + "\r\n");

    for (std::size_t failsAt = 0; failsAt < page.Content().size(); failsAt += 7) {
        VxTestSupport::PieceStream full({}, 0, failsAt);
        EXPECT_EQ(VcLog_Render(log.Get(), &full), ERROR_DISK_FULL) << failsAt;
    }
    UnflushedStream unflushed;
    EXPECT_EQ(VcLog_Render(log.Get(), &unflushed), ERROR_IO);

    Handle<Nucleo::String> string;
    ASSERT_EQ(VcLog_FormatLog(string.Receive(), VcLog_At(log.Get(), 1)), OK);
    EXPECT_EQ(string->View(), line + "\r\n");
    Nucleo::String* same = string.Get();
    ASSERT_EQ(VcLog_FormatLog(&same, VcLog_At(log.Get(), 1)), OK);
    EXPECT_EQ(string->View(), line + "\r\n" + line + "\r\n");

    for (const std::size_t start : {0U, 1U, 2U, 9U}) {
        Handle<Nucleo::ArrayList<VcLogMsg*>> list;
        ASSERT_EQ(VcLog_CopyEntries(log.Get(), list.Receive(), start), OK);
        ASSERT_EQ(list->Count(), start < 2 ? 2 - start : 0);
        EXPECT_TRUE(list->Count() == 0 || list->At(0) == VcLog_At(log.Get(), start));
        EXPECT_EQ(&list->ItemType(), &Nucleo::ObjectHandleType);
    }
}

}  // namespace
