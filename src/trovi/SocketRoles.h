#pragma once
// The four sockets of the star: a server binds Publisher and Puller, a client connects Pusher and Subscriber.

#include <chrono>
#include <cstdint>
#include <string>

#include <zmq.hpp>

#include "trovi/ZMQReceiver.h"
#include "trovi/ZMQSender.h"

namespace trovi {

/// A server's way out.
class Publisher final : public ZMQSender {
public:
    static constexpr SocketProperties socketProperty{ZMQ_PUB, 1};
    Publisher(zmq::context_t& context, const std::string& endpoint) : ZMQSender(context, endpoint, socketProperty) {}
};

/// A client's way out.
class Pusher final : public ZMQSender {
public:
    static constexpr SocketProperties socketProperty{ZMQ_PUSH, 0};
    Pusher(zmq::context_t& context, const std::string& endpoint) : ZMQSender(context, endpoint, socketProperty) {}
};

/// A server's way in.
class Puller final : public ZMQReceiver {
public:
    static constexpr SocketProperties socketProperty{ZMQ_PULL, 1};
    Puller(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
           std::chrono::milliseconds pollInterval, std::uint64_t)
        : ZMQReceiver(context, parser, endpoint, pollInterval, socketProperty, "")
    {}
};

/// A client's way in: what is published under its id.
class Subscriber final : public ZMQReceiver {
public:
    static constexpr SocketProperties socketProperty{ZMQ_SUB, 0};
    Subscriber(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
               std::chrono::milliseconds pollInterval, std::uint64_t id)
        : ZMQReceiver(context, parser, endpoint, pollInterval, socketProperty, std::to_string(id))
    {}
};

} // namespace trovi
