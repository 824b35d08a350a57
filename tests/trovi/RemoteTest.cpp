#include "trovi/Remote.h"

#include <gmock/gmock.h>

#include "Network.h"
#include "Sample.h"
#include "davis/event/DvsEvent.h"

namespace {

using namespace trovi;
using davis::event::DvsEvent;

struct RemoteTest : testing::Test {
    /// What was enqueued last, in the form in which it travels.
    Bytes sent()
    {
        messages::Message message;
        EXPECT_TRUE(channel.try_dequeue(message));
        return serializeMessage(message);
    }
    MessageChannel channel;
    remote::Element object{&channel, {5, 6}};
};

TEST_F(RemoteTest, MembersAndFunctionsAreNumberedEachFromZero)
{
    remote::Class<sample::Tree> tree(object);
    tree.bindMembersAndMethods();
    EXPECT_EQ(tree.function("add").id(), 0U);
    EXPECT_EQ(tree.function("fail").id(), 5U);
    EXPECT_EQ(tree.functions().size(), 7U);

    remote::Class<DvsEvent> event(&channel, {5, 6});
    event.bindMembersAndMethods();
    EXPECT_EQ(event.member("x").id(), 0U);
    EXPECT_EQ(event.member("timestamp").id(), 3U);
    EXPECT_EQ(event.member("x").getReference(), (StoreRef{5, 6}));
    EXPECT_THROW(event.member("z"), std::out_of_range);
    EXPECT_THROW(event.function("x"), std::out_of_range);
}

TEST_F(RemoteTest, MessagesOfMembersAndFunctions)
{
    remote::Class<DvsEvent> event(object);
    event.bindMembersAndMethods();
    event.member("y").set<std::uint16_t>(0x203);
    EXPECT_EQ(sent(), serializeMessage(messages::Set{{0, {5, 6}, StoreCommand::set, 1}, test::bytes("03 02")}));
    event.callAsync(StoreCommand::get, 1, {});
    EXPECT_EQ(sent(), serializeMessage(messages::Call{{0, {5, 6}, StoreCommand::get, 1}, nullptr, {}}));
}

TEST_F(RemoteTest, EachLevelOfAChainLiesInTheBufferOfTheLevelAbove)
{
    const remote::Element leaf = object.child(3, test::bytes("AA")).child(4, test::bytes("BB"));
    leaf.callAsync(StoreCommand::call, 9, test::bytes("CC DD"));
    // header: destination 0, reference, command, number
    const std::string ref = "00 00 00 00 00 00 00 00  05 00 00 00 00 00 00 00  06 00 00 00 00 00 00 00";
    EXPECT_EQ(sent(), test::bytes("03 00 00 00" + ref +
                                  "07 00 00 00  03 00 00 00 00 00 00 00  64 00 00 00 00 00 00 00"
                                  "00 00 00 00 AA" +
                                  ref +
                                  "07 00 00 00  04 00 00 00 00 00 00 00  33 00 00 00 00 00 00 00"
                                  "00 00 00 00 BB" +
                                  ref + "02 00 00 00  09 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00 CC DD"));
    leaf.set(2, test::bytes("EE"));
    EXPECT_THAT(sent(), testing::SizeIs(4 + 36 + 8 + 5 + 36 + 8 + 5 + 36 + 8 + 1));
}

TEST_F(RemoteTest, AWrongTypeFailsBeforeAnythingIsSent)
{
    remote::Class<DvsEvent> event(object);
    event.bindMembersAndMethods();
    const std::string member = "Type mismatch in setting member. Member = trovi::remote::Member{ type = "
                               "trovi::traits::TypeInfo {name = short unsigned int, meta = 983048}, id = 0, "
                               "ref = trovi::StoreRef{ storeId = 5, objId = 6}}, provided =  "
                               "trovi::traits::TypeInfo {name = double, meta = 983056} was provided.";
    EXPECT_EQ(test::errorOf([&] { event.member("x").set(1.0); }), member);
    EXPECT_EQ(test::errorOf([&] { event.member("x").get<double>(); }), member);

    remote::Class<sample::Tree> tree(object);
    tree.bindMembersAndMethods();
    const std::string function =
        "Type mismatch in member function invokation.\n"
        "This = trovi::remote::MemberFunction{ return = trovi::traits::TypeInfo {name = unsigned int, meta = 983048}, "
        "param = trovi::traits::TypeInfo {name = trovi::FunctionParams<unsigned int>, meta = 1573120}, id = 0, "
        "ref = trovi::StoreRef{ storeId = 5, objId = 6}}\n"
        "Given return = trovi::traits::TypeInfo {name = void, meta = 65538}\n"
        "Given param = trovi::traits::TypeInfo {name = trovi::FunctionParams<>, meta = 1573120}\n";
    EXPECT_EQ(test::errorOf([&] { tree.invoke<void>("add"); }), function);
    EXPECT_EQ(channel.size_approx(), 0U);
}

TEST(Remote, AnElementOfNoNodeSendsNothing)
{
    EXPECT_EQ(test::errorOf([] { remote::Element().call(StoreCommand::call, 0, {}); }),
              "This remote element is bound to no node.");
}

} // namespace
