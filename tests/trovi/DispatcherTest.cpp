#include "trovi/Dispatcher.h"

#include <gmock/gmock.h>

#include "Network.h"
#include "Sample.h"

namespace {

using namespace trovi;
using namespace trovi::messages;
using test::bytes;
using namespace std::chrono_literals;

/// Keeps what would go to other nodes.
struct Outbox : MessageForwarderInterface {
    void forward(std::uint64_t destination, Message&& message) override
    {
        sent.enqueue(std::pair(destination, std::move(message)));
    }
    ondra::Channel<std::pair<std::uint64_t, Message>> sent;
};

struct DispatcherTest : testing::Test {
    DispatcherTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    remote::Class<sample::Tree> proxyOfTree()
    {
        remote::Class<sample::Tree> proxy(&channel, tree);
        proxy.bindMembersAndMethods();
        return proxy;
    }
    /// Returns when all that was enqueued before has been handled.
    void settle() { getStoreContent(channel, 1).get(); }

    /// Function 2 of a leaf that is reached by a chain.
    static std::int32_t sumOf(const remote::Element& leaf, std::int32_t a, std::int32_t b)
    {
        return deserializeBytes<std::int32_t>(leaf.call(StoreCommand::call, 2, serializeToBuffer(a, b)));
    }

    MessageChannel channel;
    Store store{channel, 1};
    Outbox outbox;
    Dispatcher dispatcher{1, channel, &outbox, &store};
    StoreRef tree = store.insert("tree", std::make_unique<sample::Tree>());
};

TEST(Dispatcher, NeedsAStoreOfItsOwnId)
{
    MessageChannel channel;
    Store other(channel, 2);
    for (Store* const store : {&other, static_cast<Store*>(nullptr)})
        EXPECT_EQ(errorOf([&] { Dispatcher(1, channel, nullptr, store); }),
                  "Dispatcher cannot be initialized with store == nullptr or storeId != dispatcherId!");
}

/// In the turn of message 1, another thread enqueues message 2 and the holder of the turn message 3.
struct Recorder final : MessageHandler {
    explicit Recorder(MessageChannel& channel) : channel(channel) { channel.attach(*this); }
    void handle(Message&& message) override
    {
        handled.push_back(std::get<Response>(message).destination);
        if (handled.back() == 1) {
            std::async(std::launch::async, [this] { channel.enqueue(Response{2, {}, {}}); }).get();
            channel.enqueue(Response{3, {}, {}});
        }
    }
    MessageChannel& channel;
    std::vector<std::uint64_t> handled;
};

TEST(MessageChannel, WhatIsQueuedIsNotOvertaken)
{
    MessageChannel channel;
    Recorder recorder(channel);
    channel.post(Response{1, {}, {}});
    channel.post(Response{4, {}, {}});
    EXPECT_THAT(recorder.handled, testing::ElementsAre(1)); // 3 and 4 wait behind 2
    for (Message message; channel.try_dequeue(message);)
        channel.act(std::move(message));
    EXPECT_THAT(recorder.handled, testing::UnorderedElementsAre(1, 2, 3, 4));
    channel.detach();
    channel.post(Response{5, {}, {}}); // dropped
    EXPECT_EQ(channel.size_approx(), 0U);
}

TEST_F(DispatcherTest, MessagesForOtherStoresGoOut)
{
    const Header header{0, {5, 6}, StoreCommand::set, 7};
    const auto withAddress = [](std::uint64_t low) {
        return serializeToBuffer(std::uint8_t{0xAA}, std::uint64_t{1}, uuid{0, low}.str());
    };
    const Callback callback = [](std::istream&) {};
    Header out = header;
    out.destination = 5;
    const struct {
        Message message;
        std::uint64_t destination;
        Message expected;
    } rows[] = {
        {Set{header, bytes("AA")}, 5, Set{out, bytes("AA")}},
        {Connect{header, bytes("AA")}, 5, Connect{out, bytes("AA")}},
        {Call{header, callback, bytes("AA")}, 5, Call{out, nullptr, withAddress(0)}},
        {Call{header, nullptr, bytes("AA")}, 5, Call{out, nullptr, bytes("AA")}},
        {Internal{header, callback, bytes("AA")}, 5, Internal{out, nullptr, withAddress(2)}}, // 1 was counted too
        {Response{8, StoreCommand::response, bytes("AA")}, 8, Response{8, StoreCommand::response, bytes("AA")}},
    };
    for (const auto& row : rows) {
        channel.enqueue(row.message);
        const auto sent = test::next(outbox.sent);
        ASSERT_TRUE(sent);
        EXPECT_EQ(sent->first, row.destination);
        EXPECT_EQ(serializeMessage(sent->second), serializeMessage(row.expected));
    }
}

TEST_F(DispatcherTest, ACallForTheOwnStoreIsAnsweredThroughTheQueue)
{
    const auto proxy = proxyOfTree();
    EXPECT_EQ(proxy.invoke<std::uint32_t>("add", std::uint32_t{3}), 3U);
    EXPECT_EQ(proxy.invoke<std::string>("greet", std::string("you"), std::uint8_t{2}), "hello you;hello you;");
    proxy.invoke<void>("nothing");
    EXPECT_EQ(proxy.call(StoreCommand::call, sample::self, {}), Bytes()); // a reference is no result
}

TEST_F(DispatcherTest, CallsForNobodyGetNoAnswer)
{
    const remote::Element here(&channel, tree);
    const remote::Element nowhere(&channel, {1, 99});
    const remote::Element dead = here.child(sample::add, serializeToBuffer(std::uint32_t{5})); // gives no reference
    const struct {
        remote::Element object;
        StoreCommand command;
        std::uint64_t id;
    } rows[] = {{nowhere, StoreCommand::call, 0},
                {here, StoreCommand::call, functionCount<sample::Tree>},
                {here, StoreCommand::get, 0},
                {dead, StoreCommand::call, 0},
                {here.child(sample::frozen), StoreCommand::call, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(errorOf([&] { row.object.call(row.command, row.id, {}, 20ms); }), "RPC timeout!");
    EXPECT_EQ(proxyOfTree().invoke<std::uint32_t>("add", std::uint32_t{1}), 1U); // up, and nothing was added
}

TEST_F(DispatcherTest, AReportTellsTheContentAndMakesAnObserver)
{
    const Header header{0, {1, StoreRef::invalidId}, StoreCommand::report, 0};
    for (int i = 0; i < 2; ++i) { // a second report changes nothing
        channel.enqueue(Call{header, nullptr, serializeToBuffer(std::uint64_t{42}, "the uuid")});
        const auto answer = test::next(outbox.sent);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->first, 42U);
        EXPECT_EQ(std::get<Response>(answer->second).buffer,
                  serializeToBuffer("the uuid", std::vector<ElementDescription>{{tree, "sample::Tree", "tree", 2}}));
        EXPECT_THAT(store.getObserverNodes(), testing::ElementsAre(42));
    }
    // only a Call may ask
    channel.enqueue(Set{header, serializeToBuffer(std::uint64_t{43}, "the uuid")});
    channel.enqueue(Internal{header, nullptr, serializeToBuffer(std::uint64_t{43}, "the uuid")});
    settle();
    EXPECT_THAT(store.getObserverNodes(), testing::UnorderedElementsAre(42, 1));
}

TEST_F(DispatcherTest, AnAnswerIsTakenOnce)
{
    ondra::Channel<std::uint32_t> taken;
    channel.enqueue(Call{{0, {5, 0}, StoreCommand::call, 0},
                         [&](std::istream& stream) { taken.enqueue(deserializeElement<std::uint32_t>(stream)); },
                         {}});
    for (std::uint32_t i = 1; i <= 2; ++i)
        channel.enqueue(ResponseMessage(1, uuid{0, 0}.str(), i));
    settle();
    EXPECT_EQ(test::next(taken), 1U);
    EXPECT_EQ(taken.size_approx(), 0U);
}

TEST_F(DispatcherTest, NotificationsGoToTheHandlerOfTheirCommand)
{
    ondra::Channel<std::string> taken;
    const auto handler = [&](const char* name) {
        return [&taken, name](std::istream& stream) { taken.enqueue(name + deserializeElement<std::string>(stream)); };
    };
    dispatcher.setOnResponseMessageCommandCallback(StoreCommand::contentUpdate, handler("content "));
    dispatcher.setOnResponseMessageCommandCallback(StoreCommand::storeClosed, handler("closed "));
    channel.enqueue(Response{1, StoreCommand::contentUpdate, serializeToBuffer("", "a")});
    channel.enqueue(Response{1, StoreCommand::storeClosed, serializeToBuffer("", "b")});
    channel.enqueue(Response{1, StoreCommand::contentUpdate, serializeToBuffer("", "c")}); // it stays
    channel.enqueue(Response{1, StoreCommand::get, serializeToBuffer("", "d")});           // has none
    channel.enqueue(Response{1, static_cast<StoreCommand>(99), serializeToBuffer("", "e")});
    for (const char* expected : {"content a", "closed b", "content c"})
        EXPECT_EQ(test::next(taken), expected);
    settle();
    EXPECT_EQ(taken.size_approx(), 0U);
}

TEST_F(DispatcherTest, ChainsOfOneTwoAndThreeLevels)
{
    const remote::Element root(&channel, tree);
    const remote::Element branch = root.child(sample::branch, serializeToBuffer("left"));
    const remote::Element leaf = branch.child(0, serializeToBuffer(std::uint32_t{1}));
    leaf.call(StoreCommand::call, 1, serializeToBuffer(std::int32_t{100}));

    // Arguments full of bytes that look like white space pass at every depth.
    const std::int32_t spaces = 0x200A0D09;
    for (const remote::Element& start :
         {root, root.child(sample::self), root.child(sample::self).child(sample::self)}) {
        const auto left = start.child(sample::branch, serializeToBuffer("left"));
        const auto right = start.child(sample::branch, serializeToBuffer("a \t\n name"));
        EXPECT_EQ(sumOf(left.child(0, serializeToBuffer(std::uint32_t{0x20 + 1})), spaces, 1), 100 + spaces + 1);
        EXPECT_EQ(sumOf(left.child(0, serializeToBuffer(std::uint32_t{0})), spaces, 1), spaces + 1);
        EXPECT_EQ(sumOf(right.child(0, serializeToBuffer(std::uint32_t{1})), spaces, 1), spaces + 1);
    }
    const remote::Element pot(&channel, store.insert("pot", std::make_unique<sample::Pot>()));
    EXPECT_EQ(sumOf(pot.memberChild(0), 1, 0), 1); // one level, through a data member
}

TEST_F(DispatcherTest, WhatFailsOnTheThreadEndsTheProcess)
{
    const remote::Element root(&channel, tree);
    const auto call = [&](const remote::Element& element, std::uint64_t id, Bytes arguments) {
        element.call(StoreCommand::call, id, std::move(arguments));
    };
    EXPECT_DEATH(call(root, sample::fail, {}), "the tree is ill");
    EXPECT_DEATH(channel.enqueue(Call{{0, tree, StoreCommand::call, sample::add}, nullptr, Bytes(3)});
                 settle(), "Failed to read 4 bytes from input stream! Read 3");
    EXPECT_DEATH(call(root.child(7), 0, {}), "Tuple index out of range!");
    EXPECT_DEATH(call(root.memberChild(0), 0, {}), "Tuple index out of range!");
    EXPECT_DEATH(channel.enqueue(Response{1, StoreCommand::response, {}}); settle(), "Failed to read 8 bytes");
}

} // namespace
