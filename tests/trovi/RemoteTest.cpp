#include "trovi/Remote.h"

#include <gmock/gmock.h>

#include "../Golden.h"
#include "Network.h"
#include "Sample.h"
#include "davis/event/DvsEvent.h"

namespace {

using namespace trovi;
using davis::event::DvsEvent;

struct RemoteTest : testing::Test {
    RemoteTest()
    {
        event.bindMembersAndMethods();
        tree.bindMembersAndMethods();
    }
    /// What was enqueued last, in the form in which it travels.
    std::string sent()
    {
        messages::Message message;
        EXPECT_TRUE(channel.try_dequeue(message));
        return test::hex(serializeMessage(message)) + "\n";
    }
    MessageChannel channel;
    remote::Element object{&channel, {5, 6}};
    remote::Class<DvsEvent> event{object};
    remote::Class<sample::Tree> tree{object};
};

TEST_F(RemoteTest, MembersAndFunctionsAreNumberedEachFromZero)
{
    EXPECT_EQ(tree.function("add").id(), 0U);
    EXPECT_EQ(tree.function("fail").id(), 5U);
    EXPECT_EQ(tree.functions().size(), 7U);
    EXPECT_EQ(event.member("x").id(), 0U);
    EXPECT_EQ(event.member("timestamp").id(), 3U);
    EXPECT_EQ(event.member("x").getReference(), (StoreRef{5, 6}));
    EXPECT_THROW(event.member("z"), std::out_of_range);
    EXPECT_THROW(event.function("x"), std::out_of_range);
}

TEST_F(RemoteTest, MessagesAndTexts)
{
    event.member("y").set<std::uint16_t>(0x203);
    std::string text = "set a member:" + sent();
    event.callAsync(StoreCommand::get, 1, {});
    text += "get a member:" + sent();
    // each level lies in the buffer of the level above
    const remote::Element leaf = object.child(3, test::bytes("AA")).child(4, test::bytes("BB"));
    leaf.callAsync(StoreCommand::call, 9, test::bytes("CC DD"));
    text += "call through two functions:" + sent();
    leaf.set(2, test::bytes("EE"));
    text += "set through two functions:" + sent();
    // a wrong type fails before anything is sent
    text += errorOf([&] { event.member("x").set(1.0); }) + "\n";
    text += errorOf([&] { event.member("x").get<double>(); }) + "\n";
    text += errorOf([&] { tree.invoke<void>("add"); }) + "\n";
    EXPECT_EQ(channel.size_approx(), 0U);
    text += errorOf([] { remote::Element().call(StoreCommand::call, 0, {}); }) + "\n";
    EXPECT_GOLDEN("remote_messages.txt", text);
}

} // namespace
