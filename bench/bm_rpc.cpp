// A remote call over TCP loopback next to its floor: the same sockets and frames with the bare library, in the same
// run. Aim: the call's median at most 1.8 times the floor's, and at least 60,000 pipelined calls a second.
//
// The round trips of call and floor alternate, so that both see the same machine.

#include <algorithm>
#include <chrono>
#include <deque>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "trovi/Remote.h"
#include "trovi/TroviNode.h"

namespace {

struct Adder {
    std::uint32_t add(std::uint32_t value) { return sum += value; }
    std::uint32_t sum = 0;
};

} // namespace

namespace trovi {

template <>
constexpr auto registerMemberFunctions<Adder>()
{
    return functions(function("add", &Adder::add));
}

} // namespace trovi

namespace {

using namespace trovi;

/// A server node with an object, and a client node with the object's proxy.
class Call {
public:
    Call() { proxy_.bindMembersAndMethods(); }

    void waitUntilConnected()
    {
        while (getStoreContent(client_.channel(), 1).wait_for(std::chrono::milliseconds(50)) !=
               std::future_status::ready) {
        }
    }
    void roundTrip() { benchmark::DoNotOptimize(proxy_.invoke<std::uint32_t>("add", std::uint32_t{7})); }
    std::future<Bytes> begin() { return proxy_.callAsync(StoreCommand::call, 0, serializeToBuffer(std::uint32_t{7})); }

private:
    TroviNode<Puller, Publisher> server_{"tcp://127.0.0.1:*", "tcp://127.0.0.1:*", 1};
    TroviNode<Subscriber, Pusher> client_{server_.receiverEndpoint(), server_.senderEndpoint(), 2};
    remote::Class<Adder> proxy_{&client_.channel(), server_.store().insert("adder", std::make_unique<Adder>())};
};

/// The same sockets and frames of the same sizes, with one thread on each side.
class Floor {
public:
    Floor()
    {
        for (zmq::socket_t* socket : {&pull_, &pub_, &push_, &sub_}) {
            socket->set(zmq::sockopt::sndhwm, nodeHighWaterMark);
            socket->set(zmq::sockopt::rcvhwm, nodeHighWaterMark);
            socket->set(zmq::sockopt::linger, 0);
        }
        pull_.bind("tcp://127.0.0.1:*");
        pub_.bind("tcp://127.0.0.1:*");
        push_.connect(pull_.get(zmq::sockopt::last_endpoint));
        sub_.connect(pub_.get(zmq::sockopt::last_endpoint));
        sub_.set(zmq::sockopt::subscribe, "2");
        server_ = std::thread([this] { serve(); });
    }
    ~Floor()
    {
        push_.send(zmq::message_t(), zmq::send_flags::none);
        server_.join();
    }

    void waitUntilConnected()
    {
        sub_.set(zmq::sockopt::rcvtimeo, 50);
        do {
            begin();
        } while (!finish());
        while (finish()) { // answers to the attempts before
        }
        sub_.set(zmq::sockopt::rcvtimeo, -1);
    }
    void roundTrip()
    {
        begin();
        finish();
    }
    void begin()
    {
        push_.send(zmq::message_t("1", 1), zmq::send_flags::sndmore);
        push_.send(zmq::message_t(104), zmq::send_flags::none);
    }
    bool finish()
    {
        zmq::message_t topic;
        zmq::message_t body;
        return sub_.recv(topic).has_value() && sub_.recv(body).has_value();
    }

private:
    void serve()
    {
        for (zmq::message_t frame; pull_.recv(frame) && frame.more();) {
            (void)pull_.recv(frame);
            pub_.send(zmq::message_t("2", 1), zmq::send_flags::sndmore);
            pub_.send(zmq::message_t(72), zmq::send_flags::none);
        }
    }

    zmq::context_t serverContext_;
    zmq::context_t clientContext_;
    zmq::socket_t pull_{serverContext_, zmq::socket_type::pull};
    zmq::socket_t pub_{serverContext_, zmq::socket_type::pub};
    zmq::socket_t push_{clientContext_, zmq::socket_type::push};
    zmq::socket_t sub_{clientContext_, zmq::socket_type::sub};
    std::thread server_;
};

double percentile(std::vector<double>& sorted, double share)
{
    return sorted[std::min(sorted.size() - 1, static_cast<std::size_t>(share * static_cast<double>(sorted.size())))];
}

template <class Action>
double microseconds(Action action)
{
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

void roundTrip(benchmark::State& state)
{
    Call call;
    Floor floor;
    call.waitUntilConnected();
    floor.waitUntilConnected();
    std::vector<double> calls;
    std::vector<double> floors;
    for (auto _ : state) {
        floors.push_back(microseconds([&] { floor.roundTrip(); }));
        calls.push_back(microseconds([&] { call.roundTrip(); }));
    }
    std::sort(calls.begin(), calls.end());
    std::sort(floors.begin(), floors.end());
    state.counters["call p50 us"] = percentile(calls, 0.5);
    state.counters["call p99 us"] = percentile(calls, 0.99);
    state.counters["floor p50 us"] = percentile(floors, 0.5);
    state.counters["floor p99 us"] = percentile(floors, 0.99);
    state.counters["p50 ratio"] = percentile(calls, 0.5) / percentile(floors, 0.5);
    state.counters["p99 ratio"] = percentile(calls, 0.99) / percentile(floors, 0.99);
}

constexpr int underWay = 64;

void pipelinedCalls(benchmark::State& state)
{
    Call call;
    call.waitUntilConnected();
    std::deque<std::future<Bytes>> answers;
    for (auto _ : state) {
        if (answers.size() == underWay) {
            remote::waitFor(std::move(answers.front()));
            answers.pop_front();
        }
        answers.push_back(call.begin());
    }
    for (auto& answer : answers)
        remote::waitFor(std::move(answer));
    state.SetItemsProcessed(state.iterations());
}

void pipelinedFloor(benchmark::State& state)
{
    Floor floor;
    floor.waitUntilConnected();
    int sent = 0;
    for (auto _ : state) {
        if (sent == underWay)
            floor.finish();
        else
            ++sent;
        floor.begin();
    }
    for (; sent > 0; --sent)
        floor.finish();
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(roundTrip)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(pipelinedCalls)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(pipelinedFloor)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace
