#include <atomic>
#include <deque>
#include <optional>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
using VxRest::Operation;
using VxRest::RequestInfo;
using VxRest::ResourceRouter;
using VxRest::ResponseInfo;

json Read(const ResourceRouter& router, const std::string& path)
{
    const ResourceRouter::Match match = router.Find(path);
    ResponseInfo response;
    return match.Document(RequestInfo(path, match.Keys()), response);
}

TEST(Router, FindsTheMostExactPattern)
{
    const char* const patterns[] = {"/",
                                    "/jobs",
                                    "/jobs/files/:jobFile",
                                    "/jobs/files/:jobFile/data",
                                    "/jobs/files/special",
                                    "/a/:x",
                                    "/a/:x/b/:y",
                                    "/a/fixed/b/c",
                                    "/only/:key",
                                    "/only"};
    ResourceRouter router;
    std::deque<FakeResource> resources;
    for (const char* pattern : patterns) {
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
        EXPECT_EQ(Read(router, path), pattern) << path;
        EXPECT_EQ(router.Find(path).Keys(), keys) << path;
    }
    for (const char* missing :
         {"/job", "/jobs2", "/jobs/files/a/b", "/jobs/commands", "/a/1/c", "/jobs/files/a/data/x"}) {
        EXPECT_EQ(StatusOfCall([&] { router.Find(missing); }), Nucleo::ERROR_NOT_FOUND) << missing;
    }
    EXPECT_EQ(StatusOfCall([&] { router.Find("/jobs/files/%4"); }), Nucleo::ERROR_PARAMETER);
}

TEST(Router, RefusesPatternsThatAreTakenOrMalformed)
{
    ResourceRouter router;
    FakeResource resource;
    router.Register("/a/:x", resource);
    for (const char* taken : {"/a/:x", "/a/:other", "//a/:x/"}) {
        EXPECT_EQ(StatusOfCall([&] { router.Register(taken, resource); }), Nucleo::ERROR_ALREADY_EXISTS) << taken;
    }
    for (const char* malformed : {"", "a", "/a/:", "/:x/b/:x"}) {
        EXPECT_EQ(StatusOfCall([&] { router.Register(malformed, resource); }), Nucleo::ERROR_PARAMETER) << malformed;
    }
    EXPECT_EQ(StatusOfCall([&] { router.Serialize("/a/:x"); }), Nucleo::ERROR_PARAMETER);
    router.Register("/a/b", resource);
    EXPECT_EQ(router.Patterns(), (std::vector<std::string>{"/a/:x", "/a/b"}));
}

TEST(Router, OperationsThatDoNotFitThePathAreRefused)
{
    ResourceRouter router;
    FakeResource files = FakeResource::WithDocument("files");
    files.create = [](const auto&, const auto&) { return VxRest::CreateResult{}; };
    files.remove = [](const auto&) {};
    FakeResource command = FakeResource::WithCommand([](const auto&, const json& args) { return args; });
    router.Register("/files/:file", files);
    router.Register("/command", command);
    const ResourceRouter::Match collection = router.Find("/files");
    const ResourceRouter::Match member = router.Find("/files/*");
    EXPECT_TRUE(collection.Allows(Operation::Create) && member.Allows(Operation::Delete));
    EXPECT_FALSE(collection.Allows(Operation::Delete) || member.Allows(Operation::Create));
    EXPECT_EQ(StatusOfCall([&] { member.Create({}, json::object()); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_EQ(StatusOfCall([&] { collection.Delete({}); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_EQ(StatusOfCall([&] { collection.Invoke({}, nullptr); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_EQ(StatusOfCall([&] { Read(router, "/command"); }), Nucleo::ERROR_UNSUPPORTED);
    EXPECT_THROW(RequestInfo("/files", {}).FindKey("file"), std::out_of_range);
}

TEST(Router, DeregisterTakesThePatternOrTheWholeSubTree)
{
    ResourceRouter router;
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

TEST(Router, DeregisterWaitsForARunningCall)
{
    ResourceRouter router;
    Gate gate;
    std::atomic<bool> returned{false};
    FakeResource slow = FakeResource::WithCommand([&](const auto&, const auto&) {
        gate.Pass();
        returned = true;
        return nullptr;
    });
    router.Register("/slow", slow);
    std::thread caller([&] { router.Find("/slow").Invoke({}, nullptr); });
    ASSERT_TRUE(gate.entered.Await());
    Signal done;
    std::thread remover([&] {
        router.Deregister("/slow", false);
        EXPECT_TRUE(returned);
        done.Set();
    });
    while (!router.Patterns().empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(StatusOfCall([&] { router.Find("/slow"); }), Nucleo::ERROR_NOT_FOUND);
    EXPECT_FALSE(done.Await(std::chrono::milliseconds(20)));
    gate.open.Set();
    remover.join();
    caller.join();
}

TEST(Router, AResourceMayDeregisterItselfWhileOthersWaitForTheirTurn)
{
    ResourceRouter router;
    router.Serialize("/tree");
    Gate gate;
    FakeResource leaving = FakeResource::WithCommand([&](const auto&, const auto&) {
        gate.Pass();
        router.Deregister("/tree", true);
        return "left";
    });
    FakeResource other = FakeResource::WithDocument(1);
    router.Register("/tree", leaving);
    router.Register("/tree/other", other);
    json result;
    std::thread caller([&] { result = router.Find("/tree").Invoke({}, nullptr); });
    ASSERT_TRUE(gate.entered.Await());

    Nucleo::Status waited = Nucleo::OK;
    Signal found;
    std::thread waiting([&] {
        const ResourceRouter::Match match = router.Find("/tree/other");
        found.Set();
        ResponseInfo response;
        waited = StatusOfCall([&] { match.Document({}, response); });
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

TEST(Router, SerialisedSubTreeRunsOneRequestAtATime)
{
    ResourceRouter router;
    router.Serialize("/tree");
    router.Serialize("/tree/inner");  // lies within the first, which stays the one that counts
    Gate gate;
    FakeResource slow = FakeResource::WithCommand([&](const auto&, const auto&) {
        gate.Pass();
        return Read(router, "/tree/inner/doc");  // re-entrant: a call may ask for its own sub-tree
    });
    FakeResource document = FakeResource::WithDocument("doc");
    FakeResource outside = FakeResource::WithDocument("outside");
    router.Register("/tree/slow", slow);
    router.Register("/tree/inner/doc", document);
    router.Register("/treetop", outside);
    json result;
    std::thread caller([&] { result = router.Find("/tree/slow").Invoke({}, nullptr); });
    ASSERT_TRUE(gate.entered.Await());

    EXPECT_EQ(Read(router, "/treetop"), "outside");
    ResponseInfo response;
    json tried;
    EXPECT_FALSE(router.Find("/tree/inner/doc").TryDocument({}, response, tried));
    EXPECT_TRUE(router.Find("/treetop").TryDocument({}, response, tried));

    Signal served;
    std::thread second([&] {
        Read(router, "/%74ree/inner/doc");  // whatever the spelling
        served.Set();
    });
    EXPECT_FALSE(served.Await(std::chrono::milliseconds(20)));
    gate.open.Set();
    caller.join();
    second.join();
    EXPECT_EQ(result, "doc");
    EXPECT_TRUE(router.Find("/tree/inner/doc").TryDocument({}, response, tried));
}

TEST(Router, SerialisedCallsNeverOverlap)
{
    ResourceRouter router;
    router.Serialize("/tree");
    int unguarded = 0;  // a race here is what the guard prevents
    FakeResource counter = FakeResource::WithCommand([&](const auto&, const auto&) {
        const int before = unguarded;
        std::this_thread::yield();
        unguarded = before + 1;
        return nullptr;
    });
    router.Register("/tree/:any", counter);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&router, path = "/tree/" + std::to_string(t)] {
            for (int i = 0; i < 200; ++i) {
                router.Find(path).Invoke({}, nullptr);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(unguarded, 800);
}

TEST(Router, GathersNoticesOfWhatIsRegistered)
{
    std::vector<std::string> seen;
    std::optional<ResourceRouter> router(std::in_place);
    const Vx::Subscription subscription =
        router->NotificationEvent().Subscribe([&](VxRest::EventType type, const std::string& path) {
            seen.push_back(std::to_string(static_cast<int>(type)) + path);
        });
    FakeResource first;
    FakeResource second;
    router->Register("/first", first);
    router->Register("/second", second);
    EXPECT_EQ(StatusOfCall([&] { router->Register("/first", second); }), Nucleo::ERROR_ALREADY_EXISTS);
    FakeResource copy = first;
    first.NotificationEvent().Raise(VxRest::EventType::Created, "/first/a");
    second.NotificationEvent().Raise(VxRest::EventType::Deleted, "/second");
    copy.NotificationEvent().Raise(VxRest::EventType::Updated, "/copy");
    EXPECT_EQ(seen, (std::vector<std::string>{"1/first/a", "3/second"}));
    router->Deregister("/first", false);
    first.NotificationEvent().Raise(VxRest::EventType::Updated, "/first");
    router.reset();
    second.NotificationEvent().Raise(VxRest::EventType::Updated, "/second");
    EXPECT_EQ(seen.size(), 2u);
}

}  // namespace
