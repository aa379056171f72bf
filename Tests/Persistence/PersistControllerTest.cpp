#include <memory>

#include <gmock/gmock.h>

#include <Tests/Persistence/FakeHandler.h>
#include <VxCommon/Persistence/PersistController.h>
#include <VxCommon/Persistence/PersistControllerStub.h>
#include <VxCommon/Persistence/PersistStore.h>
#include <VxCommon/VcLib/Status.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace VxCommon
{
namespace
{

constexpr PersistDomain JOB = PersistDomain::JOB;

class PersistControllerTest : public testing::Test
{
protected:
    void* Register(FakeHandler& handler, const std::string& name = "A")
    {
        return controller_.RegisterHandler(handler, name);
    }

    void Run(const std::string& verb, bool force, const std::string& name = "A")
    {
        if (verb == "Init") {
            controller_.InitDomain(JOB, store_, name);
        } else if (verb == "Load") {
            controller_.LoadDomain(JOB, store_, name, force);
        } else {
            controller_.SaveDomain(JOB, store_, name, force);
        }
    }

    /// Per registration "C" for a pending change, "L" for a pending load of the JOB domain.
    Journal Pending() const
    {
        Journal flags;
        for (const auto& info : controller_.ListRegistered()) {
            flags.push_back(std::string(info.changed.contains(JOB) ? "C" : "") + (info.load.contains(JOB) ? "L" : ""));
        }
        return flags;
    }

    Journal journal_;
    FakeUpdatable system_{journal_};
    PersistController controller_{system_};
    PersistStore store_;
    FakeHandler first_{"First", journal_};
    FakeHandler second_{"Second", journal_};
    FakeHandler third_{"Third", journal_};
};

class PassTest : public PersistControllerTest, public testing::WithParamInterface<const char*>
{};
INSTANTIATE_TEST_SUITE_P(Verbs, PassTest, testing::Values("Init", "Load", "Save"),
                         [](const auto& verb) { return std::string(verb.param); });

TEST_P(PassTest, GoesOnAfterFailuresAndReportsOnce)
{
    const std::string verb = GetParam();
    const std::string call = verb + " JOB";
    Register(first_);
    Register(second_);
    Register(third_);
    controller_.InitDomain(JOB, store_, "A");
    for (const auto& info : controller_.ListRegistered()) {
        controller_.NotifyChange(*info.handler, JOB);
        controller_.NotifyLoad(*info.handler, JOB);
    }
    journal_.clear();
    first_.on[call] = Fails(-990, "50%s broken");
    third_.on[call] = Fails(-991, "also broken");

    VxTestSupport::ScopedLogCapture log;
    EXPECT_EQ(MessageThrown([&] { Run(verb, true); }), "-990 " + call + " for First failed -- 2 total failures.");
    Journal expected{
        "Persistence/PersistController: I " + call + " for First...",
        "Persistence/PersistController: E " + call + " for First failed (50%s broken)",
        "!" + verb + " domain: E " + call + " for First failed (50%s broken)",
        "Persistence/PersistController: I " + call + " for Second...",
        "Persistence/PersistController: I " + call + " for Third...",
        "Persistence/PersistController: E " + call + " for Third failed (also broken)",
        "!" + verb + " domain: E " + call + " for Third failed (also broken)",
    };
    if (verb == "Save") {
        expected.insert(expected.begin() + 4, "Persistence/PersistController: I Save JOB for Second complete.");
    }
    EXPECT_EQ(LogOf(log), expected);
    EXPECT_THAT(log.Texts(), testing::Contains(testing::HasSubstr("Host::Part::Do")).Times(2));  // The exceptions.
    EXPECT_THAT(journal_, ElementsAre("Begin(true)", "First: " + call, "Second: " + call, "Third: " + call, "End"));
    EXPECT_THAT(Pending(), ElementsAre("CL", verb == "Load" ? "C" : "L", "CL"));
    EXPECT_EQ(Thrown([&] { Run(verb, true); }), "-990 PersistController::" + verb + "Domain");

    // The failed ones are tried again by the next pass.
    first_.on.clear();
    third_.on.clear();
    Run(verb, false);
    EXPECT_THAT(Pending(), testing::Each(verb == "Load" ? "C" : "L"));
    EXPECT_EQ(controller_.IsChanged(JOB), verb == "Load");
    EXPECT_EQ(controller_.IsLoad(JOB), verb != "Load");
}

TEST_P(PassTest, TakesTheHandlersOfOneNameThatAreFlaggedOrForced)
{
    const std::string verb = GetParam();
    const std::string first = "First: " + verb + " JOB";
    const std::string third = "Third: " + verb + " JOB";
    const bool initialises = verb == "Init";
    Register(first_);
    Register(second_, "a");
    Register(third_);
    Register(second_, "");
    controller_.InitDomain(JOB, store_, "A");
    const auto run = [&](bool force) {
        journal_.clear();
        Run(verb, force);
        return journal_;
    };
    const Journal all{"Begin(true)", first, third, "End"};
    EXPECT_EQ(run(false), initialises ? all : Journal({"Begin(true)", "End"}));
    controller_.NotifyChange(third_, verb == "Load" ? PersistDomain::GLOBAL : JOB);
    controller_.NotifyLoad(third_, verb == "Load" ? JOB : PersistDomain::GLOBAL);
    EXPECT_EQ(run(false), initialises ? all : Journal({"Begin(true)", third, "End"}));
    EXPECT_EQ(run(true), all);
}

TEST_P(PassTest, StaysValidWhileHandlersComeGoAndNotify)
{
    const std::string call = std::string(GetParam()) + " JOB";
    auto gone = std::make_unique<FakeHandler>("Gone", journal_);
    void* firstHandle = Register(first_);
    void* goneHandle = Register(*gone);
    Register(third_);
    controller_.InitDomain(JOB, store_, "A");
    journal_.clear();
    first_.on[call] = [&] {
        controller_.UnregisterHandler(firstHandle);
        controller_.UnregisterHandler(goneHandle);
        gone.reset();
        Register(second_);
        controller_.NotifyChange(third_, JOB);
        controller_.NotifyLoad(third_, JOB);
    };
    Run(GetParam(), true);
    EXPECT_THAT(journal_, ElementsAre("Begin(true)", "First: " + call, "Third: " + call, "End"));
    EXPECT_EQ(controller_.ListRegistered().size(), 2U);
    const VxTestSupport::ScopedLogCapture log;
    controller_.UnregisterHandler(goneHandle);
    EXPECT_EQ(log.Texts("Persistence/PersistController").size(), 1U);
}

TEST_F(PersistControllerTest, TheFirstStatusAndTheFirstNameMayComeFromDifferentHandlers)
{
    FakeHandler nameless("", journal_);
    Register(nameless);
    Register(first_);
    Register(second_);
    first_.on["Init JOB"] = [] { throw std::out_of_range("no status"); };
    EXPECT_EQ(MessageThrown([&] { Run("Init", true); }), "1 Init JOB for First failed -- 2 total failures.");
    second_.on["Init JOB"] = Fails(-993, "disk");
    EXPECT_EQ(MessageThrown([&] { Run("Init", true); }), "-993 Init JOB for First failed -- 3 total failures.");
}

TEST_F(PersistControllerTest, WhatIsNoStandardExceptionEndsThePassAndTheUpdate)
{
    Register(first_);
    Register(second_);
    first_.on["Save JOB"] = [] { throw 7; };
    EXPECT_THROW(controller_.SaveDomain(JOB, store_, "A", true), int);
    EXPECT_THAT(journal_, ElementsAre("Begin(true)", "First: Save JOB", "End"));
    // The handler is not taken for one that is still being saved.
    first_.on.clear();
    controller_.NotifyChange(first_, JOB);
    controller_.SaveDomain(JOB, store_, "A", false);
    EXPECT_TRUE(store_.Exists("/First"));
}

TEST_F(PersistControllerTest, AChangeFromInsideItsOwnSaveStaysPending)
{
    Register(first_);
    controller_.AddChangeListener([&](IPersistHandler&, PersistDomain domain, const std::string& name) {
        controller_.SaveDomain(domain, store_, name, false);
    });
    first_.on["Save JOB"] = [&] { controller_.NotifyChange(first_, JOB); };
    controller_.NotifyChange(first_, JOB);
    EXPECT_THAT(journal_, ElementsAre("Begin(true)", "First: Save JOB", "Begin(true)", "End", "End"));
    EXPECT_THAT(Pending(), ElementsAre("C"));
    first_.on.clear();
    controller_.SaveDomain(JOB, store_, "A", false);
    EXPECT_THAT(Pending(), ElementsAre(""));
}

TEST_F(PersistControllerTest, NotificationsFlagTheFirstRecordThenTellTheListenersInOrder)
{
    Register(first_, "one");
    Register(first_, "two");
    const auto listener = [&](const std::string& id) {
        return [this, id](IPersistHandler& handler, PersistDomain, const std::string& name) {
            const bool flagged = controller_.IsChanged(JOB) || controller_.IsLoad(JOB);
            journal_.push_back(id + " " + handler.DisplayName() + " '" + name + (flagged ? "' flagged" : "'"));
        };
    };
    controller_.AddChangeListener(listener("change"));
    controller_.AddChangeListener(listener("again"));
    controller_.AddLoadListener(listener("load"));
    controller_.NotifyChange(second_, JOB);
    controller_.NotifyChange(first_, JOB);
    controller_.NotifyLoad(first_, JOB);
    EXPECT_THAT(journal_, ElementsAre("change Second ''", "again Second ''", "change First 'one' flagged",
                                      "again First 'one' flagged", "load First 'one' flagged"));
    EXPECT_THAT(Pending(), ElementsAre("CL", ""));
    controller_.AddLoadListener(nullptr);
    EXPECT_THROW(controller_.NotifyLoad(first_, JOB), std::bad_function_call);
}

TEST_F(PersistControllerTest, TheStubFlagsAndRaisesButDrivesNobody)
{
    PersistControllerStub stub;
    void* handle = stub.RegisterHandler(first_, "one");
    const auto listener = [&](const std::string& event) {
        return [&, event](IPersistHandler& handler, PersistDomain domain) {
            std::size_t flags = 0;
            for (const auto& info : stub.ListRegistered()) {
                flags += info.changed.count(domain) + info.load.count(domain);
            }
            journal_.push_back(event + " " + handler.DisplayName() + " " + std::to_string(flags));
        };
    };
    const Vx::Subscription changes = stub.DomainChangedEvent().Subscribe(listener("change"));
    const Vx::Subscription loads = stub.DomainLoadEvent().Subscribe(listener("load"));
    stub.NotifyChange(second_, JOB);
    stub.NotifyChange(first_, JOB);
    stub.NotifyLoad(first_, PersistDomain::GLOBAL);
    stub.UnregisterHandler(handle);
    stub.UnregisterHandler(handle);
    stub.NotifyLoad(first_, JOB);
    EXPECT_THAT(journal_, ElementsAre("change Second 0", "change First 1", "load First 1", "load First 0"));
}

}  // namespace
}  // namespace VxCommon
