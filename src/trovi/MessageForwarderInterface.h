#pragma once
// A node's way out to other nodes.

#include <cstdint>

#include "trovi/Messages.h"

namespace trovi {

class MessageForwarderInterface {
public:
    virtual void forward(std::uint64_t destination, messages::Message&& message) = 0;
    virtual ~MessageForwarderInterface() = default;
};

} // namespace trovi
