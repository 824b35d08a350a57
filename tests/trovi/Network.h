#pragma once
// A described class with a chain of objects below it, and helpers for tests of nodes.

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "../ErrorOf.h"
#include "trovi/RPCFuture.h"
#include "trovi/Remote.h"
#include "trovi/TroviNode.h"

namespace sample {

class Leaf {
public:
    std::int32_t get() const { return value_; }
    void set(std::int32_t value) { value_ = value; }
    std::int32_t sum(std::int32_t a, std::int32_t b) const { return value_ + a + b; }

private:
    std::int32_t value_ = 0;
};

class Branch {
public:
    Leaf& leaf(std::uint32_t index) { return leaves_[index % 2]; }

private:
    Leaf leaves_[2];
};

class Tree {
public:
    std::uint32_t add(std::uint32_t value) { return sum_ += value; }
    std::string greet(const std::string& name, std::uint8_t times) const
    {
        std::string text;
        for (int i = 0; i < times; ++i)
            text += "hello " + name + ";";
        return text;
    }
    void nothing() noexcept {}
    Branch& branch(const std::string& name) { return name == "left" ? left_ : right_; }
    Tree& self() { return *this; }
    void fail() { throw std::runtime_error("the tree is ill"); }
    const Leaf& frozen() const { return frozen_; }

    std::uint32_t sum_ = 0;

private:
    Branch left_;
    Branch right_;
    Leaf frozen_;
};

/// A class whose description has a data member that leads on.
struct Pot {
    Leaf plant;
};

enum TreeFunction : std::uint64_t { add, greet, nothing, branch, self, fail, frozen };

} // namespace sample

namespace trovi {

template <>
constexpr auto registerMembers<sample::Leaf>()
{
    return members();
}
template <>
constexpr auto registerMemberFunctions<sample::Leaf>()
{
    return functions(function("get", &sample::Leaf::get), function("set", &sample::Leaf::set),
                     function("sum", &sample::Leaf::sum));
}
template <>
constexpr auto registerMemberFunctions<sample::Branch>()
{
    return functions(function("leaf", &sample::Branch::leaf));
}
template <>
constexpr auto registerMemberFunctions<sample::Tree>()
{
    using sample::Tree;
    return functions(function("add", &Tree::add), function("greet", &Tree::greet), function("nothing", &Tree::nothing),
                     function("branch", &Tree::branch), function("self", &Tree::self), function("fail", &Tree::fail),
                     function("frozen", &Tree::frozen));
}
template <>
constexpr auto registerMembers<sample::Pot>()
{
    return members(member("plant", &sample::Pot::plant));
}

} // namespace trovi

namespace test {

using Server = trovi::TroviNode<trovi::Puller, trovi::Publisher>;
using Client = trovi::TroviNode<trovi::Subscriber, trovi::Pusher>;

inline const char* anyPort = "tcp://127.0.0.1:*";

/// Waits until answers reach the client: what is published before its subscription arrives is lost.
inline void waitUntilConnected(Client& client, std::uint64_t storeId)
{
    while (trovi::getStoreContent(client.channel(), storeId).wait_for(std::chrono::milliseconds(20)) !=
           std::future_status::ready) {
    }
}

/// A server with a tree in its store, and its clients' way to it.
class Garden {
public:
    explicit Garden(std::uint64_t id = 1) : server(anyPort, anyPort, id) {}

    std::unique_ptr<Client> client(std::uint64_t id) const
    {
        auto made = std::make_unique<Client>(server.receiverEndpoint(), server.senderEndpoint(), id);
        waitUntilConnected(*made, server.id());
        return made;
    }

    Server server;
    trovi::StoreRef tree = server.store().insert("tree", std::make_unique<sample::Tree>());
};

/// The next item of a channel; none after ten seconds.
template <class T>
std::optional<T> next(ondra::Channel<T>& channel)
{
    T item;
    return channel.wait_dequeue_timed(item, std::chrono::seconds(10)) ? std::optional<T>(std::move(item))
                                                                      : std::nullopt;
}

} // namespace test
