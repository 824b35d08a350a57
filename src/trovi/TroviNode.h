#pragma once
// Nodes and how they are connected: a star. A server binds a PULL socket, for requests, and a PUB socket, on which it
// publishes answers and notifications; a client connects PUSH and SUB and subscribes to its own id.
//
// A subscription is a prefix filter: a client with id 1 also gets what is for 10, 11, 12..., sees that it isn't its own
// and sends it back to the server, which publishes it again, for as long as both live. Choose ids of which none is a
// prefix of another.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <zmq.hpp>

#include "trovi/Dispatcher.h"
#include "trovi/DispatcherMessageParser.h"
#include "trovi/MessageChannel.h"
#include "trovi/SocketRoles.h"
#include "trovi/Store.h"
#include "trovi/ZMQMessageForwarder.h"

namespace trovi {

/// A node: TroviNode<Puller, Publisher> is a server, TroviNode<Subscriber, Pusher> a client. For a client to reach a
/// server, its sender endpoint is the server's receiver endpoint and its receiver endpoint the server's sender
/// endpoint.
///
/// Threads: the receiver's and the dispatcher's, started by the constructor, and the library's own. stop() ends them
/// all; it, and the destructor, must not be called on any of them. A derived class calls stop() in its own destructor
/// when the dispatcher's callbacks, or its stopObjects(), use its members. Construction and stopping may wait: do not
/// hold the Python interpreter's lock.
template <class Receiver, class Sender>
class TroviNode {
public:
    /// @param id              of the node and its store
    /// @param pollIntervalMs  longest time that stopping waits for the receiver
    /// @throws zmq::error_t with the library's text when an endpoint is malformed or in use
    TroviNode(const std::string& senderEndpoint, const std::string& receiverEndpoint, std::uint64_t id,
              std::uint64_t pollIntervalMs = 100);
    virtual ~TroviNode() { stop(); }
    TroviNode(const TroviNode&) = delete;
    TroviNode& operator=(const TroviNode&) = delete;

    /// Notifies the observers that the store closes and ends the dispatcher and the receiver, then closes the sockets,
    /// destroys the objects of the store and frees the endpoints. The last notifications go out only if the library
    /// gets to them before their socket closes. Calls that wait for an answer end with a broken promise. Does nothing a
    /// second time, but waits until the first is done.
    /// Threads: thread-safe.
    void stop();

    Store& store() { return store_; }
    MessageChannel& channel() { return *channel_; }
    /// For owners that may outlive the node: a stopped node drops what is enqueued.
    std::shared_ptr<MessageChannel> sharedChannel() const { return channel_; }
    Dispatcher& dispatcher() { return dispatcher_; }
    std::uint64_t id() const { return store_.id(); }
    /// The endpoints, with the ports that the system chose for "tcp://...:*".
    const std::string& senderEndpoint() const { return senderEndpoint_; }
    const std::string& receiverEndpoint() const { return receiver.endpoint(); }

protected:
    /// Part of stop(): runs when no message is handled any more, before the objects of the store are destroyed.
    virtual void stopObjects() {}

private:
    // Each uses those above it, so stop() works from the end: the threads, the sockets, the store with the objects and
    // their threads, and the context last.
    zmq::context_t context;
    std::shared_ptr<MessageChannel> channel_ = std::make_shared<MessageChannel>();
    Store store_;
    ZMQMessageForwarder<Sender> forwarder;
    std::string senderEndpoint_; // read before the socket is used in turns
    DispatcherMessageParser parser;
    Receiver receiver;
    Dispatcher dispatcher_;
    std::once_flag stopped;
};

extern template class TroviNode<Puller, Publisher>;
extern template class TroviNode<Subscriber, Pusher>;

} // namespace trovi
