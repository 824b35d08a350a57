#include "trovi/TroviNode.h"

#include <chrono>

namespace trovi {

template <class Receiver, class Sender>
TroviNode<Receiver, Sender>::TroviNode(const std::string& senderEndpoint, const std::string& receiverEndpoint,
                                       std::uint64_t id, std::uint64_t pollIntervalMs)
    : store_(*channel_, id), forwarder(context, senderEndpoint), senderEndpoint_(forwarder.endpoint()),
      parser(*channel_), receiver(context, parser, receiverEndpoint, std::chrono::milliseconds(pollIntervalMs), id),
      dispatcher_(id, *channel_, &forwarder, &store_)
{}

template <class Receiver, class Sender>
void TroviNode<Receiver, Sender>::stop()
{
    if (!channel_->isOfThisProcess())
        return; // forked off: the threads are the parent's
    std::call_once(stopped, [this] {
        for (const std::uint64_t observer : store_.getObserverNodes())
            channel_->post(
                messages::Response{observer, StoreCommand::storeClosed, serializeToBuffer("", dispatcher_.id())});
        dispatcher_.stop();
        receiver.stop();
        forwarder.close();
        stopObjects();
        store_.close();
        context.close(); // returns when the library has given the endpoints back
    });
}

template class TroviNode<Puller, Publisher>;
template class TroviNode<Subscriber, Pusher>;

} // namespace trovi
