#pragma once
// Base of the nodes that feed a graph from outside.

#include "graph/nodes/detail/GuardedOutput.h"
#include "ondra/SourceInterface.h"

namespace graph::nodes {

/// Batch is the element type of its destinations' channels.
/// Threads: adding and removing destinations is thread-safe, also during a send.
template <class Batch>
class SourceNode : public detail::GuardedOutput<ondra::SourceInterface<Batch>> {};

} // namespace graph::nodes
