#pragma once
// Base of the nodes at which a graph ends.

#include <cstdint>

#include "graph/nodes/detail/BoxedInput.h"
#include "ondra/SinkInterface.h"

namespace graph::nodes {

/// Batch is the element type of its channel.
template <class Batch>
class SinkNode : public ondra::SinkInterface<Batch> {
public:
    /// The input, for addDestination() of another node of this process; good for as long as this node lives.
    trovi::BoxedPtr getInput() const { return detail::boxInput(*this); }

protected:
    /// How long apply() waits for a batch. It is the only pause in the loop of a running graph.
    static constexpr std::int64_t applyWaitUs = 10'000;
};

} // namespace graph::nodes
