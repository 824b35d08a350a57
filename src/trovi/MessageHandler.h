#pragma once
// Handles the messages of a channel: the dispatcher.

#include "trovi/Messages.h"

namespace trovi {

class MessageHandler {
public:
    virtual void handle(messages::Message&& message) = 0;

protected:
    ~MessageHandler() = default;
};

} // namespace trovi
