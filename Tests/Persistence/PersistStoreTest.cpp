#include <random>

#include <gmock/gmock.h>

#include <Tests/Persistence/FakeHandler.h>
#include <VxCommon/Persistence/PersistStore.h>
#include <VxCommon/Persistence/ScopedPersistStore.h>
#include <VxTestSupport/StoreModel.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace VxCommon
{
namespace
{

TEST(PersistStoreTest, ItemsAreCreatedReplacedAndDeleted)
{
    PersistStore store;
    const VxTestSupport::ScopedLogCapture log;
    Bytes bytes{0, 1, 255};
    store.Write("/100%s", bytes.data(), bytes.size());
    bytes[0] = 9;  // The store holds a copy.
    EXPECT_EQ(store.Read("/100%s"), (Bytes{0, 1, 255}));
    EXPECT_THAT(log.Texts(), IsEmpty());
    store.Write("/100%s", nullptr, 0);
    EXPECT_THAT(store.Read("/100%s"), IsEmpty());
    EXPECT_THAT(log.Texts("Persistence/PersistStore"),
                ElementsAre("I Persisted storage item '/100%s' already existed, overwriting..."));
    store.Delete("/100%s");
    store.Delete("/100%s");
    EXPECT_EQ(PlaceThrown([&] { store.Read("/100%s"); }), "-999 Persistence/PersistStore VxCommon::PersistStore::Read");
}

TEST(PersistStoreTest, PathHelpers)
{
    EXPECT_THAT(PersistStore::ParsePath("/a//b/"), ElementsAre("a", "b"));
    EXPECT_THAT(PersistStore::ParsePath("/"), IsEmpty());
    EXPECT_THAT(PersistStore::Split("/a/b"), Pair("/a", "b"));
    EXPECT_THAT(PersistStore::Split("/a/"), Pair("/a", ""));
    EXPECT_THAT(PersistStore::Split("/a"), Pair("", "a"));
    EXPECT_THAT(PersistStore::Split("name"), Pair("name", "name"));
    EXPECT_THAT(PersistStore::Split(""), Pair("", ""));
    const struct
    {
        const char* base;
        const char* path;
        std::uint64_t level;
    } cases[] = {{"/a", "/a", 0},  {"/a", "a/b", 1},      {"a/", "//a/b//c", 2}, {"", "/a/b/c", 3}, {"", "", 0},
                 {"/a", "/ab", 0}, {"/a/b/c", "/a/b", 0}, {"/a/x", "/a/b/c", 0}, {"/a", "", 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(PersistStore::SubPathLevel(c.base, c.path), c.level) << c.base << " " << c.path;
    }
}

TEST(ScopedPersistStoreTest, KeysAreCutBehindTheFirstCharacterThatOccursInThePrefix)
{
    PersistStore base;
    for (const char* path : {"/Laser2/x", "ab/c"}) {  // All of them up to it, when it comes late.
        base.Write(path, nullptr, 0);
    }
    EXPECT_THAT(ScopedPersistStore(base, "").List("", true), ElementsAre("Laser2/x", "c"));
}

TEST(PersistStoreTest, AnswersLikeAMapUnderRandomOperations)
{
    std::mt19937 random(20240607);
    for (int round = 0; round < 100; ++round) {
        std::vector<std::uint8_t> operations(600);
        for (std::uint8_t& byte : operations) {
            byte = static_cast<std::uint8_t>(random());
        }
        ASSERT_EQ(VxTestSupport::StoreModel(operations.data(), operations.size()).Run(), "") << "round " << round;
    }
}

}  // namespace
}  // namespace VxCommon
