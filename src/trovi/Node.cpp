#include "trovi/Node.h"

#include "util/SignalBlock.h"

namespace trovi {
namespace {

zmq::socket_t openSocket(zmq::context_t& context, const std::string& endpoint, SocketProperties properties)
{
    zmq::socket_t socket(context, static_cast<zmq::socket_type>(properties.type));
    // The limits hold for connections made after they are set, so they come before bind and connect.
    socket.set(zmq::sockopt::sndhwm, nodeHighWaterMark);
    socket.set(zmq::sockopt::rcvhwm, nodeHighWaterMark);
    socket.set(zmq::sockopt::sndtimeo, static_cast<int>(nodeSendTimeout.count()));
    if (properties.mode == 1)
        socket.bind(endpoint);
    else
        socket.connect(endpoint);
    socket.set(zmq::sockopt::linger, 0);
    return socket;
}

// Whoever posts a message may be the one who sends it, and may be interrupted by a signal meanwhile.
zmq::send_result_t sendThroughSignals(zmq::socket_t& socket, zmq::message_t& message, zmq::send_flags flags)
{
    const auto end = std::chrono::steady_clock::now() + nodeSendTimeout; // each attempt has the whole time anew
    for (;;) {
        try {
            return socket.send(message, flags);
        } catch (const zmq::error_t& error) {
            if (error.num() != EINTR)
                throw;
            if (std::chrono::steady_clock::now() >= end)
                return {};
        }
    }
}

} // namespace

ZMQSender::ZMQSender(zmq::context_t& context, const std::string& endpoint, SocketProperties properties)
    : socket_(openSocket(context, endpoint, properties))
{}

std::size_t ZMQSender::send(zmq::message_t message)
{
    return sendThroughSignals(socket_, message, zmq::send_flags::none).value_or(0);
}

std::size_t ZMQSender::sendMultipart(zmq::message_t header, zmq::message_t body)
{
    // A body whose header was not taken would pass for a header.
    const auto sent = sendThroughSignals(socket_, header, zmq::send_flags::sndmore);
    return sent ? *sent + send(std::move(body)) : 0;
}

ZMQReceiver::ZMQReceiver(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
                         std::chrono::milliseconds pollInterval, SocketProperties properties,
                         const std::string& subscription)
    : parser_(parser), socket_(openSocket(context, endpoint, properties)),
      endpoint_(socket_.get(zmq::sockopt::last_endpoint))
{
    if (properties.mode == 0)
        socket_.set(zmq::sockopt::subscribe, subscription);
    const util::SignalBlock block;
    thread_ = std::thread([this, pollInterval]() noexcept { poll(pollInterval); });
}

void ZMQReceiver::stop()
{
    running_.store(false);
    if (thread_.joinable())
        thread_.join();
}

void ZMQReceiver::poll(std::chrono::milliseconds timeout)
{
    // A receive with a time limit wakes with fewer system calls than a poll and then a receive.
    socket_.set(zmq::sockopt::rcvtimeo, static_cast<int>(timeout.count()));
    while (running_.load()) {
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
    if (!socket_.recv(header))
        return;
    const bool more = header.more();
    parser_.parseMessageHeader(std::move(header));
    if (!more)
        return;
    zmq::message_t body; // the frames of a message arrive together, so this one is there
    if (socket_.recv(body))
        parser_.parseMessageBody(std::move(body));
}

template <class Receiver, class Sender>
TroviNode<Receiver, Sender>::TroviNode(const std::string& senderEndpoint, const std::string& receiverEndpoint,
                                       std::uint64_t id, std::uint64_t pollIntervalMs)
    : store_(*channel_, id), forwarder_(context_, senderEndpoint), senderEndpoint_(forwarder_.endpoint()),
      parser_(*channel_), receiver_(context_, parser_, receiverEndpoint, std::chrono::milliseconds(pollIntervalMs), id),
      dispatcher_(id, *channel_, &forwarder_, &store_)
{}

template <class Receiver, class Sender>
void TroviNode<Receiver, Sender>::stop()
{
    if (!channel_->isOfThisProcess())
        return; // forked off: the threads are the parent's
    std::call_once(stopped_, [this] {
        for (const std::uint64_t observer : store_.getObserverNodes())
            channel_->post(
                messages::Response{observer, StoreCommand::storeClosed, serializeToBuffer("", dispatcher_.id())});
        dispatcher_.stop();
        receiver_.stop();
    });
}

template class TroviNode<Puller, Publisher>;
template class TroviNode<Subscriber, Pusher>;

} // namespace trovi
