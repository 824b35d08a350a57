#pragma once
// Holds one object of class T in a store and runs the messages for it.

#include <memory>
#include <string>
#include <utility>

#include "trovi/Invoker.h"
#include "trovi/MessageChannel.h"
#include "trovi/Storable.h"

namespace trovi {

/// The object is owned or borrowed.
template <class T>
class StoreHolder final : public Storable {
public:
    StoreHolder(std::unique_ptr<T> object, MessageChannel* channel, std::string name)
        : owned(std::move(object)), object_(owned.get()), channel(channel), name(std::move(name))
    {}
    StoreHolder(T& borrowed, MessageChannel* channel, std::string name)
        : object_(&borrowed), channel(channel), name(std::move(name))
    {}

    T& object() { return *object_; }
    /// Releases the object; after that the holder may only be destroyed. Null for a borrowed object.
    std::unique_ptr<T> release() { return std::move(owned); }

    void receiveMsg(messages::Header header, Bytes&& buffer) override
    {
        ByteStream stream = sstreamFromBuffer(std::move(buffer));
        invoker::receive(*object_, *channel, header, stream);
    }
    std::string getHeldTypeName() const override { return std::string(typeName<T>()); }
    std::string getHeldName() const override { return name; }

private:
    std::unique_ptr<T> owned; // null for a borrowed object
    T* object_;
    MessageChannel* channel;
    std::string name;
};

} // namespace trovi
