// Change notices over real sockets.

#include <VxTestSupport/Threads.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using VxRest::EventType;
using VxTestSupport::EventReader;
using VxTestSupport::ServerEvent;

class NoticeStreams : public ServerFixture
{
protected:
    void Raise(EventType type, const std::string& path) { document.NotificationEvent().Raise(type, path); }

    EventReader Listen(const std::string& target = "/notifications", const VxTestSupport::HttpHeaders& headers = {})
    {
        return EventReader(server->Port(), target, headers);
    }

    bool Streams(std::size_t count)
    {
        return Eventually([&] { return server->Statistics().noticeStreams == count; });
    }
};

TEST_F(NoticeStreams, EventsArriveInOrderWithRisingIds)
{
    Start();
    EventReader events = Listen();
    EventReader chosen = Listen("/notifications?path=/doc/a%2520b");
    EXPECT_EQ(events.Header().Header("Content-Type"), "text/event-stream");
    Raise(EventType::Created, "/doc/a%20b/data");
    Raise(EventType::Updated, "/doc");
    Raise(EventType::Deleted, "/doc/a%20b");
    std::uint64_t last = 0;
    for (const char* told : {R"(created {"path":"/doc/a%20b/data","type":1})", R"(updated {"path":"/doc","type":2})",
                             R"(deleted {"path":"/doc/a%20b","type":3})"}) {
        const std::optional<ServerEvent> event = events.Next();
        ASSERT_TRUE(event);
        EXPECT_EQ(event->event + " " + event->data, told);
        EXPECT_GT(std::stoull(event->id), last);
        last = std::stoull(event->id);
    }
    EXPECT_EQ(chosen.Next()->event, "created");
    EXPECT_EQ(chosen.Next()->event, "deleted");
    EXPECT_EQ(server->Statistics().notices, 3u);
    EXPECT_EQ(server->Statistics().noticeStreams, 2u);
    server->Stop();
    EXPECT_EQ(events.Next(), std::nullopt);
    Raise(EventType::Created, "/late");
    EXPECT_EQ(server->Statistics().notices, 3u);
}

TEST_F(NoticeStreams, WhatWasMissedIsReplayedOrReset)
{
    Start([](auto& options) { options.noticeHistory = 3; });
    std::string first;
    {
        EventReader events = Listen();
        Raise(EventType::Created, "/a");
        first = events.Next()->id;
    }
    EXPECT_TRUE(Streams(0));
    Raise(EventType::Created, "/b");
    EventReader events = Listen("/notifications", {{"Last-Event-ID", first}});
    for (const char* path : {"/c", "/d", "/e"}) {
        Raise(EventType::Created, path);
    }
    EXPECT_EQ(events.Next()->Json()["path"], "/b");
    EXPECT_EQ(events.Next()->Json()["path"], "/c");
    EXPECT_EQ(Listen("/notifications", {{"Last-Event-ID", first}}).Next()->event, "reset");
}

TEST_F(NoticeStreams, QuietStreamsGetComments)
{
    Start([](auto& options) { options.noticeHeartbeat = 20ms; });
    EventReader events = Listen();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(events.NextComment());
    }
    Raise(EventType::Created, "/a");
    EXPECT_EQ(events.Next()->event, "created");
}

TEST_F(NoticeStreams, ASlowClientIsCutOffAndOthersGetEverything)
{
    Start([](auto& options) { options.noticeQueue = 100; });
    EventReader sluggish(server->Port(), "/notifications", {}, 2048);
    EventReader fast = Listen();
    const std::string path = "/" + std::string(1000, 'x');
    int raised = 0;
    while (server->Statistics().slowClients == 0 && raised < 100'000) {
        Raise(EventType::Created, path);
        ++raised;
        ASSERT_EQ(fast.Next()->event, "created");
    }
    EXPECT_EQ(server->Statistics().slowClients, 1u);
    EXPECT_TRUE(Streams(1));
    int received = 0;
    while (sluggish.Next()) {
        ++received;
    }
    EXPECT_LT(received, raised);
    EXPECT_TRUE(IsServing());
}

TEST_F(NoticeStreams, StreamsAreLimitedAndMakeRoomWhenTheyEnd)
{
    Start([](auto& options) { options.noticeStreams = 1; });
    std::optional<EventReader> events(Listen());
    EXPECT_TRUE(IsBusy(Connect().Get("/notifications")));
    events.reset();
    EXPECT_TRUE(Streams(0));
    Listen();
}

TEST_F(NoticeStreams, RaisedFromManyThreadsWhileStreamsComeAndGo)
{
    Start();
    EventReader events = Listen();
    constexpr int each = 200;
    std::vector<int> next(4, 0);
    VxTestSupport::OnThreads(6, [&](int thread) {
        for (int i = 0; thread < 4 && i < each; ++i) {
            Raise(EventType::Created, "/" + std::to_string(thread) + "/" + std::to_string(i));
        }
        for (int i = 0; thread == 4 && i < 20; ++i) {
            Listen();
        }
        for (int i = 0; thread == 5 && i < 4 * each; ++i) {
            const std::string path = events.Next()->Json()["path"];
            ASSERT_EQ(path.substr(3), std::to_string(next[static_cast<std::size_t>(path[1] - '0')]++));
        }
    });
}

}  // namespace
