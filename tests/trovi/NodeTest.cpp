#include <csignal>
#include <latch>
#include <numeric>
#include <pthread.h>

#include <gmock/gmock.h>

#include "Network.h"
#include "Sample.h"
#include "trovi/TroviNode.h"

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
    const std::string text(100'000, 'x');
    EXPECT_EQ(tree.invoke<std::string>("greet", text, std::uint8_t{1}), "hello " + text + ";");
    const auto leaf =
        tree.child(sample::branch, serializeToBuffer("left")).child(0, serializeToBuffer(std::uint32_t{1}));
    EXPECT_EQ(deserializeBytes<std::int32_t>(
                  leaf.call(StoreCommand::call, 2, serializeToBuffer(std::int32_t{0x20}, std::int32_t{10}))),
              42);
}

TEST(Node, EndpointsThatCannotBeUsedAreReported)
{
    const Server first(anyPort, anyPort, 1);
    const std::tuple<std::string, std::string, const char*> rows[] = {
        {first.senderEndpoint(), anyPort, "Address already in use"},
        {anyPort, first.receiverEndpoint(), "Address already in use"},
        {"foo", anyPort, "Invalid argument"},
        {anyPort, "foo", "Invalid argument"},
    };
    for (const auto& [sender, receiver, error] : rows)
        EXPECT_EQ(errorOf([&, s = sender, r = receiver] { Server(s, r, 2); }), error);
    EXPECT_EQ(errorOf([] { Client("foo", "tcp://127.0.0.1:1", 2); }), "Invalid argument");
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

TEST(Node, StoppingEndsTheThreadsDestroysTheObjectsAndFreesTheEndpoints)
{
    Garden garden;
    const auto client = garden.client(2);
    const auto tree = proxyOf(*client, garden);
    garden.server.stop();
    garden.server.stop();
    EXPECT_EQ(garden.server.store().size(), 0U);
    EXPECT_EQ(errorOf([&] { garden.server.store().insert("late", std::make_unique<sample::Leaf>()); }),
              "The store is closed: its node was stopped.");
    for (int i = 0; i < 10; ++i)
        Server(garden.server.senderEndpoint(), garden.server.receiverEndpoint(), 3).stop();
    std::future<Bytes> waiting = tree.callAsync(StoreCommand::call, 0, Bytes(4));
    EXPECT_EQ(waiting.wait_for(20ms), std::future_status::timeout);
    const auto begin = std::chrono::steady_clock::now();
    client->stop();
    EXPECT_THROW(waiting.get(), std::future_error); // at once, instead of a time-out
    EXPECT_THROW(tree.call(StoreCommand::call, 0, Bytes(4)), std::future_error);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

/// Blocks its receiver at the first message.
struct StuckParser final : ZMQMessageParserInterface {
    void parseMessageHeader(zmq::message_t&&) override { goOn.wait(); }
    void parseMessageBody(zmq::message_t&&) override {}
    std::latch goOn{1};
};

TEST(Node, SocketsKeepFarMoreMessagesThanByTheLibrarysDefault)
{
    constexpr int messages = 50'000;
    zmq::context_t context;
    const auto peer = [&](zmq::socket_type type, int mode, const char* endpoint) {
        zmq::socket_t socket(context, type);
        socket.set(zmq::sockopt::sndhwm, 1); // over inproc, the limits of both sides add up
        socket.set(zmq::sockopt::rcvhwm, 1);
        socket.set(zmq::sockopt::linger, 0);
        mode == 1 ? socket.bind(endpoint) : socket.connect(endpoint);
        return socket;
    };
    const zmq::socket_t idle = peer(zmq::socket_type::pull, 1, "inproc://idle");
    Pusher pusher(context, "inproc://idle");
    int sent = 0;
    while (sent < messages && pusher.send(messageFromString("x")) != 0)
        ++sent;
    EXPECT_EQ(sent, messages);

    StuckParser stuck;
    Puller puller(context, stuck, "inproc://stuck", 100ms, 1);
    zmq::socket_t flood = peer(zmq::socket_type::push, 0, "inproc://stuck");
    sent = 0;
    while (sent < messages && flood.send(messageFromString("x"), zmq::send_flags::dontwait))
        ++sent;
    EXPECT_EQ(sent, messages);
    stuck.goOn.count_down();
}

TEST(Node, SignalsDisturbNeitherCallsNorASendThatBlocks)
{
    // A signal with a handler that does not restart calls, sent to the thread that calls and sends.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGUSR1, &action, &before);
    std::atomic<bool> done = false;
    std::thread disturber([&done, poster = pthread_self()] {
        for (; !done.load(); std::this_thread::sleep_for(1ms))
            pthread_kill(poster, SIGUSR1);
    });
    Garden garden;
    const auto client = garden.client(2);
    const auto tree = proxyOf(*client, garden);
    for (std::uint32_t i = 1; i <= 50; ++i)
        EXPECT_EQ(tree.invoke<std::uint32_t>("add", std::uint32_t{1}), i);
    // The thread that posts also sends, and the socket to a port where nobody listens is full. stop() still returns.
    Client lonely("tcp://127.0.0.1:1", "tcp://127.0.0.1:1", 2);
    for (int i = 0; i <= nodeHighWaterMark; ++i)
        lonely.channel().post(messages::Set{{0, {1, 0}, StoreCommand::set, 0}, {}});
    for (int i = 0; i < 1000; ++i)
        lonely.channel().enqueue(messages::Set{{0, {1, 0}, StoreCommand::set, 0}, {}});
    lonely.stop();
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
    const auto one = garden.client(1); // gets every answer for 12 too, and sends it back
    for (std::uint32_t i = 1; i <= 20; ++i)
        ASSERT_EQ(tree.invoke<std::uint32_t>("add", std::uint32_t{1}), i);
    EXPECT_EQ(proxyOf(*one, garden).invoke<std::uint32_t>("add", std::uint32_t{1}), 21U);
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
