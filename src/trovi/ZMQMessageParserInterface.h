#pragma once
// Takes the frames of a message off a receiver's thread.

#include <zmq.hpp>

namespace trovi {

class ZMQMessageParserInterface {
public:
    virtual void parseMessageHeader(zmq::message_t&& frame) = 0;
    virtual void parseMessageBody(zmq::message_t&& frame) = 0;
    virtual ~ZMQMessageParserInterface() = default;
};

} // namespace trovi
