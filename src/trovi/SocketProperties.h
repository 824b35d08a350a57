#pragma once
// The sockets of nodes, and the limits that they share.

#include <chrono>
#include <cstdint>
#include <string>

#include <zmq.hpp>

namespace trovi {

/// Messages that a socket keeps for a peer before it blocks (PUSH) or drops (PUB). With the library's 1000, answers
/// were lost under pipelined calls.
inline constexpr int nodeHighWaterMark = 100'000;

/// A sender that blocks gives up after this time, and the message is lost; without a limit a client whose server died
/// could never stop.
inline constexpr std::chrono::milliseconds nodeSendTimeout{1000};

struct SocketProperties {
    std::int32_t type; ///< the library's number of the socket type
    std::int32_t mode; ///< 0: connect, 1: bind
};

/// A socket with these limits, bound or connected to `endpoint`. Closing it drops what is unsent.
/// @throws zmq::error_t with the library's text when the endpoint is malformed or in use
zmq::socket_t openSocket(zmq::context_t& context, const std::string& endpoint, SocketProperties properties);

} // namespace trovi
