#pragma once
// Nodes and how they are connected: a star. A server binds a PULL socket, for requests, and a PUB socket, on which it
// publishes answers and notifications; a client connects PUSH and SUB and subscribes to its own id.
//
// A subscription is a prefix filter: a client with id 1 also gets what is for 10, 11, 12..., sees that it isn't its own
// and sends it back to the server, which publishes it again, for as long as both live. Choose ids of which none is a
// prefix of another.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <zmq.hpp>

#include "trovi/Dispatcher.h"
#include "trovi/Messages.h"
#include "trovi/Store.h"

namespace trovi {

/// Messages that a socket keeps for a peer before it blocks (PUSH) or drops (PUB). With the library's 1000, answers
/// were lost under pipelined calls.
inline constexpr int nodeHighWaterMark = 100'000;

/// A sender that blocks gives up after this time, and the message is lost; without a limit a client whose server died
/// could never stop.
inline constexpr std::chrono::milliseconds nodeSendTimeout{1000};

struct SocketProperties {
    std::int32_t type; ///< the library's number of the socket type
    std::int32_t mode; ///< 0: connect, 1: bind
};

/// Threads: thread-bound; the socket may be made on one thread and then used on one other.
class ZMQSender {
public:
    /// @throws zmq::error_t with the library's text when the endpoint is malformed or in use
    ZMQSender(zmq::context_t& context, const std::string& endpoint, SocketProperties properties);
    virtual ~ZMQSender() = default;
    ZMQSender(const ZMQSender&) = delete;
    ZMQSender& operator=(const ZMQSender&) = delete;

    /// @return the number of bytes that were taken; 0 when the socket would block, and the message is then lost
    /// @throws zmq::error_t for any other failure
    std::size_t send(zmq::message_t message);
    /// Sends both frames, or none when the socket would block.
    std::size_t sendMultipart(zmq::message_t header, zmq::message_t body);

    /// The endpoint that was bound or connected last, with the port that the system chose for "tcp://...:*".
    std::string endpoint() const { return socket_.get(zmq::sockopt::last_endpoint); }

private:
    zmq::socket_t socket_;
};

/// Takes the frames of a message off a receiver's thread.
class ZMQMessageParserInterface {
public:
    virtual void parseMessageHeader(zmq::message_t&& frame) = 0;
    virtual void parseMessageBody(zmq::message_t&& frame) = 0;
    virtual ~ZMQMessageParserInterface() = default;
};

/// Decodes frame 2 and posts the message: an idle node acts on it on the receiver's thread. Frame 1 was for the
/// subscription filter.
class DispatcherMessageParser final : public ZMQMessageParserInterface {
public:
    explicit DispatcherMessageParser(MessageChannel& channel) : channel_(channel) {}
    void parseMessageHeader(zmq::message_t&&) override {}
    /// @throws cereal::Exception for a body that is no message
    void parseMessageBody(zmq::message_t&& frame) override { channel_.post(deserializeZMQMessage(frame)); }

private:
    MessageChannel& channel_;
};

/// Threads: the constructor starts a thread that alone uses the socket from then on. An exception on it (a message
/// that can't be decoded, a failure of the library) ends the process with its text.
class ZMQReceiver {
public:
    /// @param pollInterval  longest time until stop() is noticed; a message is taken at once
    /// @param subscription  prefix of the topics that are wanted; used by a connecting receiver alone
    /// @throws zmq::error_t with the library's text when the endpoint is malformed or in use
    ZMQReceiver(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
                std::chrono::milliseconds pollInterval, SocketProperties properties, const std::string& subscription);
    virtual ~ZMQReceiver() { stop(); }
    ZMQReceiver(const ZMQReceiver&) = delete;
    ZMQReceiver& operator=(const ZMQReceiver&) = delete;

    /// Ends and joins the thread, within one poll interval. Does nothing a second time.
    void stop();
    /// As ZMQSender::endpoint.
    const std::string& endpoint() const { return endpoint_; }

private:
    void poll(std::chrono::milliseconds timeout);
    void receiveOne();

    ZMQMessageParserInterface& parser_;
    zmq::socket_t socket_;
    std::string endpoint_;
    std::atomic<bool> running_ = true;
    std::thread thread_;
};

/// A server's way out.
class Publisher final : public ZMQSender {
public:
    static constexpr SocketProperties socketProperty{ZMQ_PUB, 1};
    Publisher(zmq::context_t& context, const std::string& endpoint) : ZMQSender(context, endpoint, socketProperty) {}
};

/// A client's way out.
class Pusher final : public ZMQSender {
public:
    static constexpr SocketProperties socketProperty{ZMQ_PUSH, 0};
    Pusher(zmq::context_t& context, const std::string& endpoint) : ZMQSender(context, endpoint, socketProperty) {}
};

/// A server's way in.
class Puller final : public ZMQReceiver {
public:
    static constexpr SocketProperties socketProperty{ZMQ_PULL, 1};
    Puller(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
           std::chrono::milliseconds pollInterval, std::uint64_t)
        : ZMQReceiver(context, parser, endpoint, pollInterval, socketProperty, "")
    {}
};

/// A client's way in: what is published under its id.
class Subscriber final : public ZMQReceiver {
public:
    static constexpr SocketProperties socketProperty{ZMQ_SUB, 0};
    Subscriber(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
               std::chrono::milliseconds pollInterval, std::uint64_t id)
        : ZMQReceiver(context, parser, endpoint, pollInterval, socketProperty, std::to_string(id))
    {}
};

template <class Sender>
class ZMQMessageForwarder final : public MessageForwarderInterface {
public:
    ZMQMessageForwarder(zmq::context_t& context, const std::string& endpoint) : sender_(context, endpoint) {}
    void forward(std::uint64_t destination, messages::Message&& message) override
    {
        sender_.sendMultipart(messageHeader(destination), messageBody(message));
    }
    std::string endpoint() const { return sender_.endpoint(); }

private:
    Sender sender_;
};

/// A node: TroviNode<Puller, Publisher> is a server, TroviNode<Subscriber, Pusher> a client. For a client to reach a
/// server, its sender endpoint is the server's receiver endpoint and its receiver endpoint the server's sender
/// endpoint.
///
/// Threads: the receiver's and the dispatcher's, started by the constructor, and the library's own. stop() ends the
/// two; it, and the destructor, must not be called on either. A derived class whose members are used by the
/// dispatcher's callbacks calls stop() in its own destructor, before they go. Construction and destruction may wait,
/// and need no lock of anyone; do not hold the Python interpreter's.
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

    /// Tells the observers that the store closes, then ends the dispatcher and the receiver. The last notifications
    /// go out only if the dispatcher gets to them before it sees that it shall end. Objects in the store live on, and
    /// calls that wait for an answer end with a broken promise. Does nothing a second time.
    /// Threads: thread-safe.
    void stop();

    Store& store() { return store_; }
    MessageChannel& channel() { return *channel_; }
    /// For who may outlive the node: what is then enqueued gets no answer.
    std::shared_ptr<MessageChannel> sharedChannel() const { return channel_; }
    Dispatcher& dispatcher() { return dispatcher_; }
    std::uint64_t id() const { return store_.id(); }
    /// The endpoints in use, with the ports that the system chose for "tcp://...:*".
    const std::string& senderEndpoint() const { return senderEndpoint_; }
    const std::string& receiverEndpoint() const { return receiver_.endpoint(); }

private:
    // Each stands on those above it, and destruction goes from the end: the threads first, then the sockets, then the
    // store with the objects and their threads, and the context last.
    zmq::context_t context_;
    std::shared_ptr<MessageChannel> channel_ = std::make_shared<MessageChannel>();
    Store store_;
    ZMQMessageForwarder<Sender> forwarder_;
    std::string senderEndpoint_; // asked for before the socket is used in turns
    DispatcherMessageParser parser_;
    Receiver receiver_;
    Dispatcher dispatcher_;
    std::once_flag stopped_;
};

extern template class TroviNode<Puller, Publisher>;
extern template class TroviNode<Subscriber, Pusher>;

} // namespace trovi
