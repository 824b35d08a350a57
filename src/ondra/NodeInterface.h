#pragma once
// A unit of work in a graph. It has at most one input channel of its own and sends to the input channels of others.
// The interface does not know what moves through a channel, so any two nodes can be offered to each other.

#include <any>

namespace ondra {

class NodeInterface {
public:
    NodeInterface() = default;
    NodeInterface(const NodeInterface&) = delete;
    NodeInterface& operator=(const NodeInterface&) = delete;
    virtual ~NodeInterface() = default;

    /// One step of the node's work, called by whatever runs the graph. Sources have none.
    virtual void apply() {}

    /// The node's type-erased input, a weak pointer to its channel; empty in a source. Never null, and good for as long
    /// as the node lives.
    virtual const std::any* getInputChannel() const = 0;

    /// addDestination() of `destination`'s input.
    virtual bool connectTo(NodeInterface& destination) = 0;
    /// removeDestination() of `destination`'s input.
    virtual bool disconnectFrom(NodeInterface& destination) = 0;

    /// From now on results go to this channel too. A channel added twice receives everything twice.
    /// @return false, and nothing is changed, for null, for a channel of another element type, and for one that is gone
    virtual bool addDestination(const std::any* channel) = 0;
    /// Drops every entry for this channel.
    /// @return false when there was none
    virtual bool removeDestination(const std::any* channel) = 0;
};

} // namespace ondra
