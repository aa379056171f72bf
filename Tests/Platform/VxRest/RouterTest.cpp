#include <atomic>
#include <deque>
#include <optional>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include <VxRest/Path.h>
#include <VxTestSupport/Threads.h>

#include "TestResources.h"

namespace
{

using namespace VxRestTests;
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

TEST_F(Router, DeregisterWaitsForRunningCallsAndEndsTheNoticesForEveryoneWhoCallsIt)
{
    std::atomic<int> noticed{0};
    const Vx::Subscription subscription =
        router.NotificationEvent().Subscribe([&](VxRest::EventType, const std::string&) { ++noticed; });
    for (int round = 0; round < 100; ++round) {
        Signal entered;
        std::atomic<bool> returned{false};
        FakeResource leaving = FakeResource::WithCommand([&](const auto&, const auto&) {
            entered.Set();
            EXPECT_TRUE(VxTestSupport::Eventually([&] { return router.Patterns().empty(); }));
            EXPECT_EQ(StatusThrown([&] { router.Find("/leaving"); }), Nucleo::ERROR_NOT_FOUND);
            return returned = true;
        });
        router.Register("/leaving", leaving);
        VxTestSupport::OnThreads(3, [&](int thread) {
            if (thread == 0) {
                router.Find("/leaving").Invoke({}, nullptr);
                return;
            }
            EXPECT_TRUE(entered.Await());
            router.Deregister("/leaving", false);
            EXPECT_TRUE(returned);
            leaving.NotificationEvent().Raise(VxRest::EventType::Created, "/leaving");
        });
    }
    EXPECT_EQ(noticed, 0);
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
    for (const char* spelling : {"/tree/inner/doc", "/%74ree/inner/doc"}) {
        EXPECT_FALSE(router.Find(spelling).TryDocument({}, response, tried)) << spelling;
    }
    EXPECT_TRUE(router.Find("/treetop").TryDocument({}, response, tried));

    gate.open.Set();
    caller.join();
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

namespace Path = VxRest::Path;

TEST(Path, FormatPutsEncodedValuesInThePlaceOfKeys)
{
    EXPECT_EQ(Path::Format("/jobs/files/:jobFile/data", "a b/c%"), "/jobs/files/a%20b%2Fc%25/data");
    EXPECT_EQ(Path::Format("/:a/x/:b", std::vector<std::string_view>{"1", "2"}), "/1/x/2");
    EXPECT_EQ(Path::Format("/:a/:b", "1"), "/1/:b");
    EXPECT_EQ(Path::Format("/x/a:b", "1"), "/x/a:b");
}

TEST(Path, EveryByteComesBack)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const std::string encoded = Path::Encode(all);
    EXPECT_EQ(Path::Decode(encoded), all);
    EXPECT_EQ(encoded.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~%"),
              std::string::npos);
    EXPECT_EQ(Path::Decode("a+b%2a%2A"), "a+b**");
    for (const char* broken : {"%", "a%2", "%zz", "%2g", "%%20"}) {
        EXPECT_EQ(Path::Decode(broken), std::nullopt) << broken;
    }
}

TEST(Path, IsWithinComparesWholeDecodedSegments)
{
    const std::pair<const char*, const char*> within[] = {
        {"", "/jobs"}, {"/", "/"}, {"/jobs/", "//jobs//files"}, {"/files/a b", "/files/a%20b/data"}};
    for (const auto& [root, path] : within) {
        EXPECT_TRUE(Path::IsWithin(root, path)) << root << " " << path;
    }
    EXPECT_FALSE(Path::IsWithin("/jobs", "/jobs2"));
    EXPECT_FALSE(Path::IsWithin("/jobs/files", "/jobs"));
    EXPECT_EQ(Path::Segments("//a/%2F//b/"), (std::vector<std::string_view>{"a", "%2F", "b"}));
}

}  // namespace
