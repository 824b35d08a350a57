#pragma once
// Sends the messages of a node that are for other nodes.

#include <cstdint>
#include <string>

#include <zmq.hpp>

#include "trovi/MessageForwarderInterface.h"

namespace trovi {

/// Threads: as its Sender.
template <class Sender>
class ZMQMessageForwarder final : public MessageForwarderInterface {
public:
    ZMQMessageForwarder(zmq::context_t& context, const std::string& endpoint) : sender(context, endpoint) {}
    void forward(std::uint64_t destination, messages::Message&& message) override
    {
        sender.sendMultipart(messageHeader(destination), messageBody(message));
    }
    std::string endpoint() const { return sender.endpoint(); }
    void close() { sender.close(); }

private:
    Sender sender;
};

} // namespace trovi
