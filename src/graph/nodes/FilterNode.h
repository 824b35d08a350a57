#pragma once
// Base of the nodes between the sources and the sinks of a graph.

#include "graph/nodes/detail/GuardedOutput.h"
#include "ondra/FilterInterface.h"

namespace graph::nodes {

/// In and Out are the element types of its channel and of its destinations' channels.
/// Threads: adding and removing destinations is thread-safe, also during apply().
template <class In, class Out>
class FilterNode : public detail::GuardedOutput<ondra::FilterInterface<In, Out>> {
public:
    /// The input, for addDestination() of another node of this process; good for as long as this node lives.
    trovi::BoxedPtr getInput() const { return detail::boxInput(*this); }
};

} // namespace graph::nodes
