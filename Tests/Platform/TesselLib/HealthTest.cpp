// Health messages: what the decoder takes, and how the virtual system delivers them.

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/TestSystem.h>

using namespace Nucleo::Statuses;
using namespace std::chrono_literals;
using Nucleo::ArrayList;
using Nucleo::Handle;
using TesselLib::HealthMessage;
using TesselLib::HealthStatistic;
using TesselLib::InputEvent;
using TesselLib::VirtualSystem_FlushHealth;
using TesselLib::VirtualSystem_InjectHealth;
using testing::ElementsAre;
using VxTestSupport::FailingAllocator;
using VxTestSupport::TestSystem;

namespace
{

void AddNumber(std::vector<std::uint8_t>& bytes, std::uint64_t number, int size)
{
    for (int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
    }
}

/// The head of a message and `records` bytes of value 'x' for its records.
std::vector<std::uint8_t> Message(std::uint32_t kind, std::uint32_t count, std::size_t records)
{
    std::vector<std::uint8_t> bytes;
    AddNumber(bytes, 0x01020304, 4);
    AddNumber(bytes, kind, 4);
    AddNumber(bytes, count, 4);
    bytes.resize(bytes.size() + records, 'x');
    return bytes;
}

TEST(HealthMessageTest, DecodesStatisticsAndInputEvents)
{
    // A name without a terminator is copied as it is.
    auto bytes = Message(1, 2, 80 + 64);
    AddNumber(bytes, 2007, 4);
    AddNumber(bytes, 0xFFFFFFFE, 4);
    AddNumber(bytes, 0xFEDCBA9876543210, 8);
    FailingAllocator allocator;
    Handle<HealthMessage> message;
    ASSERT_EQ(HealthMessage::Decode(message.Receive(), bytes, &allocator), OK);
    EXPECT_EQ(message->SourceNode(), 0x01020304U);
    const auto* statistics = Nucleo::AsArrayListOf<HealthStatistic>(&message->Content());
    ASSERT_NE(statistics, nullptr);
    ASSERT_EQ(statistics->Count(), 2U);
    const HealthStatistic& last = statistics->At(1);
    EXPECT_EQ(std::string(last.name, sizeof last.name), std::string(64, 'x'));
    EXPECT_EQ(last.id, 2007U);
    EXPECT_EQ(last.instance, 0xFFFFFFFEU);
    EXPECT_EQ(last.value, static_cast<std::int64_t>(0xFEDCBA9876543210));

    bytes = Message(2, 1, 0);
    AddNumber(bytes, 0x1122334455667788, 8);
    AddNumber(bytes, 5, 4);
    AddNumber(bytes, 1, 4);
    ASSERT_EQ(HealthMessage::Decode(message.Receive(), bytes, &allocator), OK);
    const auto* events = Nucleo::AsArrayListOf<InputEvent>(&message->Content());
    ASSERT_NE(events, nullptr);
    EXPECT_EQ(events->At(0).dateTime, 0x1122334455667788U);
    EXPECT_EQ(events->At(0).input, 5U);
    EXPECT_EQ(events->At(0).level, 1U);
    message = {};
    EXPECT_EQ(allocator.Live(), 0);
}

TEST(HealthMessageTest, RefusesWhatDoesNotFitBeforeTakingMemory)
{
    const std::vector<std::uint8_t> whole = Message(1, 2, 160);
    std::vector<std::pair<std::vector<std::uint8_t>, Nucleo::Status>> cases = {
        {Message(0, 0, 0), ERROR_FORMAT},
        {Message(3, 0, 0), ERROR_FORMAT},
        {Message(1, 1, 81), ERROR_FORMAT},
        {Message(2, 5, 80), OK},
        {Message(1, 65'537, 65'537 * std::size_t{80}), ERROR_LIMIT},
        {Message(1, 0xFFFFFFFF, 0), ERROR_LIMIT},
        {Message(1, 0x03333334, 64), ERROR_LIMIT},
    };
    for (std::size_t length = 0; length < whole.size(); ++length) {
        cases.emplace_back(
            std::vector<std::uint8_t>(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)),
            ERROR_FORMAT);
    }
    for (const auto& [bytes, status] : cases) {
        FailingAllocator allocator;
        Handle<HealthMessage> message;
        EXPECT_EQ(HealthMessage::Decode(message.Receive(), bytes, &allocator), status) << bytes.size();
        EXPECT_EQ(bool(message), status == OK);
        EXPECT_TRUE(status == OK || allocator.Allocations() == 0);
    }
    Handle<HealthMessage> largest;
    EXPECT_EQ(HealthMessage::Decode(largest.Receive(), Message(1, 65'536, 65'536 * std::size_t{80}), nullptr), OK);

    for (int failing = 0;; ++failing) {
        FailingAllocator allocator(failing);
        Handle<HealthMessage> message;
        const Nucleo::Status status = HealthMessage::Decode(message.Receive(), whole, &allocator);
        if (!allocator.Failed()) {
            EXPECT_EQ(status, OK);
            break;
        }
        EXPECT_EQ(status, ERROR_MEMORY);
        EXPECT_EQ(allocator.Live(), 0);
    }
}

TEST(HealthMessageTest, HoldsOnlyRecordsAndNotTooMany)
{
    Handle<HealthMessage> message;
    Handle<ArrayList<std::int32_t>> numbers;
    ASSERT_EQ(ArrayList<std::int32_t>::Make(numbers.Receive(), 0, nullptr), OK);
    EXPECT_EQ(HealthMessage::Make(message.Receive(), 1, *numbers, nullptr), ERROR_PARAMETER);
    Handle<ArrayList<InputEvent>> events;
    ASSERT_EQ(ArrayList<InputEvent>::Make(events.Receive(), 0, nullptr), OK);
    ASSERT_EQ(events->Resize(HealthMessage::MaxItems + 1), OK);
    EXPECT_EQ(HealthMessage::Make(message.Receive(), 1, *events, nullptr), ERROR_LIMIT);
    EXPECT_EQ(events->References(), 1);
}

/// A handler that keeps the sources it was called with and then does what the test says.
struct Receiver
{
    std::function<void()> then = [] {};
    std::vector<std::uint32_t> sources{};  // The health thread's; read after a flush or a clear.

    static void Handle(void* receiver, HealthMessage& message)
    {
        Receiver& self = *static_cast<Receiver*>(receiver);
        self.sources.push_back(message.SourceNode());
        self.then();
    }
};

class HealthStreamTest : public testing::Test
{
protected:
    static constexpr std::uint32_t localId = TestSystem::localId;
    static constexpr std::uint32_t otherId = 77;  // No node of the system.

    Nucleo::Status Inject(std::uint32_t source)
    {
        Handle<ArrayList<HealthStatistic>> list;
        Handle<HealthMessage> message;
        EXPECT_EQ(ArrayList<HealthStatistic>::Make(list.Receive(), 0, nullptr), OK);
        EXPECT_EQ(HealthMessage::Make(message.Receive(), source, *list, &allocator), OK);
        return VirtualSystem_InjectHealth(test.System(), *message);
    }
    void Flush() { ASSERT_EQ(VirtualSystem_FlushHealth(test.System(), 30s), OK); }

    FailingAllocator allocator;  // Of the messages.
    TestSystem test;
    TesselLib::System& system = test.System();
};

TEST_F(HealthStreamTest, DeliversWhileThereIsAHandlerAndAStreamIsOpen)
{
    Receiver receiver;
    Receiver second;
    EXPECT_EQ(test.Node().OpenHealthStream(), OK);
    EXPECT_EQ(Inject(localId), ERROR_STATE);
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &receiver), OK);
    EXPECT_EQ(system.SetHealthHandler(Receiver::Handle, &second), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(Inject(localId), OK);
    EXPECT_EQ(Inject(otherId), ERROR_STATE);
    Flush();
    EXPECT_THAT(receiver.sources, ElementsAre(localId));
    EXPECT_EQ(system.OpenHealthStream(), OK);
    EXPECT_EQ(Inject(otherId), OK);
    EXPECT_EQ(Inject(localId), OK);
    Flush();
    EXPECT_THAT(receiver.sources, ElementsAre(localId, otherId, localId));
    EXPECT_EQ(system.CloseHealthStream(), OK);
    EXPECT_EQ(Inject(localId), ERROR_STATE);
    EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK);
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &second), OK);
    EXPECT_EQ(test.Node().OpenHealthStream(), OK);
    EXPECT_EQ(Inject(localId), OK);
    Flush();
    EXPECT_THAT(second.sources, ElementsAre(localId));
    EXPECT_EQ(receiver.sources.size(), 3U);
    EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK);
    EXPECT_EQ(allocator.Live(), 0);
}

TEST_F(HealthStreamTest, ANodesStreamFailsWithTheNode)
{
    auto description = TestSystem::LocalNode();
    description.reachable = false;
    EXPECT_EQ(TestSystem(std::move(description)).Node().OpenHealthStream(), ERROR_STATE);
    description = TestSystem::LocalNode();
    description.onOperation = [](TesselLib::NodeOperation operation) {
        return operation == TesselLib::NodeOperation::OpenHealthStream ? ERROR_BUSY : OK;
    };
    EXPECT_EQ(TestSystem(std::move(description)).Node().OpenHealthStream(), ERROR_BUSY);
}

TEST_F(HealthStreamTest, AFullQueueDropsWhatComesAndSaysSo)
{
    VxTestSupport::ScopedLogCapture log;
    std::promise<void> entered;
    std::promise<void> leave;
    Receiver receiver{[&, first = true]() mutable {
        if (std::exchange(first, false)) {
            entered.set_value();
            leave.get_future().wait_for(30s);
        }
    }};
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &receiver), OK);
    ASSERT_EQ(system.OpenHealthStream(), OK);
    ASSERT_EQ(Inject(localId), OK);
    ASSERT_EQ(entered.get_future().wait_for(30s), std::future_status::ready);
    EXPECT_EQ(VirtualSystem_FlushHealth(system, 0ms), ERROR_BUSY);
    for (std::size_t i = 0; i < TesselLib::VirtualHealthQueue; ++i) {
        ASSERT_EQ(Inject(localId), OK);
    }
    EXPECT_EQ(Inject(otherId), ERROR_CAPACITY);
    EXPECT_EQ(Inject(localId), ERROR_CAPACITY);
    leave.set_value();
    Flush();
    EXPECT_EQ(receiver.sources.size(), TesselLib::VirtualHealthQueue + 1);
    EXPECT_EQ(log.Count("The queue of health messages is full: they are dropped, the first from node 77."), 1);
    EXPECT_EQ(log.Count("2 health messages were dropped."), 1);
    EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK);
    EXPECT_EQ(allocator.Live(), 0);
}

TEST_F(HealthStreamTest, ClearingWaitsForARunningCallAndDropsTheRest)
{
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> left{false};
    Receiver receiver{[&] {
        entered.set_value();
        leave.get_future().wait_for(30s);
        left = true;
    }};
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &receiver), OK);
    ASSERT_EQ(test.Node().OpenHealthStream(), OK);
    ASSERT_EQ(Inject(localId), OK);
    ASSERT_EQ(entered.get_future().wait_for(30s), std::future_status::ready);
    ASSERT_EQ(Inject(localId), OK);
    auto clear = std::async(std::launch::async, [&] {
        EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK);
        return left.load();
    });
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (Inject(localId) != ERROR_STATE && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    leave.set_value();
    EXPECT_TRUE(clear.get());
    EXPECT_EQ(receiver.sources.size(), 1U);
    EXPECT_EQ(allocator.Live(), 0);

    // From inside the handler it does not wait for itself.
    Receiver once{[this] { EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK); }};
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &once), OK);
    ASSERT_EQ(Inject(localId), OK);
    Flush();
    EXPECT_EQ(once.sources.size(), 1U);
    EXPECT_EQ(Inject(localId), ERROR_STATE);
}

TEST_F(HealthStreamTest, ASystemMayGoWhileMessagesWait)
{
    Receiver receiver;
    {
        TestSystem going;
        ASSERT_EQ(going.System().SetHealthHandler(Receiver::Handle, &receiver), OK);
        ASSERT_EQ(going.System().OpenHealthStream(), OK);
        Handle<ArrayList<InputEvent>> list;
        Handle<HealthMessage> message;
        ASSERT_EQ(ArrayList<InputEvent>::Make(list.Receive(), 0, nullptr), OK);
        ASSERT_EQ(HealthMessage::Make(message.Receive(), 1, *list, &allocator), OK);
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(VirtualSystem_InjectHealth(going.System(), *message), OK);
        }
    }
    EXPECT_EQ(allocator.Live(), 0);
}

}  // namespace
