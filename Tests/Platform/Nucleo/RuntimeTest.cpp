#include <future>
#include <thread>

#include <gtest/gtest.h>

#include <Nucleo/Log.h>
#include <Nucleo/Object.h>
#include <Nucleo/Path.h>
#include <Nucleo/Status.h>
#include <Nucleo/Stream.h>
#include <VxTestSupport/Gate.h>

using namespace Nucleo::Statuses;

namespace
{

class Probe final : public Nucleo::Object
{
public:
    explicit Probe(int* destroyed) : destroyed_(destroyed)
    {
        if (destroyed == nullptr) {
            throw std::runtime_error("no counter");
        }
    }
    ~Probe() override { ++*destroyed_; }
    static const Nucleo::Type& StaticType() noexcept
    {
        static const Nucleo::Type type{"Probe", &Object::StaticType(), sizeof(Probe), &VRelease};
        return type;
    }
    static inline Nucleo::Status releaseStatus = OK;

private:
    static Nucleo::Status VRelease(Object*) { return releaseStatus; }
    int* destroyed_;
};

TEST(ObjectTest, EndsWithItsLastReferenceUnlessItsReleaseFails)
{
    int destroyed = 0;
    Probe* probe = nullptr;
    ASSERT_EQ(Nucleo::Construct(&probe, nullptr, &destroyed), OK);
    EXPECT_STREQ(probe->ObjectType().name, "Probe");
    probe->Share();
    EXPECT_EQ(probe->Release(), OK);
    EXPECT_EQ(destroyed, 0);

    Probe::releaseStatus = ERROR_IO;
    EXPECT_EQ(Nucleo::Destroy(probe), ERROR_IO);
    EXPECT_EQ(destroyed, 0);
    Probe::releaseStatus = OK;
    EXPECT_EQ(Nucleo::Destroy(probe), OK);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(Nucleo::Destroy(nullptr), OK);

    EXPECT_EQ(Nucleo::Construct(&probe, nullptr, static_cast<int*>(nullptr)), ERROR_STATE);
    EXPECT_EQ(probe, nullptr);
}

TEST(MemoryStreamTest, GrowsOrReadsABlockAndHandsItsContentOver)
{
    Nucleo::Handle<Nucleo::MemoryStream> stream;
    ASSERT_EQ(Nucleo::MemoryStream_Construct(stream.Receive()), OK);
    ASSERT_EQ(stream->Write("hello", 5), OK);
    char text[8] = {};
    std::size_t count = 0;
    EXPECT_EQ(stream->Read(text, 1, 3, &count), OK);
    EXPECT_EQ(std::string(text, count), "hel");
    EXPECT_EQ(stream->BytesLeft(), 2U);
    EXPECT_EQ(stream->Read(text, 3, 8, &count), ERROR_END);
    EXPECT_EQ(std::string(text, count), "lo");
    EXPECT_EQ(stream->Reserve(~std::uint64_t{0}), ERROR_MEMORY);
    EXPECT_EQ(stream->TakeContent().size(), 5U);
    EXPECT_EQ(stream->Length(), 0U);

    const std::uint8_t block[] = {1, 2, 3};
    EXPECT_EQ(stream->Attach(nullptr, 1), ERROR_PARAMETER);
    ASSERT_EQ(stream->Attach(block, sizeof block), OK);
    EXPECT_EQ(stream->Write("x", 1), ERROR_STATE);
    std::uint8_t read[3] = {};
    EXPECT_EQ(Nucleo::ReadExactly(*stream, read, 3), OK);
    EXPECT_EQ(read[2], 3);
    EXPECT_EQ(Nucleo::ReadExactly(*stream, read, 1), ERROR_END);
}

TEST(PathTest, CombinesAndCutsWithinTheRoomThatThereIs)
{
    char buffer[12];
    std::size_t length = 0;
    EXPECT_EQ(Nucleo::Path_Combine(buffer, sizeof buffer, "/user", "a.xml", &length), OK);
    EXPECT_STREQ(buffer, "/user/a.xml");
    EXPECT_EQ(Nucleo::Path_Combine(buffer, sizeof buffer, "/user", "aa.xml", &length), ERROR_CAPACITY);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(Nucleo::Path_Combine(buffer, sizeof buffer, "/", "a", &length), OK);
    EXPECT_STREQ(buffer, "/a");
    // A NUL is a byte of the name, so the length says more than the text.
    EXPECT_EQ(Nucleo::Path_Combine(buffer, sizeof buffer, "/user", std::string_view("a\0b", 3), &length), OK);
    EXPECT_EQ(length, 9U);

    for (const auto& [name, extension, stripped] :
         {std::tuple{"a.b.c", "c", "a.b"}, {".vpjob", "vpjob", ""}, {"none", "", "none"}, {"a.", "", "a"}}) {
        buffer[0] = '\0';
        const bool none = std::string_view(name) == "none";
        EXPECT_EQ(Nucleo::Path_Extension(buffer, sizeof buffer, name, &length), none ? ERROR_NOT_FOUND : OK) << name;
        EXPECT_STREQ(buffer, extension) << name;
        EXPECT_EQ(Nucleo::Path_StripExtension(buffer, sizeof buffer, name, &length), OK) << name;
        EXPECT_STREQ(buffer, stripped) << name;
    }
    EXPECT_EQ(Nucleo::Path_Extension(buffer, 4, "a.long", &length), ERROR_CAPACITY);
}

// A handler that removes itself, and one that is removed while another thread is inside it.
TEST(LogHandlerTest, RemovalWaitsForOtherThreadsButNotForItself)
{
    const Nucleo::LogArgs record{0, 0, 0, "source", "text"};

    struct SelfRemoving
    {
        int calls = 0;
        static Nucleo::Status Handle(void* receiver, const Nucleo::LogArgs&)
        {
            ++static_cast<SelfRemoving*>(receiver)->calls;
            return Nucleo::Log_RemoveHandler(&Handle, receiver);
        }
    } self;
    ASSERT_EQ(Nucleo::Log_AddHandler(&SelfRemoving::Handle, &self), OK);
    EXPECT_EQ(Nucleo::Log_AddHandler(&SelfRemoving::Handle, &self), ERROR_ALREADY_EXISTS);
    Nucleo::Log_Write(record);
    Nucleo::Log_Write(record);
    EXPECT_EQ(self.calls, 1);
    EXPECT_EQ(Nucleo::Log_RemoveHandler(&SelfRemoving::Handle, &self), ERROR_NOT_FOUND);

    VxTestSupport::Gate held;
    const auto pass = [](void* receiver, const Nucleo::LogArgs&) {
        static_cast<VxTestSupport::Gate*>(receiver)->Pass();
        return OK;
    };
    ASSERT_EQ(Nucleo::Log_AddHandler(pass, &held), OK);
    std::thread writer([&] { Nucleo::Log_Write(record); });
    ASSERT_TRUE(held.entered.Await());
    auto removed = std::async(std::launch::async, [&] {
        EXPECT_EQ(Nucleo::Log_RemoveHandler(pass, &held), OK);
        return held.left.load();
    });
    // It can be added afresh as soon as it is out of the list; the call that is running goes on then.
    EXPECT_TRUE(VxTestSupport::Eventually([&] { return Nucleo::Log_AddHandler(pass, &held) == OK; }));
    held.open.Set();
    EXPECT_TRUE(removed.get());
    writer.join();
    EXPECT_EQ(Nucleo::Log_RemoveHandler(pass, &held), OK);
}

}  // namespace
