#pragma once
// The node with typed channels: it owns the channel that it reads and holds weak pointers to those it writes to. So a
// node that is destroyed needs no unsubscribing: its senders drop the dead pointer at their next send.
//
//   class Doubler : public ondra::FilterInterface<int, int> {
//       void apply() override
//       {
//           int value;
//           while (inputChannel->try_dequeue(value))
//               forwardResult(2 * value);
//       }
//   };

#include <any>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "ondra/Channel.h"
#include "ondra/NodeInterface.h"
#include "ondra/detail/LiveInputs.h"

namespace ondra {

namespace detail {

struct Nothing {};

template <class In>
using OwnChannel = std::conditional_t<std::is_void_v<In>, Nothing, std::shared_ptr<Channel<In>>>;
template <class Out>
using Destinations = std::conditional_t<std::is_void_v<Out>, Nothing, std::vector<std::weak_ptr<Channel<Out>>>>;

} // namespace detail

/// In and Out are the element types of the channels, void for a node without input or without output.
///
/// Threads: any thread may send into the channel, and one reads it. `destinations` has no lock: in a graph, connecting
/// and apply() exclude each other by the graph's lock; elsewhere the owner must do so.
template <class In, class Out>
class FilterInterface : public NodeInterface {
public:
    FilterInterface()
    {
        if constexpr (!std::is_void_v<In>) {
            inputChannel = std::make_shared<Channel<In>>();
            inputHandle = std::weak_ptr<Channel<In>>(inputChannel);
            detail::LiveInputs::getInstance().add(&inputHandle);
        }
    }
    ~FilterInterface() override
    {
        if constexpr (!std::is_void_v<In>)
            detail::LiveInputs::getInstance().remove(&inputHandle);
    }

    const std::any* getInputChannel() const override { return &inputHandle; }
    bool connectTo(NodeInterface& destination) override { return addDestination(destination.getInputChannel()); }
    bool disconnectFrom(NodeInterface& destination) override
    {
        return removeDestination(destination.getInputChannel());
    }

    bool addDestination([[maybe_unused]] const std::any* channel) override
    {
        if constexpr (std::is_void_v<Out>) {
            return false;
        } else {
            auto destination = parseDestinationChannel(channel);
            if (destination.expired())
                return false;
            destinations.push_back(std::move(destination));
            return true;
        }
    }

    bool removeDestination([[maybe_unused]] const std::any* channel) override
    {
        if constexpr (std::is_void_v<Out>) {
            return false;
        } else {
            const auto unwanted = parseDestinationChannel(channel);
            return std::erase_if(destinations, [&](const auto& destination) {
                       return !destination.owner_before(unwanted) && !unwanted.owner_before(destination);
                   }) > 0;
        }
    }

protected:
    /// The pointer in `channel`, or an empty one when it is null or of another element type.
    auto parseDestinationChannel(const std::any* channel) const requires(!std::is_void_v<Out>)
    {
        const auto* destination = std::any_cast<std::weak_ptr<Channel<Out>>>(channel);
        return destination ? *destination : std::weak_ptr<Channel<Out>>();
    }

    /// Enqueues `result` into each destination that lives, in order of connection, and forgets the others. A batch is a
    /// shared pointer: every destination gets the same vector. When memory runs out, a destination misses the batch.
    template <class Result>
    void forwardResult(Result&& result) requires(!std::is_void_v<Out>)
    {
        for (std::size_t i = 0; i < destinations.size(); ++i)
            if (const auto channel = destinations[i].lock()) {
                if (i + 1 < destinations.size())
                    channel->enqueue(result);
                else
                    channel->enqueue(std::forward<Result>(result));
            }
        removeExpiredDestinations();
    }

    void removeExpiredDestinations() requires(!std::is_void_v<Out>)
    {
        std::erase_if(destinations, [](const auto& destination) { return destination.expired(); });
    }

    [[no_unique_address]] detail::OwnChannel<In> inputChannel;
    [[no_unique_address]] detail::Destinations<Out> destinations;
    std::any inputHandle; ///< a weak pointer to inputChannel
};

} // namespace ondra
