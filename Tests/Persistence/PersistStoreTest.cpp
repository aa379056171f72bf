#include <gmock/gmock.h>

#include <Tests/Persistence/FakeHandler.h>
#include <VxCommon/Persistence/PersistStore.h>
#include <VxCommon/Persistence/ScopedPersistStore.h>

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
    EXPECT_EQ(PersistStore::SubPathLevel("a/", "//a/b//c"), 2U);
    EXPECT_EQ(PersistStore::SubPathLevel("/a", "/ab"), 0U);
}

TEST(ScopedPersistStoreTest, KeysAreCutBehindTheFirstCharacterThatOccursInThePrefix)
{
    PersistStore base;
    for (const char* path : {"/Laser2/x", "ab/c"}) {  // All of them up to it, when it comes late.
        base.Write(path, nullptr, 0);
    }
    EXPECT_THAT(ScopedPersistStore(base, "").List("", true), ElementsAre("Laser2/x", "c"));
}

}  // namespace
}  // namespace VxCommon
