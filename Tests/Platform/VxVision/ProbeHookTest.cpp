// The hook by which vision code gets its probes from the application.

#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include <VxVision/ProbeHook.h>

using namespace Nucleo::Statuses;
using namespace std::chrono_literals;
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

std::promise<void>* entered = nullptr;
std::shared_future<void>* mayLeave = nullptr;

TEST_F(ProbeHookTest, RemovalWaitsForACallOfAnotherThread)
{
    std::promise<void> inside;
    std::promise<void> leave;
    std::shared_future<void> left = leave.get_future().share();
    entered = &inside;
    mayLeave = &left;
    ASSERT_EQ(VvProbe_SetConstructor([](HealthProbe** made, auto... args) {
                  entered->set_value();
                  mayLeave->wait_for(30s);
                  return MakeProbe(made, args...);
              }),
              OK);
    auto construct =
        std::async(std::launch::async, [this] { return VvProbe_Construct(probe.Receive(), "Slow", 1, 0, 0); });
    ASSERT_EQ(inside.get_future().wait_for(30s), std::future_status::ready);
    auto remove = std::async(std::launch::async, [] { return VvProbe_SetConstructor(nullptr); });

    // The callback is out of use once the removal waits, but the removal has not returned.
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (VvProbe_SetConstructor(MakeProbe) != OK && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(remove.wait_for(0s), std::future_status::timeout);
    leave.set_value();
    EXPECT_EQ(construct.get(), OK);
    EXPECT_EQ(remove.get(), OK);
}

}  // namespace
