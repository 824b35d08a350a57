#include "trovi/Node.h"

#include <csignal>
#include <numeric>
#include <pthread.h>

#include <gmock/gmock.h>

#include "Network.h"
#include "Sample.h"

namespace {

using namespace trovi;
using namespace std::chrono_literals;
using test::anyPort;
using test::Client;
using test::Garden;
using test::Server;

remote::Class<sample::Tree> proxyOf(Client& client, const Garden& garden)
{
    remote::Class<sample::Tree> proxy(&client.channel(), garden.tree);
    proxy.bindMembersAndMethods();
    return proxy;
}

static_assert(Publisher::socketProperty.type == 1 && Publisher::socketProperty.mode == 1);
static_assert(Pusher::socketProperty.type == 8 && Pusher::socketProperty.mode == 0);
static_assert(Puller::socketProperty.type == 7 && Puller::socketProperty.mode == 1);
static_assert(Subscriber::socketProperty.type == 2 && Subscriber::socketProperty.mode == 0);

TEST(Node, AClientCallsAServer)
{
    Garden garden;
    const auto client = garden.client(2);
    const auto tree = proxyOf(*client, garden);
    EXPECT_EQ(tree.invoke<std::uint32_t>("add", std::uint32_t{7}), 7U);
    tree.invoke<void>("nothing");
    const std::string text(100'000, 'x');
    EXPECT_EQ(tree.invoke<std::string>("greet", text, std::uint8_t{1}), "hello " + text + ";");
    const auto leaf =
        tree.child(sample::branch, serializeToBuffer("left")).child(0, serializeToBuffer(std::uint32_t{1}));
    EXPECT_EQ(deserializeBytes<std::int32_t>(
                  leaf.call(StoreCommand::call, 2, serializeToBuffer(std::int32_t{0x20}, std::int32_t{10}))),
              42);
}

TEST(Node, ObserversHearOfChanges)
{
    Garden garden;
    ondra::Channel<ElementDescription> changes;
    const auto client = garden.client(2); // its report made it an observer
    client->dispatcher().setOnResponseMessageCommandCallback(StoreCommand::contentUpdate, [&](std::istream& stream) {
        for (auto& element : deserializeElement<std::vector<ElementDescription>>(stream))
            changes.enqueue(std::move(element));
    });
    const StoreRef ref = garden.server.store().insert("leaf", std::make_unique<sample::Leaf>());
    EXPECT_EQ(test::next(changes), (ElementDescription{ref, "sample::Leaf", "leaf", ElementDescription::added}));
    garden.server.store().erase(ref);
    EXPECT_EQ(test::next(changes), (ElementDescription{ref, "sample::Leaf", "leaf", ElementDescription::removed}));
}

TEST(Node, ObserversHearOfTheEnd)
{
    // A notification may get lost when a server goes, but not always.
    std::uint64_t closed = 0;
    for (int attempt = 0; attempt < 5 && closed == 0; ++attempt) {
        auto garden = std::make_unique<Garden>(7);
        ondra::Channel<std::uint64_t> ends;
        const auto client = garden->client(2);
        client->dispatcher().setOnResponseMessageCommandCallback(StoreCommand::storeClosed, [&](std::istream& stream) {
            ends.enqueue(deserializeElement<std::uint64_t>(stream));
        });
        garden.reset();
        ends.wait_dequeue_timed(closed, std::chrono::seconds(1));
    }
    EXPECT_EQ(closed, 7U);
}

TEST(Node, EndpointsThatCannotBeUsedAreReported)
{
    const Server first(anyPort, anyPort, 1);
    const struct {
        std::string sender;
        std::string receiver;
        const char* error;
    } rows[] = {
        {first.senderEndpoint(), anyPort, "Address already in use"},
        {anyPort, first.receiverEndpoint(), "Address already in use"},
        {"foo", anyPort, "Invalid argument"},
        {anyPort, "foo", "Invalid argument"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(test::errorOf([&] { Server(row.sender, row.receiver, 2); }), row.error);
    EXPECT_EQ(test::errorOf([] { Client("foo", "tcp://127.0.0.1:1", 2); }), "Invalid argument");
}

TEST(Node, AClientMayStartBeforeItsServer)
{
    std::string sender;
    std::string receiver;
    {
        const Server gone(anyPort, anyPort, 1);
        sender = gone.senderEndpoint();
        receiver = gone.receiverEndpoint();
    }
    Client client(receiver, sender, 2);
    EXPECT_EQ(getStoreContent(client.channel(), 1).wait_for(20ms), std::future_status::timeout);
    Server server(sender, receiver, 1);
    server.store().insert("leaf", std::make_unique<sample::Leaf>());
    test::waitUntilConnected(client, 1);
    EXPECT_EQ(getStoreContent(client.channel(), 1).get().at(0).name, "leaf");
}

TEST(Node, AServerThatIsGoneIsATimeout)
{
    auto garden = std::make_unique<Garden>();
    const auto client = garden->client(2);
    const auto tree = proxyOf(*client, *garden);
    garden.reset();
    EXPECT_EQ(test::errorOf([&] { tree.call(StoreCommand::call, 0, Bytes(4), 50ms); }), "RPC timeout!");
}

TEST(Node, FramesOtherThanTwoAreNoMessage)
{
    Garden garden;
    const auto client = garden.client(2);
    zmq::context_t context;
    zmq::socket_t push(context, zmq::socket_type::push);
    push.connect(garden.server.receiverEndpoint());
    push.send(messageFromString("1"), zmq::send_flags::none); // a single frame is ignored
    push.send(messageHeader(1), zmq::send_flags::sndmore);
    push.send(messageBody(ResponseMessage(2, "unknown")), zmq::send_flags::none);
    EXPECT_EQ(proxyOf(*client, garden).invoke<std::uint32_t>("add", std::uint32_t{1}), 1U);
    push.close();
}

TEST(Node, AMessageThatCannotBeDecodedEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto sendGarbage = [](const char* garbage) {
        Garden garden;
        zmq::context_t context;
        zmq::socket_t push(context, zmq::socket_type::push);
        push.connect(garden.server.receiverEndpoint());
        push.send(messageHeader(1), zmq::send_flags::sndmore);
        push.send(messageFromString(garbage), zmq::send_flags::none);
        std::this_thread::sleep_for(10s); // the process ends before
    };
    EXPECT_DEATH(sendGarbage("abc"), "Failed to read 4 bytes from input stream! Read 3");
    EXPECT_DEATH(sendGarbage("abcd"), "Invalid 'index' selector when deserializing std::variant");
}

TEST(Node, StoppingEndsTheThreadsAndKeepsTheObjects)
{
    Garden garden;
    const auto client = garden.client(2);
    const auto tree = proxyOf(*client, garden);
    garden.server.stop();
    garden.server.stop();
    EXPECT_EQ(garden.server.store().size(), 1U);
    std::future<Bytes> waiting = tree.callAsync(StoreCommand::call, 0, Bytes(4));
    EXPECT_EQ(waiting.wait_for(20ms), std::future_status::timeout);
    const auto begin = std::chrono::steady_clock::now();
    client->stop();
    EXPECT_THROW(waiting.get(), std::future_error); // at once, instead of a time-out
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST(Node, StoppingGetsThroughAnUnreachablePeer)
{
    // Far more messages than the socket keeps, to a port where nobody listens.
    Client client("tcp://127.0.0.1:1", "tcp://127.0.0.1:1", 2);
    for (int i = 0; i < nodeHighWaterMark + 1000; ++i)
        client.channel().enqueue(messages::Set{{0, {1, 0}, StoreCommand::set, 0}, {}});
    client.stop();
}

TEST(Node, SignalsDoNotDisturbIt)
{
    // A signal with a handler that does not restart calls, sent to the process while calls are under way.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGUSR1, &action, &before);
    Garden garden;
    const auto client = garden.client(2);
    const auto tree = proxyOf(*client, garden);
    for (std::uint32_t i = 1; i <= 50; ++i) {
        kill(getpid(), SIGUSR1);
        ASSERT_EQ(tree.invoke<std::uint32_t>("add", std::uint32_t{1}), i);
    }
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(Node, SignalsDoNotDisturbASendThatBlocks)
{
    // Whoever posts sends, and the socket to a port where nobody listens is full.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGUSR1, &action, &before);
    Client client("tcp://127.0.0.1:1", "tcp://127.0.0.1:1", 2);
    std::atomic<bool> done = false;
    std::thread disturber([&done, poster = pthread_self()] {
        for (; !done.load(); std::this_thread::sleep_for(1ms))
            pthread_kill(poster, SIGUSR1);
    });
    for (int i = 0; i <= nodeHighWaterMark; ++i)
        client.channel().post(messages::Set{{0, {1, 0}, StoreCommand::set, 0}, {}});
    done = true;
    disturber.join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(Node, EightClientsAtOnceLoseNothing)
{
    constexpr std::uint64_t clients = 8;
    constexpr std::uint32_t calls = 3000; // more than a socket keeps by default
    Garden garden;
    std::vector<std::future<std::uint64_t>> answered;
    for (std::uint64_t i = 0; i < clients; ++i)
        answered.push_back(std::async(std::launch::async, [&garden, i] {
            const auto client = garden.client(100 + i); // none is a prefix of another
            const auto tree = proxyOf(*client, garden);
            std::vector<std::future<Bytes>> underWay;
            for (std::uint32_t call = 0; call < calls; ++call)
                underWay.push_back(
                    tree.callAsync(StoreCommand::call, sample::add, serializeToBuffer(std::uint32_t{1})));
            std::uint64_t highest = 0;
            for (auto& answer : underWay)
                highest = std::max<std::uint64_t>(highest,
                                                  deserializeBytes<std::uint32_t>(remote::waitFor(std::move(answer))));
            return highest;
        }));
    std::uint64_t highest = 0;
    for (auto& answer : answered)
        highest = std::max(highest, answer.get());
    EXPECT_EQ(highest, clients * calls); // the last call of all saw every other one
}

TEST(Node, IdsThatArePrefixesCirculateAndStillWork)
{
    Garden garden(7);
    const auto twelve = garden.client(12);
    const auto tree = proxyOf(*twelve, garden);
    auto one = garden.client(1); // gets every answer for 12 too, and sends it back
    for (std::uint32_t i = 1; i <= 20; ++i)
        ASSERT_EQ(tree.invoke<std::uint32_t>("add", std::uint32_t{1}), i);
    EXPECT_EQ(proxyOf(*one, garden).invoke<std::uint32_t>("add", std::uint32_t{1}), 21U);
    one.reset(); // which ends the circulation
    EXPECT_EQ(tree.invoke<std::uint32_t>("add", std::uint32_t{1}), 22U);
}

TEST(Node, NodesComeAndGoUnderLoad)
{
    for (int round = 0; round < 10; ++round) {
        Garden garden;
        auto client = garden.client(2);
        std::thread caller([channel = &client->channel(), tree = garden.tree] {
            const remote::Element element(channel, tree);
            for (int i = 0; i < 200; ++i)
                element.callAsync(StoreCommand::call, sample::add, serializeToBuffer(std::uint32_t{1}));
        });
        garden.server.store().insert("leaf", std::make_unique<sample::Leaf>());
        if (round % 2 == 0)
            garden.server.stop();
        caller.join();
    }
}

} // namespace
