// What every node storage does: the one on a folder and the one in memory that other tests rely on.

#include <atomic>

#include <gmock/gmock.h>

#include <VxTestSupport/StorageBackends.h>
#include <VxTestSupport/Streams.h>
#include <VxTestSupport/Threads.h>

#include "StorageFixture.h"

using namespace Nucleo::Statuses;
using VxTestSupport::PieceStream;

namespace
{

template <class Backend>
class StorageContractTest : public StorageFixture
{
protected:
    TesselLib::Storage& Storage() override { return *storage_; }

private:
    Backend backend_;
    const std::unique_ptr<TesselLib::Storage> storage_ = backend_.Open();
};

using Backends = testing::Types<VxTestSupport::OnFolder, VxTestSupport::InMemory>;
TYPED_TEST_SUITE(StorageContractTest, Backends);

TYPED_TEST(StorageContractTest, KeepsWhatWasUploadedLast)
{
    const std::string large(1'000'003, 'x');
    const std::string binary{"a\0b\xFF\n", 5};
    // Longer, shorter and empty, each over the one before.
    for (const std::string& content : {std::string("first"), large, binary, std::string(), std::string("last")}) {
        ASSERT_EQ(this->Upload("a", content), OK);
        EXPECT_EQ(this->Download("a"), content);
        EXPECT_EQ(this->Download("/user/a"), content);
        std::uint64_t size = 99;
        EXPECT_EQ(this->Storage().FileSize("/user/a", &size), OK);
        EXPECT_EQ(size, content.size());
    }
    ASSERT_EQ(this->Storage().Upload("/user/empty", nullptr, 0), OK);
    EXPECT_EQ(this->Download("empty"), "");
    EXPECT_EQ(this->Storage().Upload("a", nullptr, 1), ERROR_PARAMETER);
    EXPECT_EQ(this->Download("a"), "last");
}

TYPED_TEST(StorageContractTest, SaysWhatIsMissingAndListsWhatIsThereInByteOrder)
{
    std::uint64_t size = 99;
    EXPECT_FALSE(this->Storage().FileExists("a"));
    EXPECT_EQ(this->Storage().FileSize("a", &size), ERROR_NOT_FOUND);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(this->Download("a"), "ERROR_NOT_FOUND");
    EXPECT_EQ(this->Storage().Delete("a"), ERROR_NOT_FOUND);
    EXPECT_EQ(this->Storage().Move("a", "b"), ERROR_NOT_FOUND);
    std::vector<std::string> names{"left over"};
    EXPECT_EQ(this->Storage().List("/other", &names), ERROR_NOT_FOUND);
    EXPECT_THAT(names, testing::IsEmpty());

    for (const char* name : {"b", "\xC3\xA4", "B", "a.vpjob", "a", "a b", "\x01"}) {
        ASSERT_EQ(this->Upload(name, "1"), OK);
    }
    EXPECT_TRUE(this->Storage().FileExists("/user/a"));
    EXPECT_EQ(this->Storage().Delete("a"), OK);
    EXPECT_FALSE(this->Storage().FileExists("a"));
    EXPECT_THAT(this->List(), testing::ElementsAre("\x01", "B", "a b", "a.vpjob", "b", "\xC3\xA4"));
}

TYPED_TEST(StorageContractTest, MovesAFileOntoAnother)
{
    for (const char* target : {"b", "/user/b", "c", "c"}) {
        ASSERT_EQ(this->Upload("a", target), OK);
        EXPECT_EQ(this->Storage().Move("/user/a", target), OK);
        EXPECT_EQ(this->Download(target), target);
    }
    EXPECT_EQ(this->Storage().Move("b", "b"), OK);
    EXPECT_THAT(this->List(), testing::ElementsAre("b", "c"));
    EXPECT_EQ(this->Download("b"), "/user/b");
}

TYPED_TEST(StorageContractTest, TakesNamesOfOneComponentOnly)
{
    using namespace std::string_literals;
    const std::string longest = std::string(251, 'n') + "\xF0\x9F\x98\x80";
    for (const std::string& name :
         {"..."s, ".a"s, " "s, "a:b*?"s, "a\nb"s, "\xF4\x8F\xBF\xBF"s, "\xED\x9F\xBF"s, longest}) {
        EXPECT_TRUE(TesselLib::IsStorageName(name)) << name;
        EXPECT_EQ(this->Upload("/user/" + name, name), OK) << name;
        EXPECT_EQ(this->Download(name), name);
        EXPECT_EQ(this->Storage().Delete(name), OK) << name;
    }
    ASSERT_EQ(this->Upload("a", "old"), OK);
    const std::vector<std::string> refused{
        ""s, "."s, ".."s, "/"s, "/user"s, "/user/"s, "/user/.."s, "/user/."s, "a/b"s, "../a"s, "/a"s, "/user/../a"s,
        "/user//a"s, "/user/user/a"s, "user/a"s, "/etc/passwd"s, "a\0"s, "a\0b"s, "\0a"s, longest + "n",
        // Not UTF-8: a lone continuation, cut characters, overlong forms, a surrogate, beyond the last character.
        "\x80"s, "a\xC3"s, "\xE2\x82"s, "\xF0\x9F\x98"s, "\xC0\xAF"s, "\xE0\x80\xAF"s, "\xF0\x80\x80\xAF"s,
        "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "\xFF"s, "\xC3("s, "\xE2\x82("s};
    for (const std::string& name : refused) {
        std::uint64_t size = 0;
        EXPECT_EQ(TesselLib::StorageName(name), "") << name;
        EXPECT_EQ(this->Upload(name, "new"), ERROR_NAME) << name;
        EXPECT_EQ(this->Download(name), "ERROR_NAME") << name;
        EXPECT_EQ(this->Storage().FileSize(name, &size), ERROR_NAME) << name;
        EXPECT_EQ(this->Storage().Delete(name), ERROR_NAME) << name;
        EXPECT_EQ(this->Storage().Move(name, "b"), ERROR_NAME) << name;
        EXPECT_EQ(this->Storage().Move("a", name), ERROR_NAME) << name;
        EXPECT_FALSE(this->Storage().FileExists(name)) << name;
    }
    EXPECT_THAT(this->List(), testing::ElementsAre("a"));
    EXPECT_EQ(this->Download("a"), "old");
}

/// Says beforehand that it has no room.
class FullStream final : public Nucleo::Stream
{
public:
    Nucleo::Status Reserve(std::uint64_t size) override { return size == 600'000 ? ERROR_MEMORY : OK; }
    Nucleo::Status Write(const void* /*data*/, std::size_t /*size*/) override { return ERROR_CAPACITY; }
};

TYPED_TEST(StorageContractTest, AsksTheStreamForRoomAndReturnsItsFailure)
{
    ASSERT_EQ(this->Upload("a", std::string(600'000, 'x')), OK);
    FullStream full;
    EXPECT_EQ(this->Storage().Download("a", full), ERROR_MEMORY);
    PieceStream fails({}, PieceStream::whole, 599'999);
    EXPECT_EQ(this->Storage().Download("a", fails), ERROR_DISK_FULL);
}

TYPED_TEST(StorageContractTest, ReadersSeeOneVersionWhileOthersWrite)
{
    // Versions of different lengths, so that writing over the blocks of an old one would show at once.
    const auto version = [](int writer, int round) {
        return std::string(static_cast<std::size_t>(50'000 + 1000 * round), static_cast<char>('a' + writer));
    };
    ASSERT_EQ(this->Upload("a", version(0, 0)), OK);
    std::atomic<int> writing{2};
    const auto write = [&](int writer) {
        for (int round = 0; round < 20; ++round) {
            EXPECT_EQ(this->Upload("a", version(writer, round)), OK);
        }
        --writing;
    };
    const auto read = [&] {
        do {
            const std::string content = this->Download("a");
            ASSERT_GE(content.size(), 50'000u) << content;
            EXPECT_EQ(content.find_first_not_of(content.front()), std::string::npos);
        } while (writing != 0);
    };
    VxTestSupport::OnThreads(4, [&](int thread) { thread < 2 ? write(thread) : read(); });
    EXPECT_THAT(this->List(), testing::ElementsAre("a"));
}

}  // namespace
