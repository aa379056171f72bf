#include <numeric>

#include <TesselLib/Zstd.h>
#include <Tests/Persistence/StorageFixture.h>
#include <VxCommon/Persistence/Job.h>
#include <VxCommon/Persistence/Workspace.h>
#include <VxCommon/VcLib/Status.h>
#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/RawTar.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>

using testing::IsEmpty;
using VxTestSupport::RawTar;
using VxTestSupport::tarEnd;

namespace VxCommon
{
namespace
{

Map TarItems(const std::string& tar)
{
    return Items(ToBytes(tar));
}

TEST(ArchiveTest, AnImageHoldsOneRegularEntryAKeyInListOrder)
{
    const std::string data(513, 'a');
    EXPECT_EQ(Image({{"/b/x", "B"}, {"/a", data}, {"/a/empty", ""}}),
              ToBytes(RawTar("a", '0', data) + RawTar("a/empty", '0', "") + RawTar("b/x", '0', "B") + tarEnd));
    EXPECT_EQ(Image({}), ToBytes(tarEnd));
    EXPECT_THAT(TarItems(tarEnd), IsEmpty());
    EXPECT_THAT(TarItems(""), IsEmpty());
}

TEST(ArchiveTest, EveryKeyThatBeginsWithASlashComesBack)
{
    Map items{
        {"//two", "2"}, {"/a//b", "x"}, {"/ space ", "s"}, {"/\xff\x01", "bytes"}, {"/x.tar", std::string("\0", 1)}};
    for (const std::size_t length : {99U, 100U, 101U, 102U, 510U, 511U, 512U}) {
        items["/" + std::string(length - 1, 'k')] = std::to_string(length);
    }
    EXPECT_EQ(Items(Image(items)), items);
    // Others get one, and a key without a segment is not listed.
    EXPECT_EQ(Items(Image({{"a/b", "x"}, {"/", "y"}})), (Map{{"/a/b", "x"}}));
    // What could not come back is left out; with a reset it stays in the store.
    const Map kept{{"/a", "1"}, {"/" + std::string(511, 'k'), "2"}};
    const Map unkept{{"/a/", "x"}, {"/" + std::string(512, 'k'), "y"}, {std::string("/a\0b", 4), "z"}};
    Map all = kept;
    all.insert(unkept.begin(), unkept.end());
    PersistStore store = StoreOf(all);
    EXPECT_EQ(PersistUtils::ArchiveStore(store), Image(kept));
    EXPECT_EQ(Items(store), all);
    EXPECT_EQ(PersistUtils::ArchiveAndResetStore(store), Image(kept));
    EXPECT_EQ(Items(store), unkept);
}

TEST(ArchiveTest, ArchivingWithResetDeletesEachKeyBeforeItsEntryIsWritten)
{
    PersistStore store = StoreOf({{"/a", "1"}, {"/b", "2"}, {"/c", "3"}});
    VxTestSupport::FailingAllocator allocator(2);  // The second entry's stream.
    const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
    EXPECT_EQ(Thrown([&] { PersistUtils::ArchiveAndResetStore(store); }), "-996 PersistUtils::AddToTar");
    EXPECT_EQ(Items(store), (Map{{"/c", "3"}}));
}

TEST(ArchiveTest, OnlyRegularFilesAreTakenAndTheLastOneOfEqualNames)
{
    EXPECT_EQ(TarItems(RawTar("good", '0', "1") + RawTar("folder", '5', "dropped") + RawTar("link", '2', "") +
                       RawTar("after", '0', "2") + tarEnd),
              (Map{{"/good", "1"}, {"/after", "2"}}));
    EXPECT_EQ(TarItems(RawTar("a", '0', "1") + RawTar("/a", '0', "3") + RawTar("a", '0', "2")),
              (Map{{"/a", "2"}, {"//a", "3"}}));
}

TEST(ArchiveTest, ACutWithinTheDataOfAnEntryIsRefused)
{
    const Bytes image = Image({{"/a", "first"}, {"/b", std::string(600, 'b')}});
    const std::string refused = "-989 PersistUtils::DearchiveStore";
    const std::pair<std::size_t, std::string> cuts[] = {{512, refused},  {516, refused},  {517, "/a"},   {1100, "/a"},
                                                        {1536, refused}, {2135, refused}, {2136, "/a/b"}};
    for (const auto& [length, expected] : cuts) {
        const Bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length));
        std::string keys;
        const std::string thrown = Thrown([&] {
            for (const auto& [key, value] : Items(cut)) {
                keys += key;
            }
        });
        EXPECT_EQ(thrown == "nothing" ? keys : thrown, expected) << length;
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
    const Bytes cut = PersistUtils::Decompress(packed.data(), packed.size() / 2);
    EXPECT_TRUE(cut.size() < bytes.size() && std::equal(cut.begin(), cut.end(), bytes.begin()));
    // How much time is spent on becoming small: a text that other levels pack otherwise.
    std::string text;
    for (unsigned i = 0; i < 20'000; ++i) {
        text += std::to_string(i * i) + " ";
    }
    for (const int level : {3, 10}) {
        Nucleo::Handle<Nucleo::MemoryStream> target;
        Nucleo::Handle<TesselLib::ZstdStream> zstd;
        Nucleo::MemoryStream_Construct(target.Receive());
        TesselLib::ZstdStream_Construct(zstd.Receive(), *target, TesselLib::ZstdMode::Write, level);
        zstd->Write(text.data(), text.size());
        zstd->Finish();
        EXPECT_EQ(PersistUtils::Compress(ToBytes(text).data(), text.size()) == target->TakeContent(), level == 10);
    }
}

TEST(PersistUtilsTest, WithoutMemoryEachOperationNamesItselfAndLeaksNothing)
{
    const Bytes image = Image({{"/a", "1"}});
    const Bytes packed = PersistUtils::Compress(image.data(), image.size());
    PersistStore store = StoreOf({{"/a", "1"}});
    const struct
    {
        std::vector<const char*> functions;  // In which the first, the second allocation fails.
        std::function<void()> call;
    } cases[] = {
        {{"ArchiveStore", "AddToTar"}, [&] { PersistUtils::ArchiveStore(store); }},
        {{"ArchiveAndResetStore"}, [&] { PersistUtils::ArchiveAndResetStore(store); }},
        {{"DearchiveStore"}, [&] { Dearchive(image); }},
        {{"Compress", "Compress"}, [&] { PersistUtils::Compress(image.data(), image.size()); }},
        {{"Decompress", "Decompress"}, [&] { PersistUtils::Decompress(packed.data(), packed.size()); }},
    };
    for (const auto& c : cases) {
        for (std::size_t failing = 0; failing < c.functions.size(); ++failing) {
            VxTestSupport::FailingAllocator allocator(static_cast<int>(failing));
            const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
            EXPECT_EQ(Thrown(c.call), std::string("-996 PersistUtils::") + c.functions[failing]);
            EXPECT_EQ(allocator.Live(), 0);
        }
    }
    EXPECT_TRUE(store.Exists("/a"));
}

TEST(GetArchiveTest, GivesTheEntriesOrTheFirstFailingStatus)
{
    const Bytes image = Image({{"/a", "1"}, {"/b", "22"}});
    const int failures = VxTestSupport::SweepFailures([&](VxTestSupport::FailingAllocator& allocator) {
        const VxTestSupport::ScopedDefaultAllocator replaced(allocator);
        auto* garbage = reinterpret_cast<TesselLib::Archive*>(std::uintptr_t{1});
        const Status status = GetArchive(image.data(), image.size(), &garbage);
        const Nucleo::Handle<TesselLib::Archive> archive(garbage);
        ASSERT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
        ASSERT_EQ(static_cast<bool>(archive), status == OK);
        if (archive) {
            EXPECT_EQ(allocator.Live(), 3);  // The archive and its two entries; the memory stream is gone.
            const std::uint8_t* data = nullptr;
            std::size_t size = 0;
            ASSERT_EQ(archive->Find("b", &data, &size), OK);
            EXPECT_EQ(std::string(data, data + size), "22");
        }
    });
    EXPECT_GE(failures, 2);
    TesselLib::Archive* archive = nullptr;
    EXPECT_EQ(GetArchive(image.data(), 512, &archive), ERROR_END);
    EXPECT_EQ(GetArchive(nullptr, 5, &archive), ERROR_PARAMETER);
    EXPECT_EQ(archive, nullptr);
}

TEST(RecordTest, LoadReplacesTheContentOfTheSameStore)
{
    Persist::Job record;
    IPersistStore& store = record.GetStore();
    const Map items{{"/a", "1"}, {"/b", ""}};
    const Bytes image = Image(items);
    store.Write("/old", nullptr, 0);
    record.Load(image.data(), image.size());
    EXPECT_EQ(&record.GetStore(), &store);
    EXPECT_EQ(Items(store), items);

    const Persist::Job copy(record);
    Persist::Job assigned;
    assigned = record;
    record.Clear();
    EXPECT_THAT(store.List("", true), IsEmpty());
    EXPECT_EQ(copy.Save(), image);
    EXPECT_EQ(Thrown([&] { assigned.Load(image.data(), 512); }), "-989 PersistUtils::DearchiveStore");
    EXPECT_EQ(assigned.Save(), image);

    // Only a job must hold something.
    EXPECT_EQ(PlaceThrown([&] { assigned.Load(nullptr, 0); }), "-984 Persistence/Job VxCommon::Persist::Job::Load");
    EXPECT_THAT(assigned.GetStore().List("", true), IsEmpty());
    Persist::Workspace().Load(nullptr, 0);
}

}  // namespace
}  // namespace VxCommon
