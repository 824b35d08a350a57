// The floor of a remote call between two processes: the same sockets and frames of the same sizes, with bare libzmq and
// nothing behind them. bench/python/rpc.py runs it.
//
//   rpc_floor serve PULL_ENDPOINT PUB_ENDPOINT
//   rpc_floor call PUSH_ENDPOINT SUB_ENDPOINT COUNT     prints the round trips' microseconds, one per line

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <zmq.hpp>

namespace {

constexpr std::size_t requestSize = 100; // a call without arguments: header, return address, uuid
constexpr std::size_t replySize = 72;    // its answer with two 16-bit numbers

void serve(const char* in, const char* out)
{
    zmq::context_t context;
    zmq::socket_t pull(context, ZMQ_PULL);
    zmq::socket_t pub(context, ZMQ_PUB);
    pull.bind(in);
    pub.bind(out);
    zmq::message_t frame;
    for (;;) {
        static_cast<void>(pull.recv(frame));
        static_cast<void>(pull.recv(frame));
        if (frame.size() == 0)
            return;
        zmq::message_t topic("2", 1);
        zmq::message_t reply(replySize);
        pub.send(topic, zmq::send_flags::sndmore);
        pub.send(reply, zmq::send_flags::none);
    }
}

class Caller {
public:
    Caller(const char* out, const char* in) : push(context, ZMQ_PUSH), sub(context, ZMQ_SUB)
    {
        push.set(zmq::sockopt::linger, 1000);
        push.connect(out);
        sub.connect(in);
        sub.set(zmq::sockopt::subscribe, "2");
    }
    void send(std::size_t size)
    {
        zmq::message_t topic("1", 1);
        zmq::message_t request(size);
        push.send(topic, zmq::send_flags::sndmore);
        push.send(request, zmq::send_flags::none);
    }
    bool receive()
    {
        zmq::message_t frame;
        return sub.recv(frame) && sub.recv(frame);
    }
    void connect()
    {
        sub.set(zmq::sockopt::rcvtimeo, 50);
        do
            send(requestSize);
        while (!receive());
        while (receive()) {
        }
        sub.set(zmq::sockopt::rcvtimeo, -1);
    }

private:
    zmq::context_t context;
    zmq::socket_t push;
    zmq::socket_t sub;
};

void call(const char* out, const char* in, int count)
{
    using Clock = std::chrono::steady_clock;
    Caller caller(out, in);
    caller.connect();
    for (int i = 0; i < count; ++i) {
        const auto begin = Clock::now();
        caller.send(requestSize);
        caller.receive();
        std::printf("%.3f\n", std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    caller.send(0);
}

} // namespace

int main(int count, char** arguments)
{
    const std::string_view what = count > 1 ? arguments[1] : "";
    if (what == "serve" && count == 4)
        serve(arguments[2], arguments[3]);
    else if (what == "call" && count == 5)
        call(arguments[2], arguments[3], std::atoi(arguments[4]));
    else
        return std::fputs("rpc_floor serve PULL PUB | call PUSH SUB COUNT\n", stderr), 2;
    return 0;
}
