// What router and server do when the process is out of memory for a moment.

#include <atomic>
#include <new>

#include <VxTestSupport/ReplacedHeap.h>

#include "TestResources.h"

namespace
{

/// Allocations of this thread until one fails; negative: none does.
thread_local int untilFailure = -1;

/// While set, every allocation fails but those of the thread that set it.
std::atomic<bool> isShort{false};
thread_local bool isSpared = false;
std::atomic<int> failures{0};

}  // namespace

void VxTestSupport::OnAllocation()
{
    const bool fails = untilFailure >= 0 && untilFailure-- == 0;
    if (fails || (isShort && !isSpared)) {
        ++failures;
        throw std::bad_alloc();
    }
}

namespace
{

using namespace VxRestTests;
using VxRest::ResourceRouter;

/// Whether `call` failed for want of memory, its allocation number `failing` being refused.
template <class Call>
bool Fails(int failing, const Call& call)
{
    untilFailure = failing;
    try {
        call();
    } catch (const std::bad_alloc&) {
        return true;
    }
    untilFailure = -1;
    return false;
}

TEST(RouterShortOfMemory, RegistersAndDeregistersWhollyOrNotAtAll)
{
    const std::string path = "/a/path/that/is/longer/than/what/a/string/holds/without/memory";
    for (const bool registering : {true, false}) {
        bool failed = true;
        for (int failing = 0; failed; ++failing) {
            ASSERT_LT(failing, 200);
            SCOPED_TRACE(failing);
            ResourceRouter router;
            FakeResource resource = FakeResource::WithDocument(1);
            router.Register("/other", resource);
            if (!registering) {
                router.Register(path, resource);
                router.Serialize(path);
            }
            failed =
                Fails(failing, [&] { registering ? router.Register(path, resource) : router.Deregister(path, true); });
            const bool there = failed != registering;
            EXPECT_EQ(router.Patterns().size(), there ? 2u : 1u);
            ResponseInfo response;
            EXPECT_EQ(StatusThrown([&] { router.Find(path).Document({}, response); }),
                      there ? Nucleo::OK : Nucleo::ERROR_NOT_FOUND);
            EXPECT_EQ(router.Find("/other").Document({}, response), 1);
        }
    }
}

class ServerShortOfMemory : public ServerFixture
{
protected:
    /// Lasts until the server has missed some memory.
    void BeShort()
    {
        isSpared = true;
        const int before = failures;
        isShort = true;
        EXPECT_TRUE(Eventually([&] { return failures >= before + 3; }));
        isShort = false;
    }

    /// Opens the gate once memory is short.
    std::thread OpenOnceShort()
    {
        return std::thread([this] {
            isSpared = true;
            EXPECT_TRUE(Eventually([] { return isShort.load(); }));
            gate.open.Set();
        });
    }
};

TEST_F(ServerShortOfMemory, GoesOnOnceThereIsSomeAgain)
{
    Start([](auto& options) {
        options.idleDeadline = 300ms;
        options.noticeHeartbeat = 40ms;  // Sweeps every 10 ms.
    });
    HttpClient idle = Connect();
    EXPECT_TRUE(Eventually([&] { return server->Statistics().connections == 1; }));
    BeShort();  // Only the sweeps miss it, one after the other.
    HttpClient working = BeginSlow();
    std::thread opener = OpenOnceShort();
    BeShort();
    opener.join();
    // Whether there was an answer depends on what was missed; the connection must not be forgotten.
    working.ReceiveAll();
    EXPECT_EQ(idle.ReceiveAll(), "");
    EXPECT_TRUE(Eventually([&] { return server->Statistics().connections == 0; }));
    EXPECT_TRUE(IsServing());
}

TEST_F(ServerShortOfMemory, StopsWithoutMemory)
{
    Start([](auto& options) { options.workers = 1; });
    HttpClient running = BeginSlow();
    HttpClient waiting = Begin(Head("POST /slow") + "\r\n");
    EXPECT_TRUE(Eventually([&] { return server->Statistics().requests == 2; }));
    std::thread opener = OpenOnceShort();
    isSpared = false;
    isShort = true;
    server->Stop(20ms);
    isShort = false;
    opener.join();
    running.ReceiveAll();
    waiting.ReceiveAll();
}

}  // namespace
