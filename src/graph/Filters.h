#pragma once
// The table of nodes that EventFilterGraph::addFilterNode() makes.

namespace graph {

/// Registers them with EventFilterNodeFactory.
struct Filters {
    Filters();
};

} // namespace graph
