#include "trovi/ZMQSender.h"

#include <chrono>
#include <utility>

namespace trovi {
namespace {

// The thread that posts a message may also send it, and a signal may interrupt it.
zmq::send_result_t sendThroughSignals(zmq::socket_t& socket, zmq::message_t& message, zmq::send_flags flags)
{
    const auto end = std::chrono::steady_clock::now() + nodeSendTimeout; // each attempt has the whole time anew
    for (;;) {
        try {
            return socket.send(message, flags);
        } catch (const zmq::error_t& error) {
            if (error.num() != EINTR)
                throw;
            if (std::chrono::steady_clock::now() >= end)
                return {};
        }
    }
}

} // namespace

ZMQSender::ZMQSender(zmq::context_t& context, const std::string& endpoint, SocketProperties properties)
    : socket(openSocket(context, endpoint, properties))
{}

std::size_t ZMQSender::send(zmq::message_t message)
{
    return sendThroughSignals(socket, message, zmq::send_flags::none).value_or(0);
}

std::size_t ZMQSender::sendMultipart(zmq::message_t header, zmq::message_t body)
{
    // A body whose header was not taken would pass for a header.
    const auto sent = sendThroughSignals(socket, header, zmq::send_flags::sndmore);
    return sent ? *sent + send(std::move(body)) : 0;
}

} // namespace trovi
