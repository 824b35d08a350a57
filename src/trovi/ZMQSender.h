#pragma once
// A node's socket for sending.

#include <cstddef>
#include <string>

#include <zmq.hpp>

#include "trovi/SocketProperties.h"

namespace trovi {

/// Threads: thread-bound; the socket may be made on one thread and then used on one other.
class ZMQSender {
public:
    /// @throws as openSocket
    ZMQSender(zmq::context_t& context, const std::string& endpoint, SocketProperties properties);
    virtual ~ZMQSender() = default;
    ZMQSender(const ZMQSender&) = delete;
    ZMQSender& operator=(const ZMQSender&) = delete;

    /// @return the number of bytes that were taken; 0 when the socket would block, and the message is then lost
    /// @throws zmq::error_t for any other failure
    std::size_t send(zmq::message_t message);
    /// Sends both frames, or none when the socket would block.
    std::size_t sendMultipart(zmq::message_t header, zmq::message_t body);

    /// The endpoint that was bound or connected last, with the port that the system chose for "tcp://...:*".
    std::string endpoint() const { return socket.get(zmq::sockopt::last_endpoint); }

    /// Closes the socket and drops what is unsent. Nothing else may be called afterwards.
    void close() { socket.close(); }

private:
    zmq::socket_t socket;
};

} // namespace trovi
