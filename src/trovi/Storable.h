#pragma once
// What a store holds: an object that messages can be sent to.

#include <string>

#include "trovi/Messages.h"

namespace trovi {

class Storable {
public:
    virtual ~Storable() = default;
    /// Runs in the node's turn, under the store's mutex.
    virtual void receiveMsg(messages::Header header, Bytes&& buffer) = 0;
    virtual std::string getHeldTypeName() const = 0;
    virtual std::string getHeldName() const = 0;
};

} // namespace trovi
