// The hook by which vision code gets its probes from the application.

#include <chrono>
#include <future>

#include <gtest/gtest.h>

#include <VxTestSupport/Gate.h>
#include <VxVision/ProbeHook.h>

using namespace Nucleo::Statuses;
using Nucleo::HealthProbe;
using VxVision::VvProbe_Construct;
using VxVision::VvProbe_SetConstructor;

namespace
{

struct ProbeHookTest : testing::Test
{
    ~ProbeHookTest() override { VvProbe_SetConstructor(nullptr); }

    Nucleo::Handle<HealthProbe> probe;
};

Nucleo::Status MakeProbe(HealthProbe** probe, const char* name, std::uint32_t id, std::uint32_t instance,
                         std::int64_t initial)
{
    return HealthProbe::Make(probe, name, id, instance, initial, 0, 1, nullptr);
}

TEST_F(ProbeHookTest, ProbesComeFromTheOneInstalledCallback)
{
    EXPECT_EQ(VvProbe_Construct(probe.Receive(), "Blobs", 22001, 3, 7), ERROR_STATE);
    EXPECT_FALSE(probe);

    ASSERT_EQ(VvProbe_SetConstructor(MakeProbe), OK);
    EXPECT_EQ(VvProbe_SetConstructor([](auto...) { return ERROR_MEMORY; }), ERROR_ALREADY_EXISTS);
    ASSERT_EQ(VvProbe_Construct(probe.Receive(), "Blobs", 22001, 3, 7), OK);
    EXPECT_STREQ(probe->Name(), "Blobs");
    EXPECT_EQ(probe->Id(), 22001U);
    EXPECT_EQ(probe->Instance(), 3U);
    EXPECT_EQ(probe->Value(), 7);
    EXPECT_EQ(probe->References(), 1);
    EXPECT_EQ(VvProbe_Construct(probe.Receive(), nullptr, 1, 0, 0), ERROR_PARAMETER);
    EXPECT_FALSE(probe);

    EXPECT_EQ(VvProbe_SetConstructor(nullptr), OK);
    EXPECT_EQ(VvProbe_SetConstructor(nullptr), OK);
    EXPECT_EQ(VvProbe_Construct(probe.Receive(), "Blobs", 22001, 3, 7), ERROR_STATE);
}

TEST_F(ProbeHookTest, TheCallbackMayRemoveItself)
{
    ASSERT_EQ(VvProbe_SetConstructor([](auto...) { return VvProbe_SetConstructor(nullptr) == OK ? ERROR_LIMIT : OK; }),
              OK);
    EXPECT_EQ(VvProbe_Construct(probe.Receive(), "Blobs", 1, 0, 0), ERROR_LIMIT);
    EXPECT_EQ(VvProbe_Construct(probe.Receive(), "Blobs", 1, 0, 0), ERROR_STATE);
}

VxTestSupport::Gate* gate = nullptr;

TEST_F(ProbeHookTest, RemovalWaitsForACallOfAnotherThread)
{
    VxTestSupport::Gate inside;
    gate = &inside;
    const auto slow = [](HealthProbe** made, auto... args) {
        gate->Pass();
        return MakeProbe(made, args...);
    };
    ASSERT_EQ(VvProbe_SetConstructor(slow), OK);
    auto construct =
        std::async(std::launch::async, [this] { return VvProbe_Construct(probe.Receive(), "Slow", 1, 0, 0); });
    ASSERT_TRUE(inside.entered.Await());
    auto remove = std::async(std::launch::async, [] { return VvProbe_SetConstructor(nullptr); });

    // The callback is out of use once the removal waits, but the removal has not returned.
    EXPECT_TRUE(VxTestSupport::Eventually([] { return VvProbe_SetConstructor(MakeProbe) == OK; }));
    EXPECT_EQ(remove.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    inside.open.Set();
    EXPECT_EQ(construct.get(), OK);
    EXPECT_EQ(remove.get(), OK);
}

}  // namespace
