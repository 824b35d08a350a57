#pragma once
// Decodes the frames of a message and puts it on the channel of a node.

#include <zmq.hpp>

#include "trovi/MessageChannel.h"
#include "trovi/Messages.h"
#include "trovi/ZMQMessageParserInterface.h"

namespace trovi {

/// Decodes frame 2 and posts the message: an idle node handles it on the receiver's thread. Frame 1 was for the
/// subscription filter.
class DispatcherMessageParser final : public ZMQMessageParserInterface {
public:
    explicit DispatcherMessageParser(MessageChannel& channel) : channel(channel) {}
    void parseMessageHeader(zmq::message_t&&) override {}
    /// @throws cereal::Exception for a body that isn't a message
    void parseMessageBody(zmq::message_t&& frame) override { channel.post(deserializeZMQMessage(frame)); }

private:
    MessageChannel& channel;
};

} // namespace trovi
