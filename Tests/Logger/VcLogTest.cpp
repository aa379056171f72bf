// The log ring and its messages.

#include <deque>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <VxCommon/Logger/VcLog.h>
#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/ScopedClock.h>
#include <VxTestSupport/Streams.h>

using namespace Nucleo::Statuses;
using Nucleo::Handle;
using testing::ElementsAre;

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

// What an entry should hold.
struct Expected
{
    std::uint32_t id;
    std::string text;
    std::vector<std::string> arguments;
};

std::vector<std::string> ArgumentsOf(const VcLogMsg* msg)
{
    std::vector<std::string> texts;
    for (const VcLogMsgArg* arg = VcLogMsg_FirstArg(msg); arg != nullptr; arg = VcLogMsg_NextArg(msg, arg)) {
        texts.emplace_back(VcLogMsg_ArgText(msg, arg));
    }
    return texts;
}

// The ring holds the newest of what was put in, all of it unless room was short, and its ids have no gaps.
void ExpectSame(const VcLog& log, std::deque<Expected>& model, std::uint32_t nextId)
{
    ASSERT_LE(VcLog_Count(&log), model.size());
    model.erase(model.begin(), model.end() - static_cast<std::ptrdiff_t>(VcLog_Count(&log)));
    ASSERT_EQ(VcLog_NextId(&log), nextId);
    ASSERT_EQ(VcLog_FirstId(&log), nextId - VcLog_Count(&log));
    for (std::size_t i = 0; i < model.size(); ++i) {
        const VcLogMsg* msg = VcLog_At(&log, i);
        ASSERT_EQ(VcLogMsg_Id(msg), model[i].id);
        ASSERT_EQ(VcLogMsg_Text(msg), model[i].text);
        ASSERT_EQ(VcLogMsg_Length(msg), model[i].text.size());
        ASSERT_EQ(ArgumentsOf(msg), model[i].arguments);
    }
}

Nucleo::Status Collect(void* receiver, void* /*sender*/, void* args)
{
    static_cast<std::vector<VcLogChangeArgs>*>(receiver)->push_back(*static_cast<VcLogChangeArgs*>(args));
    return OK;
}

std::vector<std::string> Shown(const std::vector<VcLogChangeArgs>& changes)
{
    std::vector<std::string> shown;
    for (const VcLogChangeArgs& change : changes) {
        shown.push_back((change.cleared != 0 ? "cleared " : "") + std::to_string(change.firstId) + "-" +
                        std::to_string(change.lastId));
    }
    return shown;
}

TEST(VcLogTest, HoldsTheNewestWhateverIsPutIn)
{
    std::mt19937 random(20);
    const auto number = [&](std::size_t below) { return static_cast<std::size_t>(random()) % below; };
    const Handle<VcLog> log = MakeLog();
    std::deque<Expected> model;
    std::uint32_t nextId = 1;
    std::size_t evictions = 0;
    for (int step = 0; step < 20'000; ++step) {
        const std::size_t choice = number(100);
        if (choice < 60) {
            const std::string text(number(300), static_cast<char>('a' + number(26)));
            if (choice < 30) {
                const Nucleo::LogArgs record{2, 1, 2, "Source", text.c_str()};
                ASSERT_EQ(VcLog_InsertLogArgs(log.Get(), 1, &record), OK);
            } else {
                ASSERT_EQ(Insert(*log, text), OK);
            }
            model.push_back({nextId++, text, {}});
        } else if (choice < 98) {
            const std::string text(number(60), 'x');
            const bool empty = model.empty();
            const Nucleo::Status status = VcLog_AddArgument(log.Get(), text.c_str(), &Nucleo::StringType);
            ASSERT_EQ(status, empty ? ERROR_STATE : OK);
            if (!empty) {
                model.back().arguments.push_back(text);
            }
        } else if (choice == 98) {
            ASSERT_EQ(VcLog_Clear(log.Get()), OK);
            ASSERT_EQ(VcLog_Used(log.Get()), 0);
            model.clear();
        } else {
            // Can never fit: the ring empties itself, and no id is used up.
            ASSERT_EQ(Insert(*log, std::string(smallCapacity, 'x')), ERROR_MEMORY);
            ASSERT_EQ(VcLog_Count(log.Get()), 0U);
        }
        evictions += model.size() - VcLog_Count(log.Get());
        ASSERT_NO_FATAL_FAILURE(ExpectSame(*log, model, nextId)) << "step " << step;
    }
    EXPECT_GT(evictions, 5000U);
}

TEST(VcLogTest, AnArgumentThatPushesOutItsOwnMessageIsNotAttached)
{
    const Handle<VcLog> log = MakeLog();
    ASSERT_EQ(Insert(*log, "older"), OK);
    ASSERT_EQ(Insert(*log, std::string(smallCapacity / 2, 'x')), OK);
    EXPECT_EQ(VcLog_AddArgument(log.Get(), std::string(smallCapacity - 200, 'y').c_str(), &Nucleo::StringType),
              ERROR_MEMORY);
    EXPECT_EQ(VcLog_Count(log.Get()), 0U);
    EXPECT_EQ(VcLog_Used(log.Get()), 0);
    EXPECT_EQ(VcLog_AddArgument(log.Get(), std::string(smallCapacity, 'y').c_str(), &Nucleo::StringType), ERROR_STATE);
    ASSERT_EQ(Insert(*log, "newer"), OK);
    EXPECT_EQ(VcLog_FirstId(log.Get()), 3U);
    // Its own room is not enough, that of the next message is.
    ASSERT_EQ(Insert(*log, std::string(smallCapacity - 500, 'x')), OK);
    EXPECT_EQ(VcLogMsg_AddArgument(VcLog_At(log.Get(), 0), std::string(500, 'y').c_str(), &Nucleo::StringType),
              ERROR_MEMORY);
    EXPECT_EQ(VcLog_Count(log.Get()), 0U);
    EXPECT_EQ(VcLog_Used(log.Get()), 0);
}

TEST(VcLogTest, TellsListenersAndProbesTheIds)
{
    const Handle<VcLog> log = MakeLog();
    ASSERT_EQ(VcLog_InitHealthProbe(log.Get(), 4, nullptr), OK);
    EXPECT_EQ(VcLog_InitHealthProbe(log.Get(), 4, nullptr), ERROR_STATE);
    std::vector<VcLogChangeArgs> changes;
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(&Collect, &changes), OK);
    EXPECT_EQ(VcLog_FirstId(log.Get()), 1U);
    EXPECT_EQ(VcLog_LastId(log.Get()), 0U);
    ASSERT_EQ(Insert(*log, "1"), OK);
    ASSERT_EQ(Insert(*log, "2"), OK);
    ASSERT_EQ(VcLog_Clear(log.Get()), OK);
    ASSERT_EQ(Insert(*log, std::string(smallCapacity / 2, 'x')), OK);
    ASSERT_EQ(Insert(*log, std::string(smallCapacity / 2, 'x')), OK);  // Drops the one before.
    EXPECT_EQ(Insert(*log, std::string(smallCapacity, 'x')), ERROR_MEMORY);
    EXPECT_THAT(Shown(changes), ElementsAre("1-1", "1-2", "cleared 3-2", "3-3", "4-4"));

    std::vector<std::string> probes;
    for (const auto& reading : Nucleo::HealthProbe::ListLive()) {
        probes.push_back(reading.name + " " + std::to_string(reading.id) + "/" + std::to_string(reading.instance) +
                         " " + std::to_string(reading.value));
    }
    EXPECT_THAT(probes, ElementsAre("Veloxa/Log First 21301/4 4", "Veloxa/Log Last 21300/4 4"));
}

TEST(VcLogTest, AListenerThatChangesTheRingHearsNothingOfIt)
{
    const Handle<VcLog> log = MakeLog();
    std::vector<VcLogChangeArgs> changes;
    const auto change = [](void* /*receiver*/, void* sender, void* args) {
        auto* changed = static_cast<VcLog*>(sender);
        if (static_cast<VcLogChangeArgs*>(args)->lastId == 2) {
            VcLog_Clear(changed);
        }
        return VcLog_Insert(changed, 7, 1, VcLogMsgType_Info, "from inside");
    };
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(change, nullptr), OK);
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(&Collect, &changes), OK);
    ASSERT_EQ(Insert(*log, "from outside"), OK);
    ASSERT_EQ(Insert(*log, "from outside"), OK);
    EXPECT_THAT(Shown(changes), ElementsAre("1-1", "1-3"));
    EXPECT_EQ(VcLog_Count(log.Get()), 4U);
}

TEST(VcLogTest, IdsGoOnAtZeroAfterTheLargest)
{
    const Handle<VcLog> log = MakeLog();
    std::vector<VcLogChangeArgs> changes;
    ASSERT_EQ(VcLog_ChangeEvent(log.Get())->Add(&Collect, &changes), OK);
    log->nextId = std::numeric_limits<std::uint32_t>::max();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Insert(*log, "text"), OK);
    }
    EXPECT_THAT(Shown(changes), ElementsAre("4294967295-4294967295", "4294967295-0", "4294967295-1"));
    EXPECT_EQ(VcLogMsg_Id(VcLog_At(log.Get(), 2)), 1U);
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
        const Nucleo::LogArgs record{severity | Nucleo::LogOption::Public, 5, 6, "Source", "text"};
        ASSERT_EQ(VcLogMsg_ConstructLogArgs(msg.Receive(), 7, 8, &record, nullptr), OK);
        EXPECT_EQ(VcLogMsg_Type(msg.Get()), severity == 3 ? 0U : severity);
        EXPECT_EQ(VcLogMsg_Timestamp(msg.Get()), 5U);
        EXPECT_EQ(msg->options, record.options);
    }
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
        if (status == OK) {
            status = VcLog_InitHealthProbe(log, 0, &allocator);
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

    Handle<Nucleo::MemoryStream> stream;
    ASSERT_EQ(Nucleo::MemoryStream_Construct(stream.Receive()), OK);
    ASSERT_EQ(VcLog_Render(log.Get(), stream.Get()), OK);
    const std::vector<std::uint8_t> page = stream->TakeContent();
    std::string expected =
        "2023-11-14 22:13:20.123 Warning forged\\x0d\\x0a2023-11-14 line\r\n    first\\x0a2023\r\n    2\r\n";
    expected += "    " + longText + "\\x0a" + longText + "\r\n";
    std::string line = "2023-11-14 22:13:20.123 Error   Jobs: ";
    line.resize(255, 'x');
    EXPECT_EQ(std::string(page.begin(), page.end()), expected + line + "\r\n");

    for (std::size_t failsAt = 0; failsAt < page.size(); failsAt += 7) {
        VxTestSupport::PieceStream full({}, 0, failsAt);
        EXPECT_EQ(VcLog_Render(log.Get(), &full), ERROR_DISK_FULL) << failsAt;
    }

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
