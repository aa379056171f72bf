#include <gtest/gtest.h>

#include <Nucleo/Event.h>
#include <VxTestSupport/FailingAllocator.h>

using namespace Nucleo::Statuses;

namespace
{

/// A handler that adds its name to the sender's text, then does what the test says.
struct Listener
{
    char name;
    std::function<void()> then = [] {};

    static Nucleo::Status Handle(void* receiver, void* sender, void* /*args*/)
    {
        const Listener& self = *static_cast<Listener*>(receiver);
        *static_cast<std::string*>(sender) += self.name;
        self.then();
        return ERROR_STATE;  // Nobody looks at it.
    }
};

class EventTest : public testing::Test
{
protected:
    EventTest()
    {
        for (Listener* listener : {&a_, &b_, &c_}) {
            EXPECT_EQ(Add(*listener), OK);
        }
    }
    Nucleo::Status Add(Listener& listener) { return event_.Add(&Listener::Handle, &listener); }
    Nucleo::Status Remove(Listener& listener) { return event_.Remove(&Listener::Handle, &listener); }
    std::string Raised()
    {
        calls_.clear();
        event_.Raise(&calls_, nullptr);
        return calls_;
    }

    VxTestSupport::FailingAllocator allocator_{4};
    Nucleo::Event event_{allocator_};
    std::string calls_;
    Listener a_{'a'}, b_{'b'}, c_{'c'}, d_{'d'};
};

TEST_F(EventTest, CallsInTheOrderOfAddingEachPairOnce)
{
    EXPECT_EQ(Add(b_), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(event_.Add(nullptr, &a_), ERROR_PARAMETER);
    EXPECT_EQ(Remove(a_), OK);
    EXPECT_EQ(Remove(a_), ERROR_NOT_FOUND);
    EXPECT_EQ(Add(a_), OK);
    EXPECT_EQ(Add(d_), ERROR_MEMORY);
    EXPECT_EQ(Raised(), "bca");
    EXPECT_EQ(event_.Count(), 3U);
}

TEST_F(EventTest, HandlersMayAddAndRemoveWhileItIsRaised)
{
    b_.then = [this] {
        EXPECT_EQ(Remove(b_), OK);
        EXPECT_EQ(Remove(b_), ERROR_NOT_FOUND);
        EXPECT_EQ(Remove(a_), OK);
        EXPECT_EQ(Remove(c_), OK);
        EXPECT_EQ(Add(a_), OK);
        EXPECT_EQ(event_.Count(), 1U);
    };
    EXPECT_EQ(Raised(), "ab");
    EXPECT_EQ(allocator_.Live(), 1);
    a_.then = [this] { EXPECT_EQ(Remove(a_), OK); };
    EXPECT_EQ(Raised(), "a");
    EXPECT_EQ(allocator_.Live(), 0);
    EXPECT_EQ(Raised(), "");
}

// What is added before a nested raise is called by that one and not by the outer one; what a nested raise removes
// stays linked as long as the outer one walks over it.
TEST_F(EventTest, MayBeRaisedFromInsideAHandler)
{
    a_.then = [this, depth = 0]() mutable {
        if (++depth == 1) {
            EXPECT_EQ(Add(d_), OK);
            event_.Raise(&calls_, nullptr);
            EXPECT_EQ(allocator_.Live(), 4);
            calls_ += '|';
        }
    };
    c_.then = [this] { EXPECT_TRUE(Remove(c_) == OK && Remove(a_) == OK); };
    EXPECT_EQ(Raised(), "aabcd|b");
    EXPECT_EQ(allocator_.Live(), 2);
    EXPECT_EQ(Raised(), "bd");
}

}  // namespace
