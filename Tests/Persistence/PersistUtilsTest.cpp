#include <numeric>

#include <Tests/Persistence/StorageFixture.h>
#include <VxCommon/Persistence/Global.h>
#include <VxCommon/Persistence/Job.h>
#include <VxCommon/Persistence/Workspace.h>
#include <VxCommon/VcLib/Status.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>

using testing::IsEmpty;

namespace VxCommon
{
namespace
{

constexpr std::size_t blockSize = 512;

const Bytes endBlocks(2 * blockSize);

/// One tar entry of this type: its header, then the data in whole blocks. `claimed`: the size field, if it shall not be
/// true.
Bytes RawEntry(const std::string& name, char type, const std::string& data, const std::string& claimed = {})
{
    Bytes bytes = Image({{"/" + name, data}});
    bytes.resize(bytes.size() - endBlocks.size());
    const auto put = [&](std::size_t at, const std::string& text) {
        std::copy(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(124, claimed);
    put(148, "        ");
    bytes[156] = static_cast<unsigned char>(type);
    put(157, type == '1' || type == '2' ? "good" : "");
    char checksum[16];
    std::snprintf(checksum, sizeof checksum, "%06o", std::accumulate(bytes.begin(), bytes.begin() + blockSize, 0U));
    put(148, std::string(checksum, 7));
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST(ArchiveTest, AnImageHoldsOneRegularUstarEntryAKeyInListOrder)
{
    const Bytes image = Image({{"/b/x", "B"}, {"/a", std::string(513, 'a')}, {"/a/empty", ""}});
    const auto text = [&](std::size_t at) { return std::string(reinterpret_cast<const char*>(&image.at(at))); };
    ASSERT_EQ(image.size(), (3 + 2 + 1 + 2) * blockSize);
    const struct
    {
        std::size_t header;
        const char* name;
        std::size_t size;
    } entries[] = {{0, "a", 513}, {1536, "a/empty", 0}, {2048, "b/x", 1}};
    for (const auto& entry : entries) {
        EXPECT_EQ(text(entry.header), entry.name);
        EXPECT_EQ(image[entry.header + 156], '0');
        EXPECT_EQ(text(entry.header + 257).substr(0, 5), "ustar");
        EXPECT_EQ(std::stoul(text(entry.header + 124), nullptr, 8), entry.size);
    }
    EXPECT_EQ(text(blockSize), std::string(513, 'a'));
    EXPECT_TRUE(std::equal(endBlocks.begin(), endBlocks.end(), image.end() - 1024));
    EXPECT_EQ(Image({}), endBlocks);
    EXPECT_THAT(Items(Image({})), IsEmpty());
    EXPECT_THAT(Items(Dearchive({})), IsEmpty());
}

TEST(ArchiveTest, EveryKeyThatBeginsWithASlashComesBack)
{
    Map items{
        {"//two", "2"}, {"/a//b", "x"}, {"/ space ", "s"}, {"/\xff\x01", "bytes"}, {"/x.tar", std::string("\0", 1)}};
    for (const std::size_t length : {99U, 100U, 101U, 102U, 155U, 254U, 255U, 256U, 257U, 510U, 511U, 512U}) {
        std::string key = "/" + std::string(length - 1, 'k');
        items[key] = std::to_string(length);
        for (const std::size_t cut : {std::size_t{1}, length / 2}) {  // Where a ustar header could split it.
            key[cut] = '/';
            items[key] = std::to_string(length);
        }
    }
    EXPECT_EQ(Items(Image(items)), items);
    // Others get one, and a key without a segment is not listed.
    EXPECT_EQ(Items(Image({{"a/b", "x"}, {"/", "y"}})), (Map{{"/a/b", "x"}}));
    // What could not come back is refused instead of being changed.
    for (const std::string& key : {std::string("/a/"), "/" + std::string(512, 'k'), std::string("/a\0b", 4)}) {
        const Map refused{{key, ""}};
        EXPECT_EQ(Thrown([&] { Image(refused); }), "-997 PersistUtils::AddToTar");
    }
}

TEST(ArchiveTest, ArchivingWithResetDeletesEachKeyBeforeItsEntryIsWritten)
{
    const Map items{{"/a", "1"}, {"/b", "2"}, {"/c", "3"}};
    PersistStore store = StoreOf(items);
    EXPECT_EQ(PersistUtils::ArchiveAndResetStore(store), Image(items));
    EXPECT_THAT(store.List("", false), IsEmpty());

    store = StoreOf({{"/a", "1"}, {"/b/", "refused"}, {"/c", "3"}});
    EXPECT_EQ(Thrown([&] { PersistUtils::ArchiveAndResetStore(store); }), "-997 PersistUtils::AddToTar");
    EXPECT_EQ(Items(store), (Map{{"/c", "3"}}));
    store = StoreOf({{"/a", "1"}, {"/b/", "refused"}});
    EXPECT_THROW(PersistUtils::ArchiveStore(store), Vx::Exception);
    EXPECT_EQ(store.List("", false).size(), 2U);
}

TEST(ArchiveTest, OnlyRegularFilesAreTakenAndTheDataOfOthersIsDropped)
{
    for (const char type : std::string("123456")) {
        for (const char* data : {"", "dropped"}) {
            const Bytes image =
                RawEntry("good", '0', "1") + RawEntry("other", type, data) + RawEntry("after", '0', "2") + endBlocks;
            EXPECT_EQ(Items(image), (Map{{"/good", "1"}, {"/after", "2"}})) << type << data;
        }
    }
    // The last one of equal names wins; an archive may end without end blocks.
    EXPECT_EQ(Items(RawEntry("a", '0', "1") + RawEntry("/a", '0', "3") + RawEntry("a", '0', "2")),
              (Map{{"/a", "2"}, {"//a", "3"}}));
}

TEST(ArchiveTest, CutAtEveryLength)
{
    const Bytes image = Image({{"/a", "first"}, {"/b", std::string(600, 'b')}, {"/c", ""}});
    // Where each entry's header and data end, in order.
    const struct
    {
        const char* key;
        std::size_t header;
        std::size_t data;
    } entries[] = {{"/a", 512, 517}, {"/b", 1536, 2136}, {"/c", 3072, 3072}};
    for (std::size_t length = 0; length <= image.size(); ++length) {
        const Bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length));
        Journal complete;
        bool inside = false;
        for (const auto& entry : entries) {
            inside = inside || (length >= entry.header && length < entry.data);
            if (length >= entry.data) {
                complete.emplace_back(entry.key);
            }
        }
        if (inside) {
            ASSERT_EQ(Thrown([&] { Dearchive(cut); }), "-989 PersistUtils::DearchiveStore") << length;
        } else {
            ASSERT_EQ(Dearchive(cut).List("", true), complete) << length;
        }
    }
}

TEST(ArchiveTest, DamagedAtEveryByte)
{
    const Bytes image = Image({{"/a", "first"}, {"/b", "second"}});
    for (std::size_t at = 0; at < image.size(); ++at) {
        for (const int change : {0x01, 0x80, 0xff}) {
            Bytes damaged = image;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ change);
            Map items;
            const std::string thrown = Thrown([&] { items = Items(damaged); });
            if (thrown != "nothing") {
                ASSERT_THAT(thrown, testing::EndsWith(" PersistUtils::DearchiveStore"));
            } else if (at >= 2 * blockSize) {  // Behind the first entry.
                ASSERT_EQ(items["/a"], "first") << at;
            } else if (at >= blockSize) {  // In its data.
                ASSERT_EQ(items["/b"], "second") << at;
            }
        }
    }
}

TEST(ArchiveTest, AClaimedSizeIsNotBelieved)
{
    const Bytes good = RawEntry("good", '0', "1");
    for (const std::string& claimed :
         {std::string("77777777777"), std::string("\x80\0\0\0\x40\0\0\0\0\0\0\0", 12), std::string("00000001001")}) {
        EXPECT_EQ(Thrown([&] { Dearchive(good + RawEntry("large", '0', std::string(512, 'x'), claimed)); }),
                  "-989 PersistUtils::DearchiveStore");
    }
}

TEST(CompressTest, RoundTripsAndEndsAtDamageWithoutAnError)
{
    Bytes bytes(100'000);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    const Bytes packed = PersistUtils::Compress(bytes.data(), bytes.size());
    EXPECT_LT(packed.size(), bytes.size() / 10);
    EXPECT_EQ(PersistUtils::Decompress(packed.data(), packed.size()), bytes);
    EXPECT_EQ(PersistUtils::PassThru(bytes.data(), bytes.size()), bytes);
    const Bytes nothing = PersistUtils::Compress(nullptr, 0);
    EXPECT_THAT(nothing, testing::Not(IsEmpty()));
    EXPECT_THAT(PersistUtils::Decompress(nothing.data(), nothing.size()), IsEmpty());
    EXPECT_THAT(PersistUtils::Decompress(bytes.data(), bytes.size()), IsEmpty());
    EXPECT_THAT(PersistUtils::Decompress(nullptr, 0), IsEmpty());
    for (std::size_t length = 0; length < packed.size(); ++length) {
        const Bytes cut = PersistUtils::Decompress(packed.data(), length);
        ASSERT_LE(cut.size(), bytes.size());
        ASSERT_TRUE(std::equal(cut.begin(), cut.end(), bytes.begin())) << length;
    }
}

TEST(PersistUtilsTest, WithoutMemoryEachOperationNamesItselfAndLeaksNothing)
{
    const Bytes image = Image({{"/a", "1"}});
    const Bytes packed = PersistUtils::Compress(image.data(), image.size());
    PersistStore store = StoreOf({{"/a", "1"}});
    const struct
    {
        int failing;
        const char* function;
        std::function<void()> call;
    } cases[] = {
        {0, "ArchiveStore", [&] { PersistUtils::ArchiveStore(store); }},
        {1, "AddToTar", [&] { PersistUtils::ArchiveStore(store); }},
        {0, "ArchiveAndResetStore", [&] { PersistUtils::ArchiveAndResetStore(store); }},
        {0, "DearchiveStore", [&] { Dearchive(image); }},
        {0, "Compress", [&] { PersistUtils::Compress(image.data(), image.size()); }},
        {1, "Compress", [&] { PersistUtils::Compress(image.data(), image.size()); }},
        {0, "Decompress", [&] { PersistUtils::Decompress(packed.data(), packed.size()); }},
        {1, "Decompress", [&] { PersistUtils::Decompress(packed.data(), packed.size()); }},
    };
    for (const auto& c : cases) {
        VxTestSupport::FailingAllocator allocator(c.failing);
        const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
        EXPECT_EQ(Thrown(c.call), std::string("-996 PersistUtils::") + c.function);
        EXPECT_TRUE(allocator.Failed());
        EXPECT_EQ(allocator.Live(), 0);
    }
    EXPECT_TRUE(store.Exists("/a"));
}

TEST(GetArchiveTest, GivesTheEntriesOrTheFirstFailingStatus)
{
    const Bytes image = Image({{"/a", "1"}, {"/b", "22"}});
    for (int failing = 0;; ++failing) {
        VxTestSupport::FailingAllocator allocator(failing);
        const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
        auto* garbage = reinterpret_cast<TesselLib::Archive*>(std::uintptr_t{1});
        const Status status = GetArchive(image.data(), image.size(), &garbage);
        const Nucleo::Handle<TesselLib::Archive> archive(garbage);
        if (allocator.Failed()) {
            EXPECT_EQ(status, ERROR_MEMORY);
            EXPECT_FALSE(archive);
            EXPECT_EQ(allocator.Live(), 0) << failing;
            continue;
        }
        ASSERT_EQ(status, OK);
        EXPECT_EQ(allocator.Live(), 3);  // The archive and its two entries; the memory stream is gone.
        EXPECT_GE(failing, 2);
        ASSERT_EQ(archive->Count(), 2U);
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;
        ASSERT_EQ(archive->Find("b", &data, &size), OK);
        EXPECT_EQ(std::string(data, data + size), "22");
        break;
    }
    const Bytes noise(1024, 'x');
    TesselLib::Archive* archive = nullptr;
    EXPECT_EQ(GetArchive(noise.data(), noise.size(), &archive), ERROR_FORMAT);
    EXPECT_EQ(GetArchive(image.data(), 512, &archive), ERROR_END);
    EXPECT_EQ(GetArchive(nullptr, 5, &archive), ERROR_PARAMETER);
    EXPECT_EQ(archive, nullptr);
}

template <class T>
class RecordTest : public testing::Test
{};
using Records = testing::Types<Persist::Global, Persist::Workspace, Persist::Job>;
TYPED_TEST_SUITE(RecordTest, Records);

TYPED_TEST(RecordTest, LoadReplacesTheContentOfTheSameStore)
{
    TypeParam record;
    IPersistStore& store = record.GetStore();
    const Map items{{"/a", "1"}, {"/b", ""}};
    const Bytes image = Image(items);
    store.Write("/old", nullptr, 0);
    record.Load(image.data(), image.size());
    EXPECT_EQ(&record.GetStore(), &store);
    EXPECT_EQ(Items(store), items);
    EXPECT_EQ(record.Save(), image);

    const TypeParam copy(record);
    TypeParam assigned;
    assigned = record;
    record.Clear();
    EXPECT_THAT(store.List("", true), IsEmpty());
    EXPECT_EQ(copy.Save(), image);
    EXPECT_EQ(assigned.Save(), image);

    EXPECT_EQ(Thrown([&] { assigned.Load(image.data(), 512); }), "-989 PersistUtils::DearchiveStore");
    EXPECT_EQ(assigned.Save(), image);
}

TEST(RecordTest, OnlyAJobMustHoldSomething)
{
    Persist::Job job;
    job.GetStore().Write("/old", nullptr, 0);
    EXPECT_EQ(PlaceThrown([&] { job.Load(endBlocks.data(), endBlocks.size()); }),
              "-984 Persistence/Job VxCommon::Persist::Job::Load");
    EXPECT_THAT(job.GetStore().List("", true), IsEmpty());
    EXPECT_EQ(MessageThrown([&] { job.Load(nullptr, 0); }), "-984 Job contains no recognizable data.");
    Persist::Workspace().Load(nullptr, 0);
}

}  // namespace
}  // namespace VxCommon
