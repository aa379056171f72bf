#include <atomic>
#include <deque>
#include <optional>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include <VxTestSupport/Threads.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using VxRest::Operation;
using VxRest::RequestInfo;
using VxRest::ResourceRouter;
using VxRest::ResponseInfo;

class Router : public ::testing::Test
{
protected:
    json Read(const std::string& path)
    {
        const ResourceRouter::Match match = router.Find(path);
        ResponseInfo response;
        return match.Document(RequestInfo(path, match.Keys()), response);
    }

    /// A command that waits at `gate` and then does this.
    FakeResource Waiting(std::function<json()> then)
    {
        return FakeResource::WithCommand([this, then = std::move(then)](const auto&, const auto&) {
            gate.Pass();
            return then();
        });
    }

    /// Calls a waiting command on a thread of its own; it is inside when this returns.
    std::thread Call(const std::string& path)
    {
        std::thread caller([this, path] { result = router.Find(path).Invoke({}, nullptr); });
        EXPECT_TRUE(gate.entered.Await());
        return caller;
    }

    ResourceRouter router;
    Gate gate;
    json result;
};

TEST_F(Router, FindsTheMostExactPattern)
{
    std::deque<FakeResource> resources;
    for (const char* pattern : {"/", "/jobs", "/jobs/files/:jobFile", "/jobs/files/:jobFile/data",
                                "/jobs/files/special", "/a/:x", "/a/:x/b/:y", "/a/fixed/b/c", "/only/:key", "/only"}) {
        router.Register(pattern, resources.emplace_back(FakeResource::WithDocument(pattern)));
    }
    const std::tuple<const char*, const char*, RequestInfo::KeyMap> cases[] = {
        {"/", "/", {}},
        {"/jobs/", "/jobs", {}},
        {"//jobs//files/", "/jobs/files/:jobFile", {}},  // the parent of a key belongs to the same resource
        {"/jobs/files/%2a", "/jobs/files/:jobFile", {{"jobFile", "*"}}},
        {"/jobs/files/a%2Fb+c%00", "/jobs/files/:jobFile", {{"jobFile", std::string("a/b+c\0", 6)}}},
        {"/j%6Fbs/files/special", "/jobs/files/special", {}},  // literal before key
        {"/jobs/files/special/data", "/jobs/files/:jobFile/data", {{"jobFile", "special"}}},
        {"/a/fixed", "/a/:x", {{"x", "fixed"}}},
        {"/a/1/b", "/a/:x/b/:y", {{"x", "1"}}},
        {"/a/fixed/b/2", "/a/:x/b/:y", {{"x", "fixed"}, {"y", "2"}}},
        {"/only", "/only", {}},  // a pattern of its own before the parent of a key
    };
    for (const auto& [path, pattern, keys] : cases) {
        EXPECT_EQ(Read(path), pattern) << path;
        EXPECT_EQ(router.Find(path).Keys(), keys) << path;
    }
    for (const char* missing :
         {"/job", "/jobs2", "/jobs/files/a/b", "/jobs/commands", "/a/1/c", "/jobs/files/a/data/x"}) {
        EXPECT_EQ(StatusThrown([&] { router.Find(missing); }), Nucleo::ERROR_NOT_FOUND) << missing;
    }
    EXPECT_EQ(StatusThrown([&] { router.Find("/jobs/files/%4"); }), Nucleo::ERROR_PARAMETER);
}

TEST_F(Router, RefusesPatternsThatAreTakenOrMalformed)
{
    FakeResource resource;
    router.Register("/a/:x", resource);
    for (const char* taken : {"/a/:x", "/a/:other", "//a/:x/"}) {
        EXPECT_EQ(StatusThrown([&] { router.Register(taken, resource); }), Nucleo::ERROR_ALREADY_EXISTS) << taken;
    }
    for (const char* malformed : {"", "a", "/a/:", "/:x/b/:x"}) {
        EXPECT_EQ(StatusThrown([&] { router.Register(malformed, resource); }), Nucleo::ERROR_PARAMETER) << malformed;
    }
    EXPECT_EQ(StatusThrown([&] { router.Serialize("/a/:x"); }), Nucleo::ERROR_PARAMETER);
    router.Register("/a/b", resource);
    EXPECT_EQ(router.Patterns(), (std::vector<std::string>{"/a/:x", "/a/b"}));
}

TEST_F(Router, OperationsThatDoNotFitThePathAreRefused)
{
    FakeResource files = FakeResource::WithDocument("files");
    files.create = [](const auto&, const auto&) { return VxRest::CreateResult{}; };
    files.remove = [](const auto&) {};
    FakeResource command = FakeResource::WithCommand([](const auto&, const json& args) { return args; });
    router.Register("/files/:file", files);
    router.Register("/command", command);
    EXPECT_EQ(StatusThrown([&] { router.Find("/files/*").Create({}, json::object()); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_EQ(StatusThrown([&] { router.Find("/files").Delete({}); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_EQ(StatusThrown([&] { router.Find("/files").Invoke({}, nullptr); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_EQ(StatusThrown([&] { Read("/command"); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_THROW(RequestInfo("/files", {}).FindKey("file"), std::out_of_range);
}

TEST_F(Router, DeregisterTakesThePatternOrTheWholeSubTree)
{
    FakeResource resource;
    for (const char* pattern : {"/jobs", "/jobs/files/:f", "/jobs2", "/jobs/commands/load"}) {
        router.Register(pattern, resource);
    }
    router.Deregister("/unknown", true);
    router.Deregister("/jobs", false);
    EXPECT_EQ(router.Patterns(), (std::vector<std::string>{"/jobs/commands/load", "/jobs/files/:f", "/jobs2"}));
    router.Deregister("/jobs/", true);
    EXPECT_EQ(router.Patterns(), std::vector<std::string>{"/jobs2"});
    router.Deregister("/", true);
    EXPECT_TRUE(router.Patterns().empty());
}

TEST_F(Router, DeregisterWaitsForARunningCall)
{
    std::atomic<bool> returned{false};
    FakeResource slow = Waiting([&] { return returned = true; });
    router.Register("/slow", slow);
    std::thread caller = Call("/slow");
    Signal done;
    std::thread remover([&] {
        router.Deregister("/slow", false);
        EXPECT_TRUE(returned);
        done.Set();
    });
    while (!router.Patterns().empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(StatusThrown([&] { router.Find("/slow"); }), Nucleo::ERROR_NOT_FOUND);
    EXPECT_FALSE(done.Await(std::chrono::milliseconds(20)));
    gate.open.Set();
    remover.join();
    caller.join();
}

TEST_F(Router, AResourceMayDeregisterItselfWhileOthersWaitForTheirTurn)
{
    router.Serialize("/tree");
    FakeResource leaving = Waiting([this] {
        router.Deregister("/tree", true);
        return "left";
    });
    FakeResource other = FakeResource::WithDocument(1);
    router.Register("/tree", leaving);
    router.Register("/tree/other", other);
    std::thread caller = Call("/tree");

    Nucleo::Status waited = Nucleo::OK;
    Signal found;
    std::thread waiting([&] {
        const ResourceRouter::Match match = router.Find("/tree/other");
        found.Set();
        ResponseInfo response;
        waited = StatusThrown([&] { match.Document({}, response); });
    });
    ASSERT_TRUE(found.Await());
    gate.open.Set();
    waiting.join();
    EXPECT_EQ(waited, Nucleo::ERROR_NOT_FOUND);
    // Another owner that deregisters now must not return before the call that removed the resource has ended.
    router.Deregister("/tree", true);
    caller.join();
    EXPECT_EQ(result, "left");
}

TEST_F(Router, SerialisedSubTreeRunsOneRequestAtATime)
{
    router.Serialize("/tree");
    router.Serialize("/tree/inner");  // lies within the first, which stays the one that counts
    FakeResource slow = Waiting([this] { return Read("/tree/inner/doc"); });  // its own sub-tree: re-entrant
    FakeResource document = FakeResource::WithDocument("doc");
    FakeResource outside = FakeResource::WithDocument("outside");
    router.Register("/tree/slow", slow);
    router.Register("/tree/inner/doc", document);
    router.Register("/treetop", outside);
    std::thread caller = Call("/tree/slow");

    EXPECT_EQ(Read("/treetop"), "outside");
    ResponseInfo response;
    json tried;
    EXPECT_FALSE(router.Find("/tree/inner/doc").TryDocument({}, response, tried));
    EXPECT_TRUE(router.Find("/treetop").TryDocument({}, response, tried));

    Signal served;
    std::thread second([&] {
        Read("/%74ree/inner/doc");  // whatever the spelling
        served.Set();
    });
    EXPECT_FALSE(served.Await(std::chrono::milliseconds(20)));
    gate.open.Set();
    caller.join();
    second.join();
    EXPECT_EQ(result, "doc");
    EXPECT_TRUE(router.Find("/tree/inner/doc").TryDocument({}, response, tried));
}

TEST_F(Router, SerialisedCallsNeverOverlap)
{
    router.Serialize("/tree");
    int unguarded = 0;  // a race here is what the guard prevents
    FakeResource counter = FakeResource::WithCommand([&](const auto&, const auto&) {
        const int before = unguarded;
        std::this_thread::yield();
        unguarded = before + 1;
        return nullptr;
    });
    router.Register("/tree/:any", counter);
    VxTestSupport::OnThreads(4, [this](int thread) {
        const std::string path = "/tree/" + std::to_string(thread);
        for (int i = 0; i < 200; ++i) {
            router.Find(path).Invoke({}, nullptr);
        }
    });
    EXPECT_EQ(unguarded, 800);
}

TEST(RouterNotices, ComeFromWhatIsRegistered)
{
    std::vector<std::string> seen;
    std::optional<ResourceRouter> router(std::in_place);
    const Vx::Subscription subscription = router->NotificationEvent().Subscribe(
        [&](VxRest::EventType, const std::string& path) { seen.push_back(path); });
    FakeResource first;
    FakeResource second;
    router->Register("/first", first);
    router->Register("/second", second);
    EXPECT_EQ(StatusThrown([&] { router->Register("/first", second); }), Nucleo::ERROR_ALREADY_EXISTS);
    FakeResource copy = first;
    const auto raise = [](FakeResource& from, const char* path) {
        from.NotificationEvent().Raise(VxRest::EventType::Created, path);
    };
    raise(first, "/first/a");
    raise(second, "/second");
    raise(copy, "/copy");
    EXPECT_EQ(seen, (std::vector<std::string>{"/first/a", "/second"}));
    router->Deregister("/first", false);
    raise(first, "/first");
    router.reset();
    raise(second, "/second");
    EXPECT_EQ(seen.size(), 2u);
}

TEST(RouterNotices, AreOverForEveryoneWhoDeregistersAtTheSameTime)
{
    ResourceRouter router;
    std::atomic<int> seen{0};
    const Vx::Subscription subscription =
        router.NotificationEvent().Subscribe([&](VxRest::EventType, const std::string&) { ++seen; });
    for (int round = 0; round < 200; ++round) {
        FakeResource resource = FakeResource::WithDocument(round);
        router.Register("/leaving", resource);
        std::optional<ResourceRouter::Match> held(router.Find("/leaving"));
        std::atomic<int> ready{0};
        VxTestSupport::OnThreads(3, [&](int thread) {
            for (++ready; ready < 3;) {
                std::this_thread::yield();
            }
            if (thread == 0) {
                held.reset();
                return;
            }
            router.Deregister("/leaving", false);
            resource.NotificationEvent().Raise(VxRest::EventType::Created, "/leaving");
        });
    }
    EXPECT_EQ(seen, 0);
}

}  // namespace
