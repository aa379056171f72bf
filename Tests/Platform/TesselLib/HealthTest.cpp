// Health messages: what the decoder takes, and how the virtual system delivers them.

#include <chrono>
#include <future>

#include <gmock/gmock.h>

#include <VxTestSupport/AllocationSweep.h>
#include <VxTestSupport/Gate.h>
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

TEST(HealthMessageTest, RefusesWhatIsNoRecordOrDoesNotFitBeforeTakingMemory)
{
    const std::vector<std::uint8_t> whole = Message(1, 2, 160);
    const auto expect = [](const std::vector<std::uint8_t>& bytes, Nucleo::Status status) {
        FailingAllocator allocator;
        Handle<HealthMessage> message;
        EXPECT_EQ(HealthMessage::Decode(message.Receive(), bytes, &allocator), status) << bytes.size();
        EXPECT_EQ(bool(message), status == OK);
        EXPECT_TRUE(status == OK || allocator.Allocations() == 0);
    };
    expect(Message(0, 0, 0), ERROR_FORMAT);
    expect(Message(3, 0, 0), ERROR_FORMAT);
    expect(Message(1, 1, 81), ERROR_FORMAT);
    expect(Message(2, 5, 80), OK);
    expect(Message(1, 65'537, 65'537 * std::size_t{80}), ERROR_LIMIT);
    expect(Message(1, 0xFFFFFFFF, 0), ERROR_LIMIT);
    expect(Message(1, 0x03333334, 64), ERROR_LIMIT);
    for (auto bytes = whole; !bytes.empty();) {
        bytes.pop_back();
        expect(bytes, ERROR_FORMAT);
    }
    Handle<HealthMessage> largest;
    EXPECT_EQ(HealthMessage::Decode(largest.Receive(), Message(1, 65'536, 65'536 * std::size_t{80}), nullptr), OK);

    VxTestSupport::SweepFailures([&](FailingAllocator& allocator) {
        Handle<HealthMessage> message;
        const Nucleo::Status status = HealthMessage::Decode(message.Receive(), whole, &allocator);
        EXPECT_EQ(status, allocator.Failed() ? ERROR_MEMORY : OK);
    });

    Handle<ArrayList<std::int32_t>> numbers;
    Handle<ArrayList<InputEvent>> events;
    ASSERT_EQ(ArrayList<std::int32_t>::Make(numbers.Receive(), 0, nullptr), OK);
    ASSERT_EQ(ArrayList<InputEvent>::Make(events.Receive(), 0, nullptr), OK);
    ASSERT_EQ(events->Resize(HealthMessage::MaxItems + 1), OK);
    EXPECT_EQ(HealthMessage::Make(largest.Receive(), 1, *numbers, nullptr), ERROR_PARAMETER);
    EXPECT_EQ(HealthMessage::Make(largest.Receive(), 1, *events, nullptr), ERROR_LIMIT);
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

    Nucleo::Status Inject(std::uint32_t source) { return Inject(source, test.System()); }
    Nucleo::Status Inject(std::uint32_t source, TesselLib::System& into)
    {
        Handle<ArrayList<HealthStatistic>> list;
        Handle<HealthMessage> message;
        EXPECT_EQ(ArrayList<HealthStatistic>::Make(list.Receive(), 0, nullptr), OK);
        EXPECT_EQ(HealthMessage::Make(message.Receive(), source, *list, &allocator), OK);
        return VirtualSystem_InjectHealth(into, *message);
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
    auto gone = TestSystem::LocalNode();
    gone.reachable = false;
    EXPECT_EQ(TestSystem(std::move(gone)).Node().OpenHealthStream(), ERROR_STATE);
}

TEST_F(HealthStreamTest, AFullQueueDropsWhatComesAndSaysSo)
{
    VxTestSupport::ScopedLogCapture log;
    VxTestSupport::Gate gate;
    Receiver receiver{[&, first = true]() mutable {
        if (std::exchange(first, false)) {
            gate.Pass();
        }
    }};
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &receiver), OK);
    ASSERT_EQ(system.OpenHealthStream(), OK);
    ASSERT_EQ(Inject(localId), OK);
    ASSERT_TRUE(gate.entered.Await());
    EXPECT_EQ(VirtualSystem_FlushHealth(system, 0ms), ERROR_BUSY);
    for (std::size_t i = 0; i < TesselLib::VirtualHealthQueue; ++i) {
        ASSERT_EQ(Inject(localId), OK);
    }
    EXPECT_EQ(Inject(otherId), ERROR_CAPACITY);
    EXPECT_EQ(Inject(localId), ERROR_CAPACITY);
    gate.open.Set();
    Flush();
    EXPECT_EQ(receiver.sources.size(), TesselLib::VirtualHealthQueue + 1);
    EXPECT_EQ(log.Count("The queue of health messages is full: they are dropped, the first from node 77."), 1);
    EXPECT_EQ(log.Count("2 health messages were dropped."), 1);
    EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK);
    EXPECT_EQ(allocator.Live(), 0);
}

TEST_F(HealthStreamTest, ClearingWaitsForARunningCallAndDropsTheRest)
{
    VxTestSupport::Gate gate;
    Receiver receiver{[&] { gate.Pass(); }};
    ASSERT_EQ(system.SetHealthHandler(Receiver::Handle, &receiver), OK);
    ASSERT_EQ(test.Node().OpenHealthStream(), OK);
    ASSERT_EQ(Inject(localId), OK);
    ASSERT_TRUE(gate.entered.Await());
    ASSERT_EQ(Inject(localId), OK);
    auto clear = std::async(std::launch::async, [&] {
        EXPECT_EQ(system.SetHealthHandler(nullptr, nullptr), OK);
        return gate.left.load();
    });
    EXPECT_TRUE(VxTestSupport::Eventually([&] { return Inject(localId) == ERROR_STATE; }));
    gate.open.Set();
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
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(Inject(1, going.System()), OK);
        }
    }
    EXPECT_EQ(allocator.Live(), 0);
}

}  // namespace
