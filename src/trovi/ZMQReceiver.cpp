#include "trovi/ZMQReceiver.h"

#include <utility>

#include "util/SignalBlock.h"

namespace trovi {

ZMQReceiver::ZMQReceiver(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
                         std::chrono::milliseconds pollInterval, SocketProperties properties,
                         const std::string& subscription)
    : parser(parser), socket(openSocket(context, endpoint, properties)),
      endpoint_(socket.get(zmq::sockopt::last_endpoint))
{
    if (properties.mode == 0)
        socket.set(zmq::sockopt::subscribe, subscription);
    const util::SignalBlock block;
    thread = std::thread([this, pollInterval]() noexcept { poll(pollInterval); });
}

void ZMQReceiver::stop()
{
    running.store(false);
    if (thread.joinable())
        thread.join();
    socket.close();
}

void ZMQReceiver::poll(std::chrono::milliseconds timeout)
{
    // A receive with a time limit wakes with fewer system calls than a poll and then a receive.
    socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(timeout.count()));
    while (running.load()) {
        try {
            receiveOne();
        } catch (const zmq::error_t& error) {
            if (error.num() != EINTR)
                throw;
        }
    }
}

// One message of two frames, if one comes in time. One of a single frame is ignored; a third frame would pass for the
// header of the next message.
void ZMQReceiver::receiveOne()
{
    zmq::message_t header;
    if (!socket.recv(header))
        return;
    const bool more = header.more();
    parser.parseMessageHeader(std::move(header));
    if (!more)
        return;
    zmq::message_t body; // the frames of a message arrive together, so this one is there
    if (socket.recv(body))
        parser.parseMessageBody(std::move(body));
}

} // namespace trovi
